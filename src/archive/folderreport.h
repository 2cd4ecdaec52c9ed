// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"
#include "archive/numberset.h"

#include <functional>

namespace Archive
{

//! When a record was made.
struct RecordTime {
    quint64 seconds = 0; //!< since 1970-01-01 UTC
    quint32 microseconds = 0;
};

//! A damaged stretch of a file.
struct Stretch {
    qint64 from = 0;
    qint64 to = 0; //!< behind its last byte
    Fault reason = Fault::None;
    quint64 wholeBefore = 0; //!< of the file's records
    quint64 wholeBehind = 0;
};

struct FileReport {
    int file = 0;
    qint64 size = 0;
    quint64 records = 0; //!< whole or likely ones
    // Of these; all 0 where there is none. The first and the last in the file.
    quint64 first = 0;
    quint64 last = 0;
    RecordTime firstTime;
    RecordTime lastTime;
    /*!
     * In the order of the file, none touching another. Of more than mostStretches the last
     * one stands for all the rest.
     */
    std::vector<Stretch> damaged;
    quint64 readByDaemon = 0; //!< of the records
    int error = 0;            //!< errno of why it could not be read to its end

    static constexpr size_t mostStretches = 10000;
};

struct FolderReport {
    int files = 0;
    quint64 records = 0;
    quint64 readByDaemon = 0;
    bool isDamaged = false; //!< some file has a damaged stretch
    int error = 0;          //!< that of the first file that could not be read, or of the folder
    NumberSet numbers;      //!< has the missing and the repeated ones
};

/*!
 * Looks through a folder and hands over what it finds of each file, oldest first. The
 * folder has been opened.
 */
FolderReport reportOn(
    const Folder &folder,
    const std::function<void(const FileReport &)> &perFile = [](const FileReport &) {});

} // namespace Archive

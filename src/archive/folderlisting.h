// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filebytes.h"

#include <QStringList>

#include <memory>
#include <optional>
#include <vector>

namespace Archive
{

//! A log file: the name that it had, and which file it is under any name.
struct ListedFile {
    int index = 0;
    FileIdentity identity;
    std::shared_ptr<const FileBytes> bytes; //!< null of one that is not held open
};

struct Listing {
    //! So many are held open at most: the oldest, as those are deleted first.
    static constexpr size_t mostOpen = 256;

    std::vector<ListedFile> files; //!< the highest index first
    QStringList otherNames;        //!< that the daemon's reader takes for log files, too
};

/*!
 * Lists the log files of a folder. A rotation renames one after another: the folder is
 * listed again until two listings in a row are the same. Nothing, with errno, where the
 * folder cannot be read. \a folder is a descriptor.
 */
std::optional<Listing> listFolder(int folder);

/*!
 * The bytes of a listed file, which may have been renamed since. Null where they cannot
 * be had: \a error is 0 where the file is gone, else errno.
 */
std::shared_ptr<const FileBytes> openListed(int folder, const ListedFile &file, int &error);

} // namespace Archive

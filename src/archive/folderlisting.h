// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filebytes.h"

#include <QStringList>

#include <optional>
#include <vector>

namespace Archive
{

//! A log file: the name that it had, and which file it is under any name.
struct ListedFile {
    int index = 0;
    FileIdentity identity;
};

struct Listing {
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
 * Opens a listed file, which may have been renamed since. Without success isOpen() is
 * false: \a error is 0 where it is gone, else errno.
 */
FileBytes openListed(int folder, const ListedFile &file, int &error);

} // namespace Archive

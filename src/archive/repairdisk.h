// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filebytes.h"

#include <string_view>

namespace Archive
{

/*!
 * What a repair does on the file system: each a single step, after which it may be
 * stopped. Each gives 0 or an errno.
 */
class RepairDisk
{
public:
    RepairDisk() = default;
    virtual ~RepairDisk();
    Q_DISABLE_COPY_MOVE(RepairDisk)

    virtual int makeFolder(int parent, const char *name);
    //! Makes an empty file for writing, in place of one that is there.
    virtual int create(int folder, const char *name, Descriptor &file);
    //! Opens a file for writing.
    virtual int open(int folder, const char *name, Descriptor &file);
    virtual int write(int file, std::string_view bytes);
    //! Gives a file the owner, the mode and the time of modification of another.
    virtual int setAttributes(int file, const struct stat &like);
    //! Of a file or a folder.
    virtual int sync(int descriptor);
    virtual int link(int folder, const char *name, int newFolder, const char *newName);
    virtual int rename(int folder, const char *name, int newFolder, const char *newName);
    virtual int remove(int folder, const char *name);
    virtual int truncate(int file, qint64 size);
};

/*!
 * The lock of a folder of log files: a daemon holds it as long as it runs. It is on the
 * folder itself; there is no file for it.
 */
class FolderLock
{
public:
    explicit FolderLock(const QString &folderPath);

    [[nodiscard]] bool isHeld() const { return error() == 0; }
    //! Why it is not held: EWOULDBLOCK where another process holds it.
    [[nodiscard]] int error() const { return reason; }

private:
    Descriptor folder;
    int reason = 0;
};

} // namespace Archive

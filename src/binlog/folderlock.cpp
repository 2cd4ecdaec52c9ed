// SPDX-License-Identifier: Apache-2.0
#include "binlog/folderlock.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

FolderLock::FolderLock(const QDir &directory)
    : path(QFile::encodeName(directory.absolutePath()))
{
}

FolderLock::~FolderLock()
{
    release();
}

void FolderLock::hold()
{
    if (isHeld()) {
        return;
    }
    release();
    descriptor = open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        release();
    }
}

//! Whether the folder is the locked one, and not one made anew in its place.
bool FolderLock::isHeld() const
{
    struct stat locked {
    };
    struct stat present {
    };
    return fstat(descriptor, &locked) == 0 && stat(path.constData(), &present) == 0
        && locked.st_ino == present.st_ino && locked.st_dev == present.st_dev;
}

void FolderLock::release()
{
    if (descriptor >= 0) {
        close(descriptor);
        descriptor = -1;
    }
}

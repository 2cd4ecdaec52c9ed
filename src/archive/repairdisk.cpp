// SPDX-License-Identifier: Apache-2.0
#include "archive/repairdisk.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Archive
{
namespace
{

int resultOf(int returned)
{
    return returned == 0 ? 0 : errno;
}

} // namespace

RepairDisk::~RepairDisk() = default;

int RepairDisk::makeFolder(int parent, const char *name)
{
    const int error = resultOf(::mkdirat(parent, name, S_IRWXU | S_IRGRP | S_IXGRP));
    return error == EEXIST ? 0 : error;
}

int RepairDisk::create(int folder, const char *name, Descriptor &file)
{
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
    file = Descriptor(::openat(folder, name, flags, S_IRUSR | S_IWUSR));
    return file.isOpen() ? 0 : errno;
}

int RepairDisk::open(int folder, const char *name, Descriptor &file)
{
    file = Descriptor(::openat(folder, name, O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    return file.isOpen() ? 0 : errno;
}

int RepairDisk::write(int file, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = ::write(file, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        bytes.remove_prefix(size_t(count < 0 ? 0 : count));
    }
    return 0;
}

int RepairDisk::setAttributes(int file, const struct stat &like)
{
    struct stat now {
    };
    if (::fstat(file, &now) != 0) {
        return errno;
    }
    // Who owns the file already need not be allowed to give it away.
    const bool isOwned = now.st_uid == like.st_uid && now.st_gid == like.st_gid;
    if (!isOwned && ::fchown(file, like.st_uid, like.st_gid) != 0) {
        return errno;
    }
    if (::fchmod(file, like.st_mode & ALLPERMS) != 0) {
        return errno;
    }
    const timespec times[] = {like.st_atim, like.st_mtim};
    return resultOf(::futimens(file, times));
}

int RepairDisk::sync(int descriptor)
{
    return resultOf(::fsync(descriptor));
}

int RepairDisk::link(int folder, const char *name, int newFolder, const char *newName)
{
    return resultOf(::linkat(folder, name, newFolder, newName, 0));
}

int RepairDisk::rename(int folder, const char *name, int newFolder, const char *newName)
{
    return resultOf(::renameat(folder, name, newFolder, newName));
}

int RepairDisk::remove(int folder, const char *name)
{
    return resultOf(::unlinkat(folder, name, 0));
}

int RepairDisk::truncate(int file, qint64 size)
{
    return resultOf(::ftruncate(file, size));
}

FolderLock::FolderLock(const QString &folderPath)
    : folder(openFolder(folderPath))
{
    if (!folder.isOpen() || ::flock(folder.get(), LOCK_EX | LOCK_NB) != 0) {
        reason = errno;
    }
}

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#include "trouble.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

Trouble trouble;
QList<qint64> syncedSizes;
QList<qint64> writtenSizes;

namespace
{

bool fails(int error)
{
    if (error != 0) {
        errno = error;
    }
    return error != 0;
}

//! That of a regular file; messages to a pipe or a terminal are left in peace.
bool isStored(int descriptor)
{
    struct stat state {
    };
    return fstat(descriptor, &state) == 0 && S_ISREG(state.st_mode) && descriptor > STDERR_FILENO;
}

} // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" ssize_t write(int descriptor, const void *bytes, size_t size)
{
    if (!isStored(descriptor)) {
        return syscall(SYS_write, descriptor, bytes, size);
    }
    writtenSizes.append(qint64(size));
    if (trouble.interruptions > 0) {
        --trouble.interruptions;
        return fails(EINTR) ? -1 : 0;
    }
    const auto fits
        = [size](qint64 most) { return most < 0 ? size : std::min(size, size_t(most)); };
    if (fails(trouble.writeError) || (fits(trouble.space) == 0 && fails(ENOSPC))) {
        return -1;
    }
    const size_t taken = std::min(fits(trouble.space), fits(trouble.mostAtOnce));
    if (trouble.space > 0) {
        trouble.space -= qint64(taken);
    }
    return syscall(SYS_write, descriptor, bytes, taken);
}

extern "C" int fsync(int descriptor)
{
    struct stat state {
    };
    (void)fstat(descriptor, &state);
    syncedSizes.append(state.st_size);
    return fails(trouble.fsyncError) ? -1 : int(syscall(SYS_fsync, descriptor));
}

extern "C" int ftruncate(int descriptor, off_t size) noexcept
{
    // By no system call: processors of 32 bits differ in how they take the size.
    using Truncate = int (*)(int, off_t);
    static const auto original = reinterpret_cast<Truncate>(dlsym(RTLD_NEXT, "ftruncate64"));
    return fails(trouble.truncateError) ? -1 : original(descriptor, size);
}

extern "C" int rename(const char *from, const char *to) noexcept
{
    return fails(trouble.renameError) ? -1 : renameat(AT_FDCWD, from, AT_FDCWD, to);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

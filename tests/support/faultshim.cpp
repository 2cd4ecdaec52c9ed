// SPDX-License-Identifier: Apache-2.0

// A library to preload: makes the storage under the log slow, full or broken, as
// support/faults.h says.

#include "support/faults.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr std::string_view logPath("/srv/public/log");

Faults *mapFaults()
{
    const char *const name = std::getenv(faultsVariable);
    const int handle = name != nullptr ? open(name, O_RDWR | O_CLOEXEC) : -1;
    if (handle < 0) {
        return nullptr;
    }
    void *const mapped
        = mmap(nullptr, sizeof(Faults), PROT_READ | PROT_WRITE, MAP_SHARED, handle, 0);
    close(handle);
    return mapped != MAP_FAILED ? static_cast<Faults *>(mapped) : nullptr;
}

//! Null in a process that is not to be troubled.
Faults *const faults = mapFaults();

int openWitness()
{
    const char *const name = std::getenv(witnessVariable);
    return faults != nullptr && name != nullptr ? open(name, O_WRONLY | O_APPEND | O_CLOEXEC) : -1;
}

//! Negative where nobody asks for one.
const int witness = openWitness();

template <typename Function>
Function *original(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

bool concerns(const char *path)
{
    return faults != nullptr && path != nullptr
        && std::string_view(path).substr(0, logPath.size()) == logPath;
}

bool concerns(int handle)
{
    if (faults == nullptr) {
        return false;
    }
    char link[64];
    char path[256] = {};
    std::snprintf(link, sizeof(link), "/proc/self/fd/%d", handle);
    return readlink(link, path, sizeof(path) - 1) > 0 && concerns(path);
}

//! Whether a call is to fail; errno then says why.
bool fails(const std::atomic<std::int32_t> &error)
{
    const int reason = error;
    if (reason != 0) {
        errno = reason;
    }
    return reason != 0;
}

//! A write that the witness sees before it happens, and only as far as it happens.
template <typename Write>
ssize_t writeWitnessed(Write *next, int handle, const void *bytes, size_t size)
{
    const off_t before = witness < 0 ? 0 : lseek(witness, 0, SEEK_END);
    if (witness >= 0 && next(witness, bytes, size) != ssize_t(size)) {
        std::abort();
    }
    const ssize_t written = next(handle, bytes, size);
    const int reason = errno;
    if (witness >= 0 && written != ssize_t(size)
        && ftruncate(witness, before + (written > 0 ? written : 0)) != 0) {
        std::abort();
    }
    if (written > 0) {
        faults->bytesWritten += std::uint64_t(written);
    }
    errno = reason;
    return written;
}

int openWithFaults(const char *name, const char *path, int flags, mode_t mode)
{
    if (concerns(path) && (flags & O_CREAT) != 0 && fails(faults->openError)) {
        return -1;
    }
    return original<int(const char *, int, ...)>(name)(path, flags, mode);
}

int openatWithFaults(const char *name, int folder, const char *path, int flags, mode_t mode)
{
    if (concerns(path) && (flags & O_CREAT) != 0 && fails(faults->openError)) {
        return -1;
    }
    return original<int(int, const char *, int, ...)>(name)(folder, path, flags, mode);
}

mode_t modeArgument(int flags, va_list &arguments)
{
    return (flags & O_CREAT) != 0 ? mode_t(va_arg(arguments, int)) : mode_t(0);
}

} // namespace

ReadFaults *readFaults()
{
    return faults != nullptr ? &faults->reads : nullptr;
}

// The C library's own headers name the parameters otherwise, with names reserved to it.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {
// The names of the parameters are the C library's own, and reserved for it.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

ssize_t write(int handle, const void *bytes, size_t size)
{
    static auto *const next = original<ssize_t(int, const void *, size_t)>("write");
    if (!concerns(handle)) {
        return next(handle, bytes, size);
    }
    ++faults->writes;
    if (fails(faults->writeError)) {
        return -1;
    }
    const std::int64_t space = faults->space;
    if (space == 0 && size != 0) {
        errno = ENOSPC;
        return -1;
    }
    const std::int32_t mostAtOnce = faults->mostAtOnce;
    const size_t taken = mostAtOnce > 0 ? std::min(size, size_t(mostAtOnce)) : size;
    const size_t fits = space < 0 ? taken : std::min(taken, size_t(space));
    const ssize_t written = writeWitnessed(next, handle, bytes, fits);
    if (space > 0 && written > 0) {
        faults->space -= written;
    }
    return written;
}

int fsync(int handle)
{
    static auto *const next = original<int(int)>("fsync");
    if (!concerns(handle)) {
        return next(handle);
    }
    ++faults->fsyncs;
    if (const int delay = faults->fsyncDelay; delay > 0) {
        usleep(useconds_t(delay));
    }
    const std::uint64_t written = faults->bytesWritten;
    if (fails(faults->fsyncError) || next(handle) != 0) {
        return -1;
    }
    faults->bytesSynced = written;
    return 0;
}

int ftruncate(int handle, off_t size) noexcept
{
    if (concerns(handle) && fails(faults->truncateError)) {
        return -1;
    }
    return original<int(int, off_t)>("ftruncate")(handle, size);
}

int ftruncate64(int handle, off64_t size) noexcept
{
    if (concerns(handle) && fails(faults->truncateError)) {
        return -1;
    }
    return original<int(int, off64_t)>("ftruncate64")(handle, size);
}

int rename(const char *from, const char *to) noexcept
{
    if (concerns(from) && fails(faults->renameError)) {
        return -1;
    }
    return original<int(const char *, const char *)>("rename")(from, to);
}

int renameat2(int fromFolder, const char *from, int toFolder, const char *to,
              unsigned int flags) noexcept
{
    if (concerns(from) && fails(faults->renameError)) {
        return -1;
    }
    return original<int(int, const char *, int, const char *, unsigned int)>("renameat2")(
        fromFolder, from, toFolder, to, flags);
}

int unlink(const char *path) noexcept
{
    if (concerns(path) && fails(faults->unlinkError)) {
        return -1;
    }
    return original<int(const char *)>("unlink")(path);
}

int mkdir(const char *path, mode_t mode) noexcept
{
    if (concerns(path) && fails(faults->mkdirError)) {
        return -1;
    }
    return original<int(const char *, mode_t)>("mkdir")(path, mode);
}

int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeArgument(flags, arguments);
    va_end(arguments);
    return openWithFaults("open", path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeArgument(flags, arguments);
    va_end(arguments);
    return openWithFaults("open64", path, flags, mode);
}

int openat(int folder, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeArgument(flags, arguments);
    va_end(arguments);
    return openatWithFaults("openat", folder, path, flags, mode);
}

int openat64(int folder, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeArgument(flags, arguments);
    va_end(arguments);
    return openatWithFaults("openat64", folder, path, flags, mode);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
} // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

// SPDX-License-Identifier: Apache-2.0

// read() and pread() that heed ReadFaults, for a library to preload or a test of its own.

#include "support/readfaults.h"

#include <cstddef>

#include <dlfcn.h>
#include <unistd.h>

namespace
{

std::int64_t permitted(int handle, size_t size, std::int64_t position)
{
    ReadFaults *const faults = readFaults();
    return faults != nullptr ? faults->permit(handle, std::int64_t(size), position)
                             : std::int64_t(size);
}

template <typename Function>
Function *original(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

// These stand in front of the C library's, whose headers name the parameters otherwise.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

ssize_t read(int handle, void *bytes, size_t size)
{
    static auto *const next = original<ssize_t(int, void *, size_t)>("read");
    const std::int64_t allowed = permitted(handle, size, -1);
    return allowed < 0 ? -1 : next(handle, bytes, std::size_t(allowed));
}

#ifndef _FILE_OFFSET_BITS // which makes the two one
ssize_t pread(int handle, void *bytes, size_t size, off_t position)
{
    static auto *const next = original<ssize_t(int, void *, size_t, off_t)>("pread");
    const std::int64_t allowed = permitted(handle, size, position);
    return allowed < 0 ? -1 : next(handle, bytes, std::size_t(allowed), position);
}
#endif

ssize_t pread64(int handle, void *bytes, size_t size, off64_t position)
{
    static auto *const next = original<ssize_t(int, void *, size_t, off64_t)>("pread64");
    const std::int64_t allowed = permitted(handle, size, position);
    return allowed < 0 ? -1 : next(handle, bytes, std::size_t(allowed), position);
}

} // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

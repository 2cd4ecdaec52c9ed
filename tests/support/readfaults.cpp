// SPDX-License-Identifier: Apache-2.0
#include "support/readfaults.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

void ReadFaults::spoil(const char *path, std::int64_t begin, std::int64_t end)
{
    struct stat file {
    };
    if (count == most || stat(path, &file) != 0) {
        std::abort();
    }
    bad[size_t(count)] = {std::uint64_t(file.st_dev), std::uint64_t(file.st_ino), begin, end};
    ++count;
}

std::int64_t ReadFaults::permit(int handle, std::int64_t size, std::int64_t position)
{
    struct stat file {
    };
    ++reads;
    if (count == 0 || fstat(handle, &file) != 0) {
        return size;
    }
    const std::int64_t begin = position < 0 ? lseek(handle, 0, SEEK_CUR) : position;
    std::int64_t end = begin + size;
    bool isSpoilt = false;
    for (int i = 0; i < count; ++i) {
        const BadBytes &bytes = bad[size_t(i)];
        if (bytes.device == file.st_dev && bytes.inode == file.st_ino) {
            isSpoilt = true;
            if (bytes.begin < end && begin < bytes.end) {
                end = std::max(begin, bytes.begin);
            }
        }
    }
    if (isSpoilt && interrupted && ++calls % 2 != 0) {
        errno = EINTR;
        return -1;
    }
    if (end == begin && size > 0 && begin < file.st_size) {
        ++failures;
        errno = EIO;
        return -1;
    }
    return end - begin;
}

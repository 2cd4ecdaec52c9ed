// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

/*!
 * Bytes that cannot be read, as on a disk with bad sectors: a read delivers what lies
 * before them and fails with EIO at the first of them. They stay with their file,
 * whatever its name becomes. Nothing of it may be in use while the tables change.
 */
class ReadFaults
{
public:
    //! Makes bytes of a file unreadable; \a end is not included.
    void spoil(const char *path, std::int64_t begin, std::int64_t end);
    //! Makes everything readable again.
    void heal() { count = 0; }

    //! Whether a signal interrupts every other read of a spoilt file.
    std::atomic<bool> interrupted{false};
    std::atomic<std::uint64_t> failures{0}; //!< reads that came back with EIO
    std::atomic<std::uint64_t> reads{0};    //!< all of them, of any file

    /*!
     * What becomes of reading \a size bytes at \a position, or at the handle's own one
     * where that is negative: how many of them may be read, or -1 with errno.
     */
    std::int64_t permit(int handle, std::int64_t size, std::int64_t position);

private:
    struct BadBytes {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::int64_t begin = 0;
        std::int64_t end = 0;
    };
    static constexpr int most = 64;
    std::array<BadBytes, most> bad{};
    std::atomic<std::int32_t> count{0};
    std::atomic<std::uint32_t> calls{0};
};

//! What the read() and pread() of faultyreads.cpp heed, null for nothing: defined by whoever
//! links them.
ReadFaults *readFaults();

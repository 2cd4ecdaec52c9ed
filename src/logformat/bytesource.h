// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <algorithm>
#include <string_view>

/*!
 * Reads bytes in memory as a file is read: from a position on, as far as they go. The
 * bytes are not owned.
 */
class ByteSource
{
public:
    explicit ByteSource(std::string_view content)
        : bytes(content)
    {
    }

    [[nodiscard]] qint64 size() const { return qint64(bytes.size()); }
    [[nodiscard]] qint64 position() const { return place; }
    //! \a position is not negative; one behind the end is fine and reads nothing.
    void seek(qint64 position) { place = position; }
    //! The next bytes, up to \a count.
    std::string_view take(qint64 count)
    {
        const qint64 there = std::clamp<qint64>(size() - place, 0, count);
        const qint64 begin = place;
        place += there;
        return there > 0 ? bytes.substr(size_t(begin), size_t(there)) : std::string_view();
    }
    //! Copies up to \a count bytes and gives their number.
    qint64 read(char *out, qint64 count)
    {
        const std::string_view found = take(count);
        std::copy(found.begin(), found.end(), out);
        return qint64(found.size());
    }

private:
    std::string_view bytes;
    qint64 place = 0;
};

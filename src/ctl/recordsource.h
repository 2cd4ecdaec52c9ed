// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filebytes.h"

#include <algorithm>
#include <string_view>
#include <utility>

/*!
 * Reads a record, and behind its end what follows it in its file, as the daemon does
 * where the values are not those declared.
 */
class RecordSource
{
public:
    //! The bytes and the file must outlive this.
    RecordSource(std::string_view record, qint64 recordOffset, const Archive::FileBytes &logFile)
        : bytes(record)
        , offset(recordOffset)
        , file(logFile)
    {
    }

    [[nodiscard]] qint64 position() const { return place; }
    void seek(qint64 position) { place = position; }
    //! The next bytes, up to \a count; valid until the next call.
    std::string_view take(qint64 count)
    {
        const qint64 begin = std::exchange(place, place + count);
        if (begin + count <= qint64(bytes.size())) {
            return bytes.substr(size_t(begin), size_t(count));
        }
        return takeFromFile(begin, count);
    }
    qint64 read(char *out, qint64 count)
    {
        const std::string_view found = take(count);
        std::copy(found.begin(), found.end(), out);
        return qint64(found.size());
    }

private:
    std::string_view takeFromFile(qint64 begin, qint64 count)
    {
        const qint64 size = qint64(file.status().st_size) - offset;
        const qint64 end = std::min(begin + count, size);
        place = std::max(begin, end);
        if (end <= begin || !file.read(offset + begin, offset + end, behind)) {
            return {};
        }
        return {behind.constData(), size_t(behind.size())};
    }

    std::string_view bytes;
    qint64 offset;
    const Archive::FileBytes &file;
    qint64 place = 0;
    QByteArray behind;
};

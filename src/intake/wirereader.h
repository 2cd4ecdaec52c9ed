// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtEndian>

#include <cstring>
#include <string_view>

/*!
 * Reads values from the bytes of a message, one behind the other and aligned, in the order
 * of its sender's bytes. Where something is malformed the reader says so from then on, and
 * gives zeros and empty texts.
 */
class WireReader
{
public:
    //! Bytes whose first one is aligned to 8; they are not copied.
    WireReader(std::string_view bytes, bool isBigEndian)
        : all(bytes)
        , swaps(isBigEndian)
    {
    }

    [[nodiscard]] bool isMalformed() const { return malformed; }
    void refuse() { malformed = true; }
    [[nodiscard]] size_t position() const { return at; }
    [[nodiscard]] bool atEnd() const { return at >= all.size(); }

    //! Goes on at a boundary; what lies before it has to be zero.
    void align(size_t boundary)
    {
        for (; at % boundary != 0; ++at) {
            if (atEnd() || all[at] != '\0') {
                malformed = true;
                return;
            }
        }
    }

    template <typename Number>
    Number fixed()
    {
        align(sizeof(Number));
        Number value{};
        const std::string_view bytes = take(sizeof(Number));
        if (!malformed) {
            value = swaps ? qFromBigEndian<Number>(bytes.data())
                          : qFromLittleEndian<Number>(bytes.data());
        }
        return value;
    }

    //! A text with its length in front, of 32 bits or of 8, and a zero byte behind.
    std::string_view text() { return terminated(fixed<quint32>()); }
    std::string_view shortText() { return terminated(fixed<quint8>()); }

    //! So many bytes as they are.
    std::string_view take(size_t size)
    {
        if (malformed || size > all.size() - at) {
            malformed = true;
            return {};
        }
        at += size;
        return all.substr(at - size, size);
    }

private:
    std::string_view terminated(size_t size)
    {
        const std::string_view content = take(size);
        const std::string_view zero = take(1);
        malformed = malformed || zero.front() != '\0'
            || (!content.empty() && std::memchr(content.data(), 0, content.size()) != nullptr);
        return malformed ? std::string_view() : content;
    }

    std::string_view all;
    size_t at = 0;
    bool swaps;
    bool malformed = false;
};

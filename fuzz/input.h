// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

#include <algorithm>
#include <cstdint>
#include <cstring>

/*!
 * Takes what a target needs from the fuzzer's bytes, front to back, so that a small
 * change of the input is a small change of what it stands for. Behind the end
 * everything is zero or empty.
 */
class Input
{
public:
    Input(const uint8_t *data, size_t size)
        : bytes(reinterpret_cast<const char *>(data))
        , left(size)
    {
    }

    [[nodiscard]] bool atEnd() const { return left == 0; }

    //! Of as many bytes as the type has, little-endian like the log files.
    template <typename Number>
    Number number()
    {
        Number value{};
        const size_t count = std::min(left, sizeof value);
        std::memcpy(&value, bytes, count);
        skip(count);
        return value;
    }
    int byte() { return number<uint8_t>(); }
    //! From 0 to \a bound, which is at most 256 and not included.
    int below(int bound) { return byte() % bound; }
    bool flag() { return (byte() & 1) != 0; }

    QByteArray take(size_t count)
    {
        const size_t taken = std::min(left, count);
        const QByteArray result(bytes, int(taken));
        skip(taken);
        return result;
    }
    //! Up to 255 bytes, with their number in front.
    QByteArray shortBytes() { return take(size_t(byte())); }
    //! Up to 65535 bytes, likewise.
    QByteArray longBytes() { return take(number<uint16_t>()); }
    QString shortText()
    {
        const QByteArray utf8 = shortBytes();
        return QString::fromUtf8(utf8.constData(), utf8.size());
    }
    //! UTF-16 as it comes, with halves of pairs.
    QString rawText()
    {
        QString text;
        for (int i = below(32); i > 0; --i) {
            text += QChar(number<char16_t>());
        }
        return text;
    }

private:
    void skip(size_t count)
    {
        bytes += count;
        left -= count;
    }

    const char *bytes;
    size_t left;
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

#include <charconv>
#include <string>
#include <string_view>
#include <type_traits>

/*!
 * Appends to a text in UTF-8. Numbers are written as QString::arg() does it for a
 * plain placeholder.
 */
namespace Utf8Text
{

//! In decimal, without grouping.
template <typename Integer>
void append(std::string &out, Integer value)
{
    static_assert(std::is_integral_v<Integer>);
    char text[20]; // a sign and 19 digits, or 20 digits
    const auto end = std::to_chars(std::begin(text), std::end(text), value);
    out.append(text, size_t(end.ptr - text));
}

//! In format 'g' with up to 15 significant digits; halves round away from zero.
void append(std::string &out, double value, int significantDigits = 6);

void append(std::string &out, const QString &text);
//! The text; a byte order mark in front is a character of it, which QString drops.
QString toString(std::string_view utf8);
void appendLatin1(std::string &out, std::string_view latin1);

//! What a text of bytes holds as a C string.
inline std::string_view upToZeroByte(std::string_view bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

//! Whether all characters are below U+0080, and so the same in UTF-8 and Latin-1.
inline bool isAscii(std::string_view text)
{
    unsigned char bits = 0; // without a way out of the loop, which makes it fast
    for (const char c : text) {
        bits = static_cast<unsigned char>(bits | static_cast<unsigned char>(c));
    }
    return bits < 0x80;
}

} // namespace Utf8Text

// SPDX-License-Identifier: Apache-2.0
#include "rendering/jsonutil.h"

#include <array>
#include <string_view>

namespace
{

constexpr unsigned char firstPlainByte = 0x20;

bool needsEscape(unsigned char byte)
{
    return byte < firstPlainByte || byte == '"' || byte == '\\';
}

/*!
 * Whether nothing needs an escape. Without a way out of the loop, and with a byte for the
 * result, it looks at many bytes at once: with a bool it takes ten times as long.
 */
bool allPlain(std::string_view utf8)
{
    unsigned char escapes = 0;
    for (const char c : utf8) {
        const int found = needsEscape(static_cast<unsigned char>(c)) ? 1 : 0;
        escapes = static_cast<unsigned char>(escapes | found);
    }
    return escapes == 0;
}

//! The letter of the two-character form, 0 where there is none.
char shortForm(unsigned char byte)
{
    switch (byte) {
    case '"':
        return '"';
    case '\\':
        return '\\';
    case '\b':
        return 'b';
    case '\f':
        return 'f';
    case '\n':
        return 'n';
    case '\r':
        return 'r';
    case '\t':
        return 't';
    default:
        return 0;
    }
}

//! What stands for a byte that needs it, with a zero at its end.
std::array<char, 7> escapeSequence(unsigned char byte)
{
    static const char hexDigits[] = "0123456789ABCDEF";
    if (const char letter = shortForm(byte)) {
        return {'\\', letter};
    }
    return {'\\', 'u', '0', '0', hexDigits[byte >> 4], hexDigits[byte & 0xF]};
}

} // namespace

void jsonUtil::escape(std::string &utf8, size_t begin)
{
    const std::string_view tail = std::string_view(utf8).substr(begin);
    if (allPlain(tail)) {
        return;
    }
    std::string escaped;
    escaped.reserve(tail.size() + 16);
    for (const char character : tail) {
        const auto byte = static_cast<unsigned char>(character);
        if (needsEscape(byte)) {
            escaped += escapeSequence(byte).data();
        } else {
            escaped += character;
        }
    }
    utf8.replace(begin, std::string::npos, escaped);
}

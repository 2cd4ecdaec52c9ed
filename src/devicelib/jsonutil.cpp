// SPDX-License-Identifier: Apache-2.0
#include "devicelib/jsonutil.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace zib
{
namespace
{

constexpr char16_t firstPlainCharacter = 0x20;

bool isPlain(QChar character)
{
    return character.unicode() >= firstPlainCharacter && character != QLatin1Char('"')
        && character != QLatin1Char('\\');
}

//! Whether all bytes are plain; without a way out of the loop, which makes it fast.
bool allPlain(std::string_view utf8)
{
    unsigned char escapes = 0;
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        escapes = static_cast<unsigned char>(escapes | (byte < firstPlainCharacter) | (byte == '"')
                                             | (byte == '\\'));
    }
    return escapes == 0;
}

//! The letter of the two-character form, 0 where there is none.
char shortForm(char16_t character)
{
    switch (character) {
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

//! What stands for a character that is not plain, with a zero at its end.
std::array<char, 7> escapeSequence(char16_t character)
{
    static const char hexDigits[] = "0123456789ABCDEF";
    if (const char letter = shortForm(character)) {
        return {'\\', letter};
    }
    return {'\\', 'u', '0', '0', hexDigits[character >> 4], hexDigits[character & 0xF]};
}

} // namespace

QString jsonUtil::escape(const QString &text)
{
    if (std::all_of(text.cbegin(), text.cend(), isPlain)) {
        return text;
    }
    QString escaped;
    escaped.reserve(text.size() + 16);
    for (const QChar character : text) {
        if (isPlain(character)) {
            escaped += character;
        } else {
            escaped += QLatin1String(escapeSequence(character.unicode()).data());
        }
    }
    return escaped;
}

void jsonUtil::escapeFrom(std::string &text, size_t position)
{
    const std::string_view tail = std::string_view(text).substr(position);
    if (allPlain(tail)) {
        return;
    }
    std::string escaped;
    escaped.reserve(tail.size() + 16);
    for (const char character : tail) {
        const auto byte = static_cast<unsigned char>(character);
        if (isPlain(QLatin1Char(character))) {
            escaped += character;
        } else {
            escaped += escapeSequence(byte).data();
        }
    }
    text.replace(position, std::string::npos, escaped);
}

} // namespace zib

// SPDX-License-Identifier: Apache-2.0
#include "devicelib/jsonutil.h"

#include <algorithm>
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
char shortForm(QChar character)
{
    switch (character.unicode()) {
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

} // namespace

QString jsonUtil::escape(const QString &text)
{
    if (std::all_of(text.cbegin(), text.cend(), isPlain)) {
        return text;
    }
    static const char hexDigits[] = "0123456789ABCDEF";
    QString escaped;
    escaped.reserve(text.size() + 16);
    for (const QChar character : text) {
        if (isPlain(character)) {
            escaped += character;
        } else if (const char letter = shortForm(character)) {
            escaped += QLatin1Char('\\');
            escaped += QLatin1Char(letter);
        } else {
            escaped += QLatin1String("\\u00");
            escaped += QLatin1Char(hexDigits[character.unicode() >> 4]);
            escaped += QLatin1Char(hexDigits[character.unicode() & 0xF]);
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
    const QByteArray escaped
        = escape(QString::fromUtf8(tail.data(), QString::size_type(tail.size()))).toUtf8();
    text.replace(position, std::string::npos, escaped.constData(), size_t(escaped.size()));
}

} // namespace zib

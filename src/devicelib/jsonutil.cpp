// SPDX-License-Identifier: Apache-2.0
#include "devicelib/jsonutil.h"

#include <algorithm>

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

} // namespace zib

// SPDX-License-Identifier: Apache-2.0
#include "rendering/placeholder.h"

namespace
{

//! QString::arg() takes the digits of every script; -1 for what is none.
int digitValue(QChar character)
{
    const char16_t code = character.unicode();
    if (code < 0x80) {
        return code >= u'0' && code <= u'9' ? code - u'0' : -1; // the general way is slow
    }
    return character.digitValue();
}

} // namespace

std::optional<Placeholder> Placeholder::next(const QString &text, QString::size_type &position)
{
    const auto digitAt = [&text](QString::size_type at) {
        return at < text.size() ? digitValue(text.at(at)) : -1;
    };
    while ((position = text.indexOf(QLatin1Char('%'), position)) >= 0) {
        const QString::size_type begin = position++;
        Placeholder found;
        found.localised = position < text.size() && text.at(position) == QLatin1Char('L');
        if (found.localised) {
            ++position;
        }
        while (found.digits < 2 && digitAt(position) >= 0) {
            found.number = 10 * found.number + digitAt(position);
            ++found.digits;
            ++position;
        }
        if (found.digits > 0) {
            found.length = position - begin;
            return found;
        }
    }
    position = text.size();
    return std::nullopt;
}

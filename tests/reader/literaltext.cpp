// SPDX-License-Identifier: Apache-2.0
#include "literaltext.h"

#include <limits>
#include <utility>

namespace
{

//! The occurrences of the placeholder that the next value replaces.
struct Occurrences {
    int number = std::numeric_limits<int>::max();
    qint64 plain = 0;     //!< as "%1"
    qint64 localised = 0; //!< as "%L1"
    qint64 length = 0;    //!< of all together
};

//! Reads a number of one or two digits at \a position and moves past it; -1 without one.
int takeNumber(const QString &text, QString::size_type &position)
{
    int number = -1;
    for (int digits = 0; digits < 2 && position < text.size(); ++digits) {
        const int digit = text.at(position).digitValue();
        if (digit < 0) {
            break;
        }
        number = number < 0 ? digit : number * 10 + digit;
        ++position;
    }
    return number;
}

//! The lowest-numbered placeholder of a text, by the rules of QString::arg().
Occurrences lowestPlaceholder(const QString &text)
{
    Occurrences lowest;
    QString::size_type position = text.indexOf(QLatin1Char('%'));
    while (position >= 0) {
        const QString::size_type begin = position++;
        const bool localised = position < text.size() && text.at(position) == QLatin1Char('L');
        if (localised) {
            ++position;
        }
        const int number = takeNumber(text, position);
        if (number >= 0 && number < lowest.number) {
            lowest = Occurrences{number};
        }
        if (number >= 0 && number == lowest.number) {
            ++(localised ? lowest.localised : lowest.plain);
            lowest.length += position - begin;
        }
        position = text.indexOf(QLatin1Char('%'), position);
    }
    return lowest;
}

template <typename Value>
qint64 lengthAs(const char *placeholder, const Value &value)
{
    return QString(QLatin1String(placeholder)).arg(value).size();
}

} // namespace

LiteralText::LiteralText(QString templateText)
    : current(std::move(templateText))
{
}

template <typename Value>
void LiteralText::substituteValue(const Value &value)
{
    if (closed) {
        return;
    }
    const Occurrences found = lowestPlaceholder(current);
    qint64 length = current.size() - found.length;
    if (found.plain > 0) {
        length += found.plain * lengthAs("%1", value);
    }
    if (found.localised > 0) {
        length += found.localised * lengthAs("%L1", value);
    }
    work += current.size() + length;
    const bool overLimit = length > maxLength || work > maxWork;
    cutShort = cutShort || overLimit;
    closed = overLimit || found.length == 0;
    if (length <= maxLength) {
        current = current.arg(value); // with no placeholder left it warns and changes nothing
    }
}

void LiteralText::substitute(const QString &value)
{
    substituteValue(value);
}

void LiteralText::substitute(qlonglong value)
{
    substituteValue(value);
}

void LiteralText::substitute(qulonglong value)
{
    substituteValue(value);
}

void LiteralText::substitute(double value)
{
    substituteValue(value);
}

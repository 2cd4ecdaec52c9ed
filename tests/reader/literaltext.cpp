// SPDX-License-Identifier: Apache-2.0
#include "literaltext.h"

#include <algorithm>
#include <map>
#include <utility>

namespace
{

//! The places of one placeholder in a text.
struct Occurrences {
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

//! All placeholders of a text by their numbers, by the rules of QString::arg().
std::map<int, Occurrences> placeholders(const QString &text)
{
    std::map<int, Occurrences> found;
    QString::size_type position = text.indexOf(QLatin1Char('%'));
    while (position >= 0) {
        const QString::size_type begin = position++;
        const bool localised = position < text.size() && text.at(position) == QLatin1Char('L');
        if (localised) {
            ++position;
        }
        const int number = takeNumber(text, position);
        if (number >= 0) {
            Occurrences &same = found[number];
            ++(localised ? same.localised : same.plain);
            same.length += position - begin;
        }
        position = text.indexOf(QLatin1Char('%'), position);
    }
    return found;
}

template <typename Value>
QString valueAs(const char *placeholder, const Value &value)
{
    return QString(QLatin1String(placeholder)).arg(value);
}

} // namespace

LiteralText::LiteralText(QString text)
    : templateText(std::move(text))
{
}

/*!
 * What values without placeholders take at most: each of those that the template has
 * a placeholder for finds and leaves a text that is not longer than the template and,
 * as often as its most frequent placeholder, all of these values in UTF-8.
 */
qint64 LiteralText::plainWork() const
{
    const std::map<int, Occurrences> found = placeholders(templateText);
    qint64 mostFrequent = 0;
    for (const auto &[number, places] : found) {
        mostFrequent = std::max(mostFrequent, places.plain + places.localised);
    }
    const qint64 count = std::min(qint64(values.size()), qint64(found.size()));
    qint64 bytes = 0;
    for (qint64 i = 0; i < count; ++i) {
        bytes += std::visit([](const auto &value) { return valueAs("%1", value).toUtf8().size(); },
                            values[std::size_t(i)]);
    }
    const qint64 longest = std::min(templateText.size() + mostFrequent * bytes, maxLength);
    return std::min(2 * count * longest, maxPlainWork);
}

QString LiteralText::render(qint64 ownWork, qint64 &moreWork)
{
    tooLong = false;
    tooCostly = false;
    QString text = templateText;
    // Returns whether the next value is to be put in as well.
    const auto substituted = [&](const auto &value) {
        const std::map<int, Occurrences> found = placeholders(text);
        if (found.empty()) {
            (void)text.arg(value); // warns
            return false;
        }
        const Occurrences &lowest = found.begin()->second;
        qint64 length = text.size() - lowest.length;
        length += lowest.plain > 0 ? lowest.plain * valueAs("%1", value).size() : 0;
        length += lowest.localised > 0 ? lowest.localised * valueAs("%L1", value).size() : 0;
        const qint64 work = text.size() + length;
        const qint64 more = work > ownWork ? work - ownWork : 0;
        tooLong = length > maxLength;
        tooCostly = !tooLong && more > moreWork;
        if (tooLong || tooCostly) {
            return false;
        }
        moreWork -= more;
        ownWork -= work - more;
        text = text.arg(value);
        return true;
    };
    for (const auto &value : values) {
        if (!std::visit(substituted, value)) {
            break;
        }
    }
    return text;
}

QString LiteralText::liveText()
{
    qint64 none = 0;
    return render(plainWork() + liveWork, none);
}

QString LiteralText::recordText(qint64 &answerWorkLeft)
{
    return render(plainWork() + recordWork, answerWorkLeft);
}

// SPDX-License-Identifier: Apache-2.0
#include "rendering/eventtext.h"

#include "logformat/encoding.h"
#include "rendering/placeholder.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace
{

//! The occurrences of the placeholder that the next value replaces.
struct Occurrences {
    int number = std::numeric_limits<int>::max();
    qint64 plain = 0;     //!< as "%1"
    qint64 localised = 0; //!< as "%L1"
    qint64 length = 0;    //!< of all of them together
};

//! Those of the lowest-numbered placeholder of a text.
Occurrences lowestPlaceholder(const QString &text)
{
    Occurrences lowest;
    QString::size_type position = 0;
    while (const auto placeholder = Placeholder::next(text, position)) {
        if (placeholder->number < lowest.number) {
            lowest = Occurrences{placeholder->number};
        }
        if (placeholder->number == lowest.number) {
            ++(placeholder->localised ? lowest.localised : lowest.plain);
            lowest.length += placeholder->length;
        }
    }
    return lowest;
}

//! A value as QString::arg() writes it for "%1" or "%L1".
template <typename Value>
QString valueText(const char *placeholder, const Value &value)
{
    return QString(QLatin1String(placeholder)).arg(value);
}

/*!
 * What QString::arg() makes of a text, in a third of its time where placeholders stand
 * close together. The length of the result is known.
 */
QString replaced(const QString &text, int number, qint64 length, const QString &plain,
                 const QString &localised)
{
    QString result(QString::size_type(length), Qt::Uninitialized);
    QChar *out = result.data();
    const QChar *end = text.cbegin();
    QString::size_type position = 0;
    while (const auto placeholder = Placeholder::next(text, position)) {
        if (placeholder->number == number) {
            const QString &value = placeholder->localised ? localised : plain;
            out = std::copy(end, text.cbegin() + position - placeholder->length, out);
            out = std::copy(value.cbegin(), value.cend(), out);
            end = text.cbegin() + position;
        }
    }
    std::copy(end, text.cend(), out);
    return result;
}

//! QVariant::toString() as devices in the field know it.
QString toText(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::Double:
        return QString::number(value.toDouble(), 'g', liveDoubleDigits);
    case QMetaType::QByteArray:
        return QString::fromLatin1(value.toByteArray().constData());
    default:
        return value.toString();
    }
}

} // namespace

EventText::EventText(QString templateText, qint64 ownWork, qint64 *budget)
    : current(std::move(templateText))
    , ownLeft(ownWork)
    , sharedLeft(budget)
{
}

//! Whether a substitution may be made, whose work is then taken.
bool EventText::admits(qint64 resultLength)
{
    const qint64 work = current.size() + resultLength;
    const qint64 beyond = std::max(work - ownLeft, qint64(0));
    if (resultLength > maxLength || beyond > (sharedLeft ? *sharedLeft : 0)) {
        return false;
    }
    ownLeft -= work - beyond;
    if (sharedLeft) {
        *sharedLeft -= beyond;
    }
    return true;
}

template <typename Value>
void EventText::substituteValue(const Value &value)
{
    if (closed) {
        return;
    }
    const Occurrences lowest = lowestPlaceholder(current);
    if (lowest.length == 0) {
        closed = true;
        (void)current.arg(value); // warns and changes nothing
        return;
    }
    const QString plain = lowest.plain > 0 ? valueText("%1", value) : QString();
    const QString localised = lowest.localised > 0 ? valueText("%L1", value) : QString();
    const qint64 length = current.size() - lowest.length + lowest.plain * plain.size()
        + lowest.localised * localised.size();
    closed = !admits(length);
    if (!closed) {
        current = replaced(current, lowest.number, length, plain, localised);
    }
}

void EventText::substitute(const QString &value)
{
    substituteValue(value);
}

void EventText::substitute(qlonglong value)
{
    substituteValue(value);
}

void EventText::substitute(qulonglong value)
{
    substituteValue(value);
}

void EventText::substitute(double value)
{
    substituteValue(value);
}

QString liveValueText(const QVariant &value)
{
    if (value.userType() != qMetaTypeId<WrappedValue>()) {
        return toText(value);
    }
    const QVariant content = value.value<WrappedValue>().content;
    return QLatin1Char('"') + toText(content) + QLatin1Char('"');
}

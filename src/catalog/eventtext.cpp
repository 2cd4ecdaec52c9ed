// SPDX-License-Identifier: Apache-2.0
#include "catalog/eventtext.h"

#include "catalog/placeholder.h"

#include <QDBusVariant>

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

EventText::EventText(QString templateText)
    : current(std::move(templateText))
{
}

bool EventText::admits(qint64 resultLength)
{
    work += current.size() + resultLength;
    return resultLength <= maxLength && work <= maxWork;
}

template <typename Value>
void EventText::substituteValue(const Value &value)
{
    if (closed) {
        return;
    }
    const Occurrences lowest = lowestPlaceholder(current);
    qint64 length = current.size() - lowest.length;
    if (lowest.plain > 0) {
        length += lowest.plain * valueText("%1", value).size();
    }
    if (lowest.localised > 0) {
        length += lowest.localised * valueText("%L1", value).size();
    }
    closed = !admits(length) || lowest.length == 0;
    if (length <= maxLength) {
        current = current.arg(value); // with no placeholder left it warns and changes nothing
    }
}

void EventText::substitute(const QString &value)
{
    substituteValue(value);
}

void EventText::substitute(std::string_view utf8)
{
    substituteValue(QString::fromUtf8(utf8.data(), QString::size_type(utf8.size())));
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
    if (value.userType() != qMetaTypeId<QDBusVariant>()) {
        return toText(value);
    }
    const QVariant wrapped = value.value<QDBusVariant>().variant();
    return QLatin1Char('"') + toText(wrapped) + QLatin1Char('"');
}

QString renderLiveEvent(const QString &templateText, const QList<QVariant> &args)
{
    EventText text(templateText);
    for (auto value = args.cbegin() + 1; value != args.cend() && !text.isClosed(); ++value) {
        text.substitute(liveValueText(*value));
    }
    return text.text();
}

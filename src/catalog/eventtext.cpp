// SPDX-License-Identifier: Apache-2.0
#include "catalog/eventtext.h"

#include <QDBusVariant>

#include <limits>
#include <utility>

namespace
{

//! The occurrences of the placeholder that the next value replaces.
struct Placeholder {
    int number = std::numeric_limits<int>::max();
    qint64 plain = 0;     //!< occurrences as "%1"
    qint64 localised = 0; //!< occurrences as "%L1"
    qint64 length = 0;    //!< of all occurrences together
};

//! Reads a number of one or two digits at \a position and moves past it; -1 without one.
int readNumber(const QString &text, QString::size_type &position)
{
    const auto digitAt = [&text](QString::size_type at) {
        return at < text.size() ? text.at(at).digitValue() : -1;
    };
    const int first = digitAt(position);
    if (first < 0) {
        return -1;
    }
    ++position;
    const int second = digitAt(position);
    if (second < 0) {
        return first;
    }
    ++position;
    return first * 10 + second;
}

//! The lowest-numbered placeholder of a text, by the rules of QString::arg().
Placeholder lowestPlaceholder(const QString &text)
{
    Placeholder lowest;
    QString::size_type position = text.indexOf(QLatin1Char('%'));
    while (position >= 0) {
        const QString::size_type begin = position++;
        const bool localised = position < text.size() && text.at(position) == QLatin1Char('L');
        if (localised) {
            ++position;
        }
        const int number = readNumber(text, position);
        if (number >= 0 && number <= lowest.number) {
            if (number < lowest.number) {
                lowest = Placeholder{number};
            }
            ++(localised ? lowest.localised : lowest.plain);
            lowest.length += position - begin;
        }
        position = text.indexOf(QLatin1Char('%'), position);
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
        return QString::number(value.toDouble(), 'g', std::numeric_limits<double>::digits10);
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
    const Placeholder placeholder = lowestPlaceholder(current);
    qint64 length = current.size() - placeholder.length;
    if (placeholder.plain > 0) {
        length += placeholder.plain * valueText("%1", value).size();
    }
    if (placeholder.localised > 0) {
        length += placeholder.localised * valueText("%L1", value).size();
    }
    closed = !admits(length) || placeholder.length == 0;
    if (length <= maxLength) {
        current = current.arg(value); // with no placeholder left it warns and changes nothing
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

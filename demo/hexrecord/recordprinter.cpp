// SPDX-License-Identifier: Apache-2.0
#include "recordprinter.h"

#include "logformat/plausibility.h"

#include <QDateTime>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace
{

constexpr qint64 bytesPerLine = 8;

void printLine(qint64 offset, const QByteArray &bytes, const QString &meaning)
{
    constexpr int hexWidth = 3 * int(bytesPerLine) + 1;
    QString line = QStringLiteral("%1  ").arg(offset, 6)
        + QString::fromLatin1(bytes.toHex(' ')).leftJustified(hexWidth) + meaning;
    while (line.endsWith(QLatin1Char(' '))) {
        line.chop(1);
    }
    (void)std::fputs((line + QLatin1Char('\n')).toUtf8().constData(), stdout);
}

} // namespace

RecordPrinter::RecordPrinter(QByteArray record, const SystemeventCatalogue &events)
    : bytes(std::move(record))
    , catalogue(events)
    , input({bytes.constData(), size_t(bytes.size())})
{
}

bool RecordPrinter::print()
{
    const LogFormat::RecordHead head = LogFormat::readHead(input, 0);
    const auto event = catalogue.events.constFind(uint(head.eventId));
    if (LogFormat::recordFlaw({bytes.constData(), size_t(bytes.size())}) != LogFormat::Flaw::None
        || event == catalogue.events.constEnd()) {
        return false;
    }
    printHead(head);
    printValue({QStringLiteral("path"), ArgumentType::String});
    for (const SystemeventArgument &argument : event->arguments) {
        printValue(argument);
    }
    const bool complete = input.position() == input.size() - LogFormat::trailerSize - 1;
    printTail();
    return complete;
}

void RecordPrinter::printHead(const LogFormat::RecordHead &head)
{
    printField(LogFormat::secondsOffset, QStringLiteral("log number %1").arg(head.logNr));
    const QString time = QDateTime::fromMSecsSinceEpoch(qint64(head.seconds) * 1000, Qt::UTC)
                             .toString(Qt::ISODate);
    printField(LogFormat::microsecondsOffset,
               QStringLiteral("seconds %1: %2").arg(head.seconds).arg(time));
    printField(LogFormat::paddingOffset, QStringLiteral("microseconds %1").arg(head.microseconds));
    printField(LogFormat::eventIdOffset, QStringLiteral("padding"));
    const QString name = catalogue.events.value(uint(head.eventId)).name;
    printField(LogFormat::valuesOffset,
               QStringLiteral("event id %1: %2").arg(head.eventId).arg(name));
}

void RecordPrinter::printValue(const SystemeventArgument &argument)
{
    const qint64 begin = input.position();
    const StoredValue value = LogFormat::readValue(input, argument.type);
    const qint64 end = input.position();
    const QString type = typeName(value.type);
    if (argument.type == ArgumentType::Variant) {
        printField(begin + qint64(sizeof(qint16)),
                   QStringLiteral("%1, variant: type code %2, %3")
                       .arg(argument.name)
                       .arg(value.inVariant ? value.type : int(value.integer))
                       .arg(typeName(value.inVariant ? value.type : int(value.integer))));
    }
    if (value.type == ArgumentType::String || value.type == ArgumentType::ByteArray) {
        printField(end - qint64(value.bytes.size()),
                   QStringLiteral("%1, %2: %3 bytes of UTF-8")
                       .arg(argument.name, type)
                       .arg(value.bytes.size()));
        printField(end, valueText(value, argument.enumName));
    } else {
        const QString kind
            = value.type == ArgumentType::Enum ? type + QLatin1Char(' ') + argument.enumName : type;
        printField(end,
                   QStringLiteral("%1, %2: %3")
                       .arg(argument.name, kind, valueText(value, argument.enumName)));
    }
}

QString RecordPrinter::valueText(const StoredValue &value, const QString &enumName) const
{
    switch (ArgumentType::Code(value.type)) {
    case ArgumentType::Bool:
        return value.integer != 0 ? QStringLiteral("true") : QStringLiteral("false");
    case ArgumentType::Byte:
    case ArgumentType::Int16:
    case ArgumentType::Int32:
    case ArgumentType::Int64:
        return QString::number(value.integer);
    case ArgumentType::UInt64:
        return QString::number(quint64(value.integer));
    case ArgumentType::Float:
    case ArgumentType::Double:
        return QString::number(value.real);
    case ArgumentType::String:
    case ArgumentType::ByteArray:
        return QStringLiteral("\"%1\"").arg(
            QString::fromUtf8(value.bytes.data(), QString::size_type(value.bytes.size())));
    case ArgumentType::Enum:
        return QStringLiteral("%1, %2")
            .arg(value.integer)
            .arg(catalogue.enumText(enumName, int(value.integer)));
    case ArgumentType::Variant:
    case ArgumentType::Unknown:
        break;
    }
    return QStringLiteral("not stored");
}

void RecordPrinter::printTail()
{
    const qint64 trailer = input.size() - LogFormat::trailerSize;
    printField(trailer, QStringLiteral("end mark"));
    input.seek(trailer);
    const auto length = LogFormat::readNumber<quint16>(input);
    printField(input.size(), QStringLiteral("trailer: %1 bytes stand before it").arg(length));
}

void RecordPrinter::printField(qint64 end, const QString &meaning)
{
    QString text = meaning;
    while (printed < end) {
        const qint64 size = std::min(bytesPerLine, end - printed);
        printLine(printed, bytes.mid(int(printed), int(size)), text);
        printed += size;
        text.clear(); // a long field goes on below without it
    }
}

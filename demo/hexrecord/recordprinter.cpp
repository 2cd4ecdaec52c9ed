// SPDX-License-Identifier: Apache-2.0
#include "recordprinter.h"

#include "binlog/logformat.h"

#include <QDateTime>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace
{

constexpr qint64 bytesPerLine = 8;

QString typeName(int code)
{
    for (const char *name : {"byte", "bool", "int16", "int32", "int64", "uint64", "float", "double",
                             "string", "bytearray", "variant", "enum"}) {
        if (typeFromName(QLatin1String(name)) == code) {
            return QLatin1String(name);
        }
    }
    return QStringLiteral("unknown");
}

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
{
    input.setBuffer(&bytes);
    (void)input.open(QIODevice::ReadOnly); // a buffer always opens for reading
}

bool RecordPrinter::print()
{
    if (bytes.size() < LogFormat::valuesOffset) {
        return false;
    }
    printHead();
    const auto event = catalogue.events.constFind(uint(eventId));
    if (event == catalogue.events.constEnd()) {
        return false;
    }
    printValues(*event);
    return printTail();
}

template <typename Number>
Number RecordPrinter::number()
{
    Number value{};
    LogFormat::read(input, value);
    return value;
}

void RecordPrinter::printHead()
{
    printField(QStringLiteral("log number %1").arg(number<quint64>()));

    const auto seconds = number<quint64>();
    const QString time
        = QDateTime::fromMSecsSinceEpoch(qint64(seconds) * 1000, Qt::UTC).toString(Qt::ISODate);
    printField(QStringLiteral("seconds %1: %2").arg(seconds).arg(time));
    printField(QStringLiteral("microseconds %1").arg(number<quint32>()));
    (void)number<quint32>();
    printField(QStringLiteral("padding"));

    eventId = number<qint32>();
    const QString name = catalogue.events.value(uint(eventId)).name;
    printField(QStringLiteral("event id %1: %2").arg(eventId).arg(name));
}

void RecordPrinter::printValues(const SystemeventDescription &event)
{
    printText(QStringLiteral("path"));
    for (const SystemeventArgument &argument : event.arguments) {
        printValue(argument.name, argument.type, argument.enumName);
    }
}

void RecordPrinter::printValue(const QString &name, int type, const QString &enumName)
{
    switch (type) {
    case ArgumentType::String:
        printText(name);
        break;
    case ArgumentType::Variant: {
        const int wrapped = number<qint16>();
        printField(QStringLiteral("%1, variant: type code %2, %3")
                       .arg(name)
                       .arg(wrapped)
                       .arg(typeName(wrapped)));
        printValue(name, wrapped, {});
        break;
    }
    case ArgumentType::Enum: {
        const int value = number<quint8>();
        const QString text = catalogue.enumText(enumName, value);
        printField(QStringLiteral("%1, enum %2: %3, %4").arg(name, enumName).arg(value).arg(text));
        break;
    }
    default:
        const QString text = plainValue(type);
        printField(QStringLiteral("%1, %2: %3").arg(name, typeName(type), text));
    }
}

//! The types that a value on the bus can be stored as; another one consumes nothing.
QString RecordPrinter::plainValue(int type)
{
    switch (type) {
    case ArgumentType::Bool:
        return number<quint8>() != 0 ? QStringLiteral("true") : QStringLiteral("false");
    case ArgumentType::Int32:
        return QString::number(number<qint32>());
    case ArgumentType::Int64:
        return QString::number(number<qint64>());
    case ArgumentType::Double:
        return QString::number(number<double>());
    default:
        return QStringLiteral("not stored");
    }
}

void RecordPrinter::printText(const QString &name)
{
    const int length = number<quint16>();
    printField(QStringLiteral("%1, string: %2 bytes of UTF-8").arg(name).arg(length));
    const QByteArray text = input.read(length);
    printField(QStringLiteral("\"%1\"").arg(QString::fromUtf8(text)));
}

bool RecordPrinter::printTail()
{
    const char endMark = number<char>();
    printField(QStringLiteral("end mark"));
    const qint64 length = number<quint16>();
    printField(QStringLiteral("trailer: %1 bytes stand before it").arg(length));
    return endMark == LogFormat::endMark && input.atEnd()
        && length == bytes.size() - LogFormat::trailerSize;
}

void RecordPrinter::printField(const QString &meaning)
{
    QString text = meaning;
    while (printed < input.pos()) {
        const qint64 size = std::min(bytesPerLine, input.pos() - printed);
        printLine(printed, bytes.mid(int(printed), int(size)), text);
        printed += size;
        text.clear(); // a long field goes on below without it
    }
}

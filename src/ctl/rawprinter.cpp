// SPDX-License-Identifier: Apache-2.0
#include "ctl/rawprinter.h"

#include "ctl/eventkinds.h"
#include "ctl/jsonobject.h"
#include "ctl/messages.h"
#include "ctl/timetext.h"
#include "logformat/logformat.h"
#include "rendering/utf8text.h"

#include <algorithm>

namespace
{

constexpr qint64 bytesPerLine = 8;

std::string printable(const QString &text)
{
    std::string shown;
    Messages::appendPrintable(shown, text.toStdString());
    return shown;
}

std::string nameOf(int typeCode)
{
    return typeName(typeCode).data();
}

std::string placeOf(const Archive::Place &place)
{
    return LogFormat::fileName(place.file).toStdString() + ", bytes " + std::to_string(place.offset)
        + " to " + std::to_string(place.end() - 1);
}

} // namespace

//! An empty line between two.
void RawPrinter::separate()
{
    out.write(isFirst ? "" : "\n");
    isFirst = false;
}

void RawPrinter::record(const RecordView &record)
{
    separate();
    std::string line = "offset  bytes                    meaning (";
    line += record.isStored() ? placeOf(record.place) : "as it would be stored";
    if (record.state != Archive::State::Whole || !record.liveReason.empty()) {
        line += ", ";
        line += record.stateName();
    }
    if (record.state == Archive::State::Damaged) {
        line += std::string(": ") + Archive::faultText(record.fault).data();
    } else if (!record.liveReason.empty()) {
        line += ": ";
        Messages::appendPrintable(line, record.liveReason);
    }
    out.write(line + ")\n");
    bytes = record.bytes;
    printed = 0;
    printHead(record);
    printValues(record);
}

void RawPrinter::printHead(const RecordView &record)
{
    const LogFormat::RecordHead &head = record.head;
    printField(LogFormat::secondsOffset, "log number " + std::to_string(head.logNr));
    std::string time;
    if (appendTime(time, head.seconds, 0)) {
        time.resize(time.find('.'));
        time = ": " + time + 'Z';
    }
    printField(LogFormat::microsecondsOffset, "seconds " + std::to_string(head.seconds) + time);
    printField(LogFormat::paddingOffset, "microseconds " + std::to_string(head.microseconds));
    printField(LogFormat::eventIdOffset, "padding");
    printField(LogFormat::valuesOffset,
               "event id " + std::to_string(head.eventId)
                   + (record.kind ? ": " + printable(record.kind->event->name)
                                  : ", which the catalogue does not know"));
}

//! Up to the record's end; what is not declared, too.
void RawPrinter::printValues(const RecordView &record)
{
    const auto size = qint64(bytes.size());
    const qint64 trailer = std::max<qint64>(size - LogFormat::trailerSize, printed);
    const qint64 mark = std::max<qint64>(trailer - 1, printed);
    ByteSource in(bytes.substr(0, size_t(mark)));
    in.seek(printed);
    if (!record.path.empty() || record.fault == Archive::Fault::None) {
        printValue({QStringLiteral("path"), ArgumentType::String}, in);
        if (record.kind) {
            for (const SystemeventArgument &argument : record.kind->event->arguments) {
                printValue(argument, in);
            }
        }
    }
    if (record.fault == Archive::Fault::Torn) {
        printField(size, "what there is of the rest");
        return;
    }
    printField(mark, record.kind ? "more than is declared" : "values");
    printField(trailer, "end mark");
    ByteSource tail(bytes);
    tail.seek(trailer);
    printField(size,
               "trailer: " + std::to_string(LogFormat::readNumber<quint16>(tail))
                   + " bytes stand before it");
}

void RawPrinter::printValue(const SystemeventArgument &argument, ByteSource &in)
{
    const qint64 begin = in.position();
    const StoredValue value = LogFormat::readValue(in, argument.type);
    const qint64 end = in.position();
    const std::string name = printable(argument.name);
    const std::string type = nameOf(value.type);
    if (argument.type == ArgumentType::Variant) {
        const int code = value.inVariant ? value.type : int(value.integer);
        printField(std::min(begin + qint64(sizeof(qint16)), end),
                   name + ", variant: type code " + std::to_string(code) + ", " + nameOf(code));
    }
    if (!value.isWhole()) {
        printField(end, name + ", " + type + ": not stored, or not all of it");
    } else if (value.type == ArgumentType::String || value.type == ArgumentType::ByteArray) {
        printField(end - qint64(value.bytes.size()),
                   name + ", " + type + ": " + std::to_string(value.bytes.size())
                       + " bytes of UTF-8");
        printField(end, valueText(value, argument.enumName));
    } else {
        const std::string kind
            = value.type == ArgumentType::Enum ? type + ' ' + printable(argument.enumName) : type;
        printField(end, name + ", " + kind + ": " + valueText(value, argument.enumName));
    }
}

std::string RawPrinter::valueText(const StoredValue &value, const QString &enumName) const
{
    std::string text;
    switch (ArgumentType::Code(value.type)) {
    case ArgumentType::Bool:
        return value.integer != 0 ? "true" : "false";
    case ArgumentType::Byte:
    case ArgumentType::Int16:
    case ArgumentType::Int32:
    case ArgumentType::Int64:
        return std::to_string(value.integer);
    case ArgumentType::UInt64:
        return std::to_string(quint64(value.integer));
    case ArgumentType::Float:
    case ArgumentType::Double:
        return QString::number(value.real).toStdString();
    case ArgumentType::String:
    case ArgumentType::ByteArray:
        text = '"';
        Messages::appendPrintable(text, value.bytes);
        return text + '"';
    case ArgumentType::Enum:
        return std::to_string(value.integer) + ", "
            + printable(catalogue->enumText(enumName, int(value.integer)));
    case ArgumentType::Variant:
    case ArgumentType::Unknown:
        break;
    }
    return "not stored";
}

void RawPrinter::printField(qint64 end, const std::string &meaning)
{
    end = std::min(end, qint64(bytes.size()));
    for (bool isNamed = false; printed < end; isNamed = true) {
        const qint64 size = std::min(bytesPerLine, end - printed);
        std::string line = std::to_string(printed);
        line.insert(0, line.size() < 6 ? 6 - line.size() : 0, ' ');
        line += ' ';
        for (const char c : bytes.substr(size_t(printed), size_t(size))) {
            line += ' ';
            JsonObject::appendHex(line, {&c, 1});
        }
        if (!isNamed) { // a long field goes on below without it
            line.append(size_t(3 * (bytesPerLine - size)) + 2, ' ');
            line += meaning;
        }
        out.write(line + '\n');
        printed += size;
    }
}

void RawPrinter::lost(const Archive::Place &place, Archive::Fault reason)
{
    separate();
    out.write("lost: " + placeOf(place) + ": " + Archive::faultText(reason).data() + '\n');
}

void RawPrinter::missing(const Archive::NumberRange &numbers)
{
    separate();
    out.write("missing: numbers " + std::to_string(numbers.first) + " to "
              + std::to_string(numbers.last) + '\n');
}

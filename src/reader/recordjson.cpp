// SPDX-License-Identifier: Apache-2.0
#include "reader/recordjson.h"

#include "binlog/logformat.h"
#include "catalog/systemeventcatalogue.h"
#include "catalog/utf8text.h"
#include "devicelib/jsonutil.h"
#include "reader/logfilecursor.h"

#include <string_view>
#include <utility>

namespace
{

constexpr std::string_view readError = "readerror";

struct Bytes {
    std::string_view content; //!< valid until the next reading
    bool complete = false;
};

//! A value with its length in front; incomplete where the file ends before it does.
Bytes readSized(LogFileCursor &file)
{
    quint16 length = 0;
    if (LogFormat::read(file, length) < qint64(sizeof length)) {
        return {};
    }
    const std::string_view content = file.take(length);
    return {content, content.size() == length};
}

std::string_view upToZeroByte(std::string_view bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

std::string_view readString(LogFileCursor &file)
{
    const Bytes bytes = readSized(file);
    return bytes.complete ? bytes.content : readError;
}

//! What the file does not hold of a number counts as zero.
template <typename Number>
Number readNumber(LogFileCursor &file)
{
    Number value{};
    LogFormat::read(file, value);
    return value;
}

//! Substitutes a value of one of the codes Byte to ByteArray; false for another code.
template <typename Text>
bool substitutePlainValue(Text &text, int type, LogFileCursor &file)
{
    switch (type) {
    case ArgumentType::Byte:
        text.substitute(QString(QLatin1Char(readNumber<char>(file))));
        return true;
    case ArgumentType::Bool:
        text.substitute(qlonglong(readNumber<quint8>(file) != 0 ? 1 : 0));
        return true;
    case ArgumentType::Int16:
        text.substitute(qlonglong(readNumber<qint16>(file)));
        return true;
    case ArgumentType::Int32:
        text.substitute(qlonglong(readNumber<qint32>(file)));
        return true;
    case ArgumentType::Int64:
        text.substitute(qlonglong(readNumber<qint64>(file)));
        return true;
    case ArgumentType::UInt64:
        text.substitute(qulonglong(readNumber<quint64>(file)));
        return true;
    case ArgumentType::Float:
        text.substitute(double(readNumber<float>(file)));
        return true;
    case ArgumentType::Double:
        text.substitute(readNumber<double>(file));
        return true;
    case ArgumentType::String:
        text.substitute(readString(file));
        return true;
    case ArgumentType::ByteArray:
        text.substitute(upToZeroByte(readString(file)));
        return true;
    default:
        return false;
    }
}

template <typename Text>
void substituteVariant(Text &text, LogFileCursor &file)
{
    qint16 type = 0;
    if (LogFormat::read(file, type) < qint64(sizeof type)) {
        return;
    }
    if (type == ArgumentType::Unknown) {
        text.substitute(
            std::string_view("type: \"UNKNOWN\", more errors in this logentry possible"));
    } else if (!substitutePlainValue(text, type, file)) {
        text.substitute(std::string_view("unknown type, expect more errors in this entry!"));
    }
}

template <typename Text>
void substituteEnum(Text &text, const QString &enumName, const SystemeventCatalogue &catalogue,
                    LogFileCursor &file)
{
    quint8 value = 0;
    if (LogFormat::read(file, value) < 1) {
        text.substitute(readError);
    } else {
        text.substitute(catalogue.enumText(enumName, value));
    }
}

//! Substitutes the values of all declared arguments, read from the cursor's position on.
template <typename Text>
void substituteArguments(Text &text, const QList<SystemeventArgument> &arguments,
                         const SystemeventCatalogue &catalogue, LogFileCursor &file)
{
    for (const SystemeventArgument &argument : arguments) {
        switch (argument.type) {
        case ArgumentType::Unknown:
            text.substitute(std::string_view("unknown argument type! further errors ahead!"));
            break;
        case ArgumentType::Variant:
            substituteVariant(text, file);
            break;
        case ArgumentType::Enum:
            substituteEnum(text, argument.enumName, catalogue, file);
            break;
        default:
            // Another code reads nothing and leaves its placeholder to the next argument.
            (void)substitutePlainValue(text, argument.type, file);
        }
    }
}

} // namespace

RecordJson::RecordJson(const SystemeventCatalogue *systemevents, QString language)
    : catalogue(systemevents)
    , lang(std::move(language))
{
}

const RecordJson::EventKind *RecordJson::eventKind(int eventId)
{
    const auto known = eventKinds.find(eventId);
    if (known != eventKinds.end()) {
        return &known->second;
    }
    const auto event = catalogue->events.constFind(uint(eventId));
    if (event == catalogue->events.constEnd()) {
        return nullptr;
    }
    // Kept: level and path stand as they are; only the message is escaped.
    std::string beforePath;
    Utf8Text::append(beforePath, eventId);
    beforePath += ",\"loglevel\":\"";
    Utf8Text::append(beforePath, event->logLevelName);
    beforePath += "\",\"path\":\"";
    EventKind kind{&*event, beforePath, EventTemplate(event->description(lang))};
    return &eventKinds.emplace(eventId, std::move(kind)).first->second;
}

void RecordJson::append(std::string &out, LogFileCursor &file, qint64 position)
{
    LogFormat::seek(file, position + LogFormat::logNrOffset);
    const auto storedLogNr = readNumber<quint64>(file);

    LogFormat::seek(file, position + LogFormat::timestampOffset);
    std::array<char, LogFormat::timestampSize> timestamp{};
    file.read(timestamp.data(), LogFormat::timestampSize);
    const auto seconds = qFromLittleEndian<quint64>(timestamp.data());
    const auto microseconds = qFromLittleEndian<quint32>(timestamp.data() + sizeof seconds);

    LogFormat::seek(file, position + LogFormat::eventIdOffset);
    const auto eventId = readNumber<qint32>(file);
    LogFormat::seek(file, position + LogFormat::valuesOffset);

    out += "{\"eventnr\":";
    Utf8Text::append(out, storedLogNr);
    out += ",\"secs\":\"";
    Utf8Text::append(out, seconds);
    out += '.';
    // Kept: microseconds are written without leading zeros, so that 5 of them
    // and half a second look the same.
    Utf8Text::append(out, microseconds);
    out += "\",\"eventtype\":";
    if (const EventKind *const kind = eventKind(eventId)) {
        out += kind->beforePath;
        appendPath(out, file);
        out += "\",\"msg\":\"";
        const size_t messageBegin = out.size();
        renderArguments(out, *kind, file);
        zib::jsonUtil::escapeFrom(out, messageBegin);
        out += "\"}";
    } else {
        Utf8Text::append(out, eventId);
        out += ",\"error\":\"Lookup of typeid ";
        Utf8Text::append(out, eventId);
        out += " failed.\"}";
    }
}

void RecordJson::appendPath(std::string &out, LogFileCursor &file) const
{
    Utf8Text::appendLatin1(out, upToZeroByte(file.take(readNumber<quint16>(file))));
}

void RecordJson::renderArguments(std::string &out, const EventKind &kind, LogFileCursor &file)
{
    const qint64 begin = file.position();
    values.clear();
    substituteArguments(values, kind.event->arguments, *catalogue, file);
    if (!kind.message.render(values, out)) {
        file.seek(begin);
        EventText text(kind.message.text(), kind.message.plainWork(values) + spareWork, &workLeft);
        substituteArguments(text, kind.event->arguments, *catalogue, file);
        Utf8Text::append(out, text.text());
    }
}

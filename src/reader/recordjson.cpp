// SPDX-License-Identifier: Apache-2.0
#include "reader/recordjson.h"

#include "catalog/systemeventcatalogue.h"
#include "logformat/logformat.h"
#include "logformat/storedvalue.h"
#include "reader/logfilecursor.h"
#include "rendering/jsonutil.h"
#include "rendering/utf8text.h"

#include <string_view>
#include <utility>

namespace
{

constexpr std::string_view readError = "readerror";

std::string_view upToZeroByte(std::string_view bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

//! Substitutes what stands for a variant whose content cannot be read.
template <typename Text>
void substituteUnreadable(Text &text, const StoredValue &variant)
{
    if (variant.state == StoredValue::State::TooShort) {
        return;
    }
    text.substitute(
        variant.integer == ArgumentType::Unknown
            ? std::string_view("type: \"UNKNOWN\", more errors in this logentry possible")
            : std::string_view("unknown type, expect more errors in this entry!"));
}

//! Substitutes a value of an argument.
template <typename Text>
void substitute(Text &text, const StoredValue &value, const SystemeventArgument &argument,
                const SystemeventCatalogue &catalogue)
{
    switch (ArgumentType::Code(value.type)) {
    case ArgumentType::Byte:
        text.substitute(QString(QLatin1Char(char(value.integer))));
        return;
    case ArgumentType::Bool:
    case ArgumentType::Int16:
    case ArgumentType::Int32:
    case ArgumentType::Int64:
        text.substitute(qlonglong(value.integer));
        return;
    case ArgumentType::UInt64:
        text.substitute(qulonglong(value.integer));
        return;
    case ArgumentType::Float:
    case ArgumentType::Double:
        text.substitute(value.real);
        return;
    case ArgumentType::String:
        text.substitute(value.isWhole() ? value.bytes : readError);
        return;
    case ArgumentType::ByteArray:
        text.substitute(value.isWhole() ? upToZeroByte(value.bytes) : readError);
        return;
    case ArgumentType::Variant:
        substituteUnreadable(text, value);
        return;
    case ArgumentType::Enum:
        if (value.isWhole()) {
            text.substitute(catalogue.enumText(argument.enumName, int(value.integer)));
        } else {
            text.substitute(readError);
        }
        return;
    case ArgumentType::Unknown:
        text.substitute(std::string_view("unknown argument type! further errors ahead!"));
        return;
    }
    // Another code has read nothing and leaves its placeholder to the next argument.
}

//! Substitutes the values of all declared arguments, read from the cursor's position on.
template <typename Text>
void substituteArguments(Text &text, const QList<SystemeventArgument> &arguments,
                         const SystemeventCatalogue &catalogue, LogFileCursor &file)
{
    for (const SystemeventArgument &argument : arguments) {
        substitute(text, LogFormat::readValue(file, argument.type), argument, catalogue);
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
    const LogFormat::RecordHead head = LogFormat::readHead(file, position);

    out += "{\"eventnr\":";
    Utf8Text::append(out, head.logNr);
    out += ",\"secs\":\"";
    Utf8Text::append(out, head.seconds);
    out += '.';
    // Kept: microseconds are written without leading zeros, so that 5 of them
    // and half a second look the same.
    Utf8Text::append(out, head.microseconds);
    out += "\",\"eventtype\":";
    if (const EventKind *const kind = eventKind(head.eventId)) {
        out += kind->beforePath;
        appendPath(out, file);
        out += "\",\"msg\":\"";
        const size_t messageBegin = out.size();
        renderArguments(out, *kind, file);
        jsonUtil::escape(out, messageBegin);
        out += "\"}";
    } else {
        Utf8Text::append(out, head.eventId);
        out += ",\"error\":\"Lookup of typeid ";
        Utf8Text::append(out, head.eventId);
        out += " failed.\"}";
    }
}

void RecordJson::appendPath(std::string &out, LogFileCursor &file) const
{
    Utf8Text::appendLatin1(out, upToZeroByte(file.take(LogFormat::readNumber<quint16>(file))));
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

// SPDX-License-Identifier: Apache-2.0
#include "ctl/recordobject.h"

#include "ctl/jsonobject.h"
#include "ctl/timetext.h"
#include "logformat/bytesource.h"
#include "logformat/storedvalue.h"

#include <charconv>
#include <cmath>
#include <iterator>

namespace
{

//! JSON has no such numbers.
const char *nameOfNoNumber(double value)
{
    if (std::isnan(value)) {
        return "nan";
    }
    return value < 0 ? "-inf" : "inf";
}

//! As short as it can be without changing the value.
template <typename Real>
void addReal(JsonObject &object, Real value)
{
    if (!std::isfinite(value)) {
        object.add("value", std::string_view(nameOfNoNumber(double(value))));
        return;
    }
    char text[32];
    const auto end = std::to_chars(std::begin(text), std::end(text), value);
    object.addKey("value").append(text, end.ptr);
}

void addContent(JsonObject &object, const StoredValue &value)
{
    switch (ArgumentType::Code(value.type)) {
    case ArgumentType::Bool:
        object.addFlag("value", value.integer != 0);
        return;
    case ArgumentType::Byte:
    case ArgumentType::Enum:
    case ArgumentType::Int16:
    case ArgumentType::Int32:
        object.addNumber("value", value.integer);
        return;
    case ArgumentType::Int64:
        object.addLarge("value", value.integer);
        return;
    case ArgumentType::UInt64:
        object.addLarge("value", quint64(value.integer));
        return;
    case ArgumentType::Float:
        addReal(object, float(value.real));
        return;
    case ArgumentType::Double:
        addReal(object, value.real);
        return;
    case ArgumentType::String:
    case ArgumentType::ByteArray:
        object.add("value", value.bytes);
        return;
    case ArgumentType::Variant:
    case ArgumentType::Unknown:
        break;
    }
    object.addNull("value");
}

void appendValue(std::string &out, const SystemeventArgument &argument, const StoredValue &value,
                 const SystemeventCatalogue &catalogue)
{
    JsonObject object(out);
    object.add("name", argument.name);
    object.add("type", typeName(argument.type));
    if (value.inVariant) {
        object.add("contentType", typeName(value.type));
    }
    if (!value.isWhole()) {
        object.addNull("value");
    } else {
        addContent(object, value);
        if (argument.type == ArgumentType::Enum) {
            object.add("text", catalogue.enumText(argument.enumName, int(value.integer)));
        }
    }
    object.end();
}

void addPlace(JsonObject &object, const Archive::Place &place)
{
    object.add("file", LogFormat::fileName(place.file));
    object.addNumber("offset", place.offset).addNumber("length", place.length);
}

} // namespace

void RecordObject::append(std::string &out, const Archive::Place &place,
                          const Archive::Record &record, const Archive::FileBytes &file)
{
    JsonObject object(out);
    object.addLarge("number", record.head.logNr);
    std::string time;
    if (appendTime(time, record.head.seconds, record.head.microseconds)) {
        object.add("time", std::string_view(time));
    }
    object.addNumber("event", record.head.eventId);
    const EventKind *const kind = kinds.find(record.head.eventId);
    if (kind) {
        out += ',';
        out += kind->members;
    }
    object.add("path", record.path);
    if (kind) {
        message.clear();
        kinds.appendMessage(message, *kind, place, record, file);
        object.add("message", std::string_view(message));
        appendValues(object.addKey("values"), *kind->event, record.values);
    } else {
        object.addHex("bytes", record.values);
    }
    addPlace(object, place);
    object.add("state", Archive::stateName(record.state));
    if (record.state == Archive::State::Damaged) {
        object.add("reason", Archive::faultText(record.fault));
    }
    object.end();
}

void RecordObject::appendValues(std::string &out, const SystemeventDescription &event,
                                std::string_view bytes) const
{
    ByteSource in(bytes);
    out += '[';
    const char *separator = "";
    for (const SystemeventArgument &argument : event.arguments) {
        out += separator;
        separator = ",";
        appendValue(out, argument, LogFormat::readValue(in, argument.type), *catalogue);
    }
    out += ']';
    if (in.position() < in.size()) {
        // What the sender had in surplus, or has sent under other types than declared.
        out += ",\"surplus\":\"";
        JsonObject::appendHex(out, bytes.substr(size_t(in.position())));
        out += '"';
    }
}

void RecordObject::appendLost(std::string &out, const Archive::Place &place, Archive::Fault reason)
{
    JsonObject object(out);
    addPlace(object, place);
    object.add("state", std::string_view("lost"));
    object.add("reason", Archive::faultText(reason));
    object.end();
}

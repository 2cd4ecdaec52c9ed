// SPDX-License-Identifier: Apache-2.0
#include "ctl/jsonprinter.h"

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
    object.addKey("value").append(text, size_t(end.ptr - text));
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

void appendValue(std::string &out, const ArgumentKind &argument, const StoredValue &value)
{
    JsonObject object(out, argument.members);
    if (value.inVariant) {
        object.add("contentType", typeName(value.type));
    }
    if (!value.isWhole()) {
        object.addNull("value");
    } else {
        addContent(object, value);
        if (argument.type == ArgumentType::Enum) {
            object.add("text", argument.itemText(int(value.integer)));
        }
    }
    object.end();
}

void appendValues(std::string &out, const EventKind &kind, std::string_view bytes)
{
    ByteSource in(bytes);
    out += '[';
    const char *separator = "";
    for (const ArgumentKind &argument : kind.arguments) {
        out += separator;
        separator = ",";
        appendValue(out, argument, LogFormat::readValue(in, argument.type));
    }
    out += ']';
    if (in.position() < in.size()) {
        // What the sender had in surplus, or has sent under other types than declared.
        out += ",\"surplus\":\"";
        JsonObject::appendHex(out, bytes.substr(size_t(in.position())));
        out += '"';
    }
}

} // namespace

void JsonPrinter::record(const RecordView &record)
{
    JsonObject object(out.text());
    if (record.isStored()) {
        object.addLarge("number", record.head.logNr);
    }
    const size_t withoutTime = out.text().size();
    object.addKey("time") += '"';
    if (times.append(out.text(), record.head.seconds, record.head.microseconds)) {
        out.text() += '"';
    } else {
        out.text().resize(withoutTime);
    }
    object.addNumber("event", record.head.eventId);
    if (record.kind) {
        out.text() += ',';
        out.text() += record.kind->members;
    }
    object.add("path", record.path);
    if (record.kind) {
        object.add("message", record.message);
        appendValues(object.addKey("values"), *record.kind, record.values);
    } else {
        object.addHex("bytes", record.values);
    }
    if (record.isStored()) {
        addPlace(object, record.place);
    }
    object.add("state", record.stateName());
    if (record.state == Archive::State::Damaged) {
        object.add("reason", Archive::faultText(record.fault));
    } else if (!record.liveReason.empty()) {
        object.add("reason", record.liveReason);
    }
    object.end();
    out.text() += '\n';
    out.wrote();
}

void JsonPrinter::addPlace(JsonObject &object, const Archive::Place &place)
{
    if (place.file != file) {
        file = place.file;
        fileName.clear();
        JsonObject::appendString(fileName, LogFormat::fileName(file).toStdString());
    }
    object.addKey("file") += fileName;
    object.addNumber("offset", place.offset).addNumber("length", place.length);
}

void JsonPrinter::lost(const Archive::Place &place, Archive::Fault reason)
{
    JsonObject object(out.text());
    addPlace(object, place);
    object.add("state", std::string_view("lost"));
    object.add("reason", Archive::faultText(reason));
    object.end();
    out.text() += '\n';
    out.wrote();
}

//! Programs see it by the numbers.
void JsonPrinter::missing(const Archive::NumberRange & /*numbers*/)
{
}

// SPDX-License-Identifier: Apache-2.0
#include "ctl/report/reportrecords.h"

#include "ctl/jsonobject.h"
#include "ctl/recordsource.h"
#include "logformat/bytesource.h"
#include "logformat/storedvalue.h"
#include "rendering/storedmessage.h"
#include "rendering/utf8text.h"

#include <charconv>
#include <cmath>
#include <iterator>
#include <utility>

namespace
{

// A piece ends behind either.
constexpr qint64 mostRows = 8192;
constexpr int mostBytes = 4194304;
//! The largest number that a script holds with all below it.
constexpr quint64 largestNumber = (quint64(1) << 53) - 1;
// Of what repeats so much is remembered.
constexpr size_t mostValues = 262144;
constexpr size_t mostPaths = 65536;
constexpr size_t longestRemembered = 128;

template <typename Real>
void appendReal(std::string &out, Real value)
{
    if (std::isnan(value)) {
        out += "nan"; // without a sign
        return;
    }
    char text[32];
    const auto end = std::to_chars(std::begin(text), std::end(text), value);
    out.append(text, end.ptr);
}

//! Appends a value that is whole, with all its digits.
void appendContent(std::string &out, const StoredValue &value)
{
    switch (ArgumentType::Code(value.type)) {
    case ArgumentType::Bool:
        out += value.integer != 0 ? "true" : "false";
        return;
    case ArgumentType::Byte:
    case ArgumentType::Enum:
    case ArgumentType::Int16:
    case ArgumentType::Int32:
    case ArgumentType::Int64:
        Utf8Text::append(out, value.integer);
        return;
    case ArgumentType::UInt64:
        Utf8Text::append(out, quint64(value.integer));
        return;
    case ArgumentType::Float:
        appendReal(out, float(value.real));
        return;
    case ArgumentType::Double:
        appendReal(out, value.real);
        return;
    case ArgumentType::String:
    case ArgumentType::ByteArray:
        out += value.bytes;
        return;
    case ArgumentType::Variant:
    case ArgumentType::Unknown:
        return;
    }
}

/*!
 * A value as JSON: a text, where that is also what the message shows; else an array of the
 * text, null for a value that is not whole; what the message shows, null for nothing; and
 * the type, where it came in a variant.
 */
std::string valueEntry(const StoredValue &value, const ValueTexts &shown, int shownIndex)
{
    std::string entry;
    std::string content;
    if (value.isWhole()) {
        appendContent(content, value);
    }
    const bool isShown = shownIndex < shown.count();
    const bool isSame = isShown && value.isWhole() && shown.text(shownIndex) == content;
    if (isSame && !value.inVariant) {
        JsonObject::appendString(entry, content);
        return entry;
    }
    entry = '[';
    if (value.isWhole()) {
        JsonObject::appendString(entry, content);
    } else {
        entry += "null";
    }
    entry += ',';
    if (isShown) {
        JsonObject::appendString(entry, shown.text(shownIndex));
    } else {
        entry += "null";
    }
    if (value.inVariant) {
        entry += ',';
        JsonObject::appendString(entry, typeName(value.type).data());
    }
    entry += ']';
    return entry;
}

void appendTemplate(std::string &out, const EventTemplate &message)
{
    out += '[';
    for (const EventTemplate::Piece &piece : message.pieces()) {
        JsonObject::appendString(out, piece.literal);
        out += ',';
        Utf8Text::append(out, piece.value);
        out += ',';
        JsonObject::appendString(out, piece.name);
        out += ',';
    }
    JsonObject::appendString(out, message.rest());
    out += ']';
}

void appendArguments(std::string &out, const SystemeventDescription &event)
{
    out += '[';
    const char *separator = "";
    for (const SystemeventArgument &argument : event.arguments) {
        out += std::exchange(separator, ",");
        JsonObject object(out);
        object.add("name", argument.name).add("type", typeName(argument.type));
        object.end();
    }
    out += ']';
}

} // namespace

std::string &ReportRecords::Column::next()
{
    if (!json.empty()) {
        json += ',';
    }
    return json;
}

void ReportRecords::Column::add(qint64 number)
{
    Utf8Text::append(next(), number);
}

void ReportRecords::RisingColumn::add(quint64 number)
{
    if (number > largestNumber) {
        std::string &json = column.next();
        json += '"';
        Utf8Text::append(json, number);
        json += '"';
        return;
    }
    column.add(qint64(number) - qint64(std::exchange(last, number)));
}

qint64 ReportRecords::Table::indexOf(const std::string &entry)
{
    const bool isRemembered = entry.size() <= longestRemembered;
    if (isRemembered) {
        const auto found = known.find(entry);
        if (found != known.end()) {
            return found->second;
        }
        if (known.size() >= most) {
            known.clear();
        }
        known.emplace(entry, size);
    }
    added.next() += entry;
    return size++;
}

ReportRecords::ReportRecords(const SystemeventCatalogue *systemevents,
                             const QStringList &languageCodes, ReportPage &reportPage)
    : catalogue(systemevents)
    , languages(languageCodes)
    , page(reportPage)
    , workLeft(size_t(languageCodes.size()), StoredMessage::answerWork)
    , values(mostValues)
    , paths(mostPaths)
{
}

qint64 ReportRecords::kindOf(qint32 eventId)
{
    const auto [known, isNew] = kindIndices.emplace(eventId, qint64(kinds.size()));
    if (!isNew) {
        return known->second;
    }
    Kind kind;
    kind.id = eventId;
    if (catalogue) {
        const auto event = catalogue->events.constFind(uint(eventId));
        if (event != catalogue->events.constEnd()) {
            kind.event = &*event;
            for (const QString &language : languages) {
                kind.templates.emplace_back(event->description(language));
            }
        }
    }
    kinds.push_back(std::move(kind));
    return known->second;
}

void ReportRecords::add(const RecordView &record)
{
    const qint64 index = kindOf(record.head.eventId);
    piece.event.add(index);
    addHead(record);
    const Kind &kind = kinds[size_t(index)];
    if (kind.event) {
        addValues(kind, record);
        addMessages(kind);
    }
    piece.bytes.append(record.bytes.data(), int(record.bytes.size()));
    ++rows;
    if (rows >= mostRows || piece.bytes.size() >= mostBytes) {
        flush();
    }
}

void ReportRecords::addHead(const RecordView &record)
{
    piece.number.add(record.head.logNr);
    piece.seconds.add(record.head.seconds);
    piece.microseconds.add(record.head.microseconds);
    piece.file.add(record.place.file);
    piece.offset.add(quint64(record.place.offset));
    piece.length.add(record.place.length);
    scratch.clear();
    JsonObject::appendString(scratch, record.path);
    piece.path.add(paths.indexOf(scratch));
    if (record.state != Archive::State::Whole) {
        std::string &states = piece.states.next();
        states += '[' + std::to_string(rows) + ",\"" + Archive::stateName(record.state).data();
        states += "\",\"";
        states += record.fault == Archive::Fault::None ? "" : faultText(record.fault).data();
        states += "\"]";
    }
}

void ReportRecords::addValues(const Kind &kind, const RecordView &record)
{
    ByteSource stored(record.values);
    // A message is made of what stands behind the record, too, where its values end early.
    RecordSource behind(record.bytes, record.place.offset, *record.file);
    behind.seek(LogFormat::valuesOffset);
    (void)LogFormat::readValue(behind, ArgumentType::String); // the path
    texts.clear();
    for (const SystemeventArgument &argument : kind.event->arguments) {
        const int shownIndex = texts.count();
        StoredMessage::substitute(texts, LogFormat::readValue(behind, argument.type), argument,
                                  *catalogue);
        const StoredValue value = LogFormat::readValue(stored, argument.type);
        piece.value.add(values.indexOf(valueEntry(value, texts, shownIndex)));
    }
    if (stored.position() < stored.size()) {
        std::string &surplus = piece.surplus.next();
        surplus += '[' + std::to_string(rows) + ",\"";
        JsonObject::appendHex(surplus, record.values.substr(size_t(stored.position())));
        surplus += "\"]";
    }
}

void ReportRecords::addMessages(const Kind &kind)
{
    for (size_t language = 0; language < kind.templates.size(); ++language) {
        const EventTemplate &message = kind.templates[language];
        scratch.clear();
        if (message.render(texts, scratch)) {
            continue;
        }
        message.render(texts, scratch, StoredMessage::spareWork, &workLeft[language]);
        std::string &whole = piece.whole.next();
        whole += '[' + std::to_string(rows) + ',' + std::to_string(language) + ',';
        JsonObject::appendString(whole, scratch);
        whole += ']';
    }
}

void ReportRecords::flush()
{
    if (rows == 0) {
        return;
    }
    const std::pair<JsonObject::Key, const Column *> columns[] = {
        {"values", &values.added},
        {"paths", &paths.added},
        {"number", &piece.number.column},
        {"seconds", &piece.seconds.column},
        {"microseconds", &piece.microseconds},
        {"event", &piece.event},
        {"path", &piece.path},
        {"file", &piece.file},
        {"offset", &piece.offset.column},
        {"length", &piece.length},
        {"value", &piece.value},
        {"states", &piece.states},
        {"surplus", &piece.surplus},
        {"whole", &piece.whole},
    };
    std::string json;
    JsonObject object(json);
    for (const auto &[name, column] : columns) {
        object.addKey(name) += '[';
        json += column->json;
        json += ']';
    }
    object.end();
    page.add("records", QByteArray::fromRawData(json.data(), int(json.size())));
    page.add("bytes", piece.bytes);
    values.added = {};
    paths.added = {};
    piece = {};
    flushed += quint64(std::exchange(rows, 0));
}

void ReportRecords::appendEvents(std::string &out) const
{
    out += '[';
    const char *separator = "";
    for (const Kind &kind : kinds) {
        out += std::exchange(separator, ",");
        JsonObject object(out);
        object.addNumber("id", kind.id);
        if (kind.event) {
            object.add("name", kind.event->name).add("service", kind.event->service);
            object.add("level", kind.event->logLevelName);
            object.addNumber("levelNumber", kind.event->logLevel);
            appendArguments(object.addKey("arguments"), *kind.event);
            object.addKey("texts") += '[';
            const char *comma = "";
            for (const EventTemplate &message : kind.templates) {
                out += std::exchange(comma, ",");
                appendTemplate(out, message);
            }
            out += ']';
        }
        object.end();
    }
    out += ']';
}

// SPDX-License-Identifier: Apache-2.0
#include "reader/recordjson.h"

#include "logformat/logformat.h"
#include "reader/logfilecursor.h"
#include "rendering/jsonutil.h"
#include "rendering/utf8text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>

namespace
{

//! All up to the event id, put together before it is appended: a text checks its room each time.
void appendNumbers(std::string &out, const LogFormat::RecordHead &head)
{
    constexpr int mostDigits = 20;
    std::array<char, 35 + 3 * mostDigits> text{}; // with the words between the numbers
    char *end = text.data();
    const auto put
        = [&end](std::string_view words) { end = std::copy(words.begin(), words.end(), end); };
    const auto putNumber
        = [&end](auto number) { end = std::to_chars(end, end + mostDigits, number).ptr; };
    put("{\"eventnr\":");
    putNumber(head.logNr);
    put(",\"secs\":\"");
    putNumber(head.seconds);
    put(".");
    // Kept: microseconds are written without leading zeros, so that 5 of them
    // and half a second look the same.
    putNumber(head.microseconds);
    put("\",\"eventtype\":");
    out.append(text.data(), size_t(end - text.data()));
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
    EventKind kind{beforePath, StoredMessage(*event, *catalogue, lang)};
    return &eventKinds.emplace(eventId, std::move(kind)).first->second;
}

void RecordJson::append(std::string &out, LogFileCursor &file, qint64 position)
{
    const LogFormat::RecordHead head = LogFormat::readHead(file, position);

    appendNumbers(out, head);
    if (const EventKind *const kind = eventKind(head.eventId)) {
        out += kind->beforePath;
        appendPath(out, file);
        out += "\",\"msg\":\"";
        const size_t messageBegin = out.size();
        kind->message.append(out, file, values, workLeft);
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
    const StoredValue path = LogFormat::readValue(file, ArgumentType::String);
    Utf8Text::appendLatin1(out, Utf8Text::upToZeroByte(path.bytes));
}

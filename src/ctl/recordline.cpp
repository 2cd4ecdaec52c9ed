// SPDX-License-Identifier: Apache-2.0
#include "ctl/recordline.h"

#include "ctl/messages.h"
#include "ctl/timetext.h"
#include "logformat/logformat.h"
#include "rendering/utf8text.h"

namespace
{

void appendPlace(std::string &out, const Archive::Place &place)
{
    Utf8Text::append(out, LogFormat::fileName(place.file));
    out += " from " + std::to_string(place.offset) + " to " + std::to_string(place.end());
}

} // namespace

void RecordLine::append(std::string &out, const Archive::Place &place,
                        const Archive::Record &record, const Archive::FileBytes &file)
{
    Utf8Text::append(out, record.head.logNr);
    out += ' ';
    if (!appendTime(out, record.head.seconds, record.head.microseconds)) {
        out += '-';
    }
    out += ' ';
    const EventKind *const kind = kinds.find(record.head.eventId);
    message.clear();
    if (kind) {
        Messages::appendPrintable(out, kind->event->logLevelName);
        out += ' ';
        Messages::appendPrintable(out, kind->event->name);
        kinds.appendMessage(message, *kind, place, record, file);
    } else {
        out += "- " + std::to_string(record.head.eventId);
    }
    out += ' ';
    Messages::appendPrintable(out, record.path);
    out += ' ';
    Messages::appendPrintable(out, message);
    if (record.state != Archive::State::Whole) {
        out += " [";
        out += Archive::stateName(record.state).data();
        out += ", ";
        appendPlace(out, place);
        out += ']';
    }
    out += '\n';
}

void RecordLine::appendLost(std::string &out, const Archive::Place &place, Archive::Fault reason)
{
    out += "-- lost: ";
    appendPlace(out, place);
    out += ": ";
    out += Archive::faultText(reason).data();
    out += '\n';
}

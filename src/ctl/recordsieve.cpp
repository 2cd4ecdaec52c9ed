// SPDX-License-Identifier: Apache-2.0
#include "ctl/recordsieve.h"

#include <algorithm>
#include <limits>

void RecordSieve::begin()
{
    end();
    last = 0;
    first = 0;
    isLastInTime = selection.takesEveryTime();
}

void RecordSieve::end()
{
    decideLost(std::numeric_limits<quint64>::max(), false);
}

//! What was lost behind the last record, now that what follows is known.
void RecordSieve::decideLost(quint64 numberBehind, bool isBehindInTime)
{
    if (pending.empty()) {
        return;
    }
    if (selection.takesNumbers(std::min(last, numberBehind), numberBehind)
        && (isLastInTime || isBehindInTime)) {
        noticeDamage();
        for (const Lost &each : pending) {
            if (!wholeOnly) {
                lostBetween(each.place, each.reason);
            }
        }
    }
    pending.clear();
}

//! Takes account of a record with a number.
void RecordSieve::follow(quint64 number, const Instant &time)
{
    const bool isInTime = selection.takesTime(time);
    decideLost(number, isInTime);
    if (last != 0 && number > last + 1 && (isLastInTime || isInTime)
        && selection.takesNumbers(last + 1, number - 1)) {
        missing({last + 1, number - 1});
    }
    if (first == 0) {
        first = number;
        timeOfFirst = time;
    }
    last = number;
    isLastInTime = isInTime;
}

void RecordSieve::record(const Archive::Place &place, const Archive::Record &record)
{
    const Instant time{record.head.seconds, record.head.microseconds};
    if (record.state != Archive::State::Damaged || record.fault != Archive::Fault::Head) {
        follow(record.head.logNr, time);
    } else {
        decideLost(last, isLastInTime); // it would come too late
    }
    if (record.state != Archive::State::Whole) {
        if (selection.takesNumbers(record.head.logNr, record.head.logNr)
            && selection.takesTime(time)) {
            noticeDamage();
        }
        if (wholeOnly) {
            return;
        }
    }
    RecordView view = viewOf(place, record);
    view.kind = kinds.find(view.head.eventId);
    const auto text = [this, &view] { return view.message = messageOf(view); };
    if (selection.takes({view.head.logNr, time, view.head.eventId, view.path}, text)) {
        selected(view);
    }
}

std::string_view RecordSieve::messageOf(const RecordView &record)
{
    if (record.message.empty() && record.kind) {
        message.clear();
        kinds.appendMessage(message, *record.kind, record, *file);
        return message;
    }
    return record.message;
}

void RecordSieve::lost(const Archive::Place &place, Archive::Fault reason)
{
    constexpr size_t mostPending = 1024; // in a row with nothing but damaged records between
    if (pending.size() >= mostPending) {
        decideLost(last, false);
    }
    pending.push_back({place, reason});
}

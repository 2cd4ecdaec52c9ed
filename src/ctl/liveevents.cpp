// SPDX-License-Identifier: Apache-2.0
#include "ctl/liveevents.h"

#include "ctl/busname.h"
#include "ctl/language.h"
#include "ctl/livefit.h"
#include "ctl/messages.h"
#include "logformat/encoding.h"

#include <chrono>
#include <string_view>
#include <utility>

namespace
{

constexpr int longestRecord = 65535; // bytes, with the end mark and without the length

LogFormat::RecordHead headOf(int eventId)
{
    using namespace std::chrono;
    constexpr qint64 microsecondsPerSecond = 1000000;
    const qint64 now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    LogFormat::RecordHead head;
    head.seconds = quint64(now / microsecondsPerSecond);
    head.microseconds = quint32(now % microsecondsPerSecond);
    head.eventId = eventId;
    return head;
}

std::string_view view(const QByteArray &text)
{
    return {text.constData(), size_t(text.size())};
}

} // namespace

LiveEvents::LiveEvents(const Plan &plan, const SystemeventCatalogue *systemevents,
                       OutputStream &output)
    : catalogue(systemevents)
    , language(chooseLanguage(plan.output, systemevents))
    , quiet(plan.output.isQuiet)
    , wantsBytes(plan.output.format == Format::Json || plan.output.format == Format::Raw)
    , kinds(systemevents, language)
    , selection(plan.selection, systemevents)
    , printer(makePrinter(plan.output, systemevents, output))
{
}

//! An event's text is taken apart when it comes for the first time.
const EventTemplate &LiveEvents::textOf(const SystemeventDescription &event)
{
    const auto known = texts.find(event.id);
    return known != texts.end()
        ? known->second
        : texts.emplace(event.id, EventTemplate(event.description(language))).first->second;
}

bool LiveEvents::isOne(const BusMessage &message)
{
    if (!message.isSignal(BusName::statusInterface, BusName::statusChange)) {
        return false;
    }
    const bool isHeard = std::string_view(message.signature()) == "iv";
    if (!isHeard) {
        tellUnheard(message);
    }
    return isHeard;
}

void LiveEvents::show(const BusMessage &message)
{
    RecordView record;
    record.head = headOf(message.statusValues(values, mostLiveValues));
    record.path = message.path();
    record.kind = kinds.find(record.head.eventId);
    QList<QVariant> args{QString::fromUtf8(message.path())};
    for (const BusValue &value : values) {
        args.append(outputValue(value));
    }
    std::string text;
    const auto messageText = [&] {
        if (text.empty() && record.kind) {
            appendLiveEvent(text, textOf(*record.kind->event), args);
        }
        return std::string_view(text);
    };
    const Selection::Facts facts{
        0, {record.head.seconds, record.head.microseconds}, record.head.eventId, record.path};
    if (!selection.takes(facts, messageText)) {
        return;
    }
    record.message = messageText();
    const auto recordSize = makeRecord(record, args);
    const QByteArray reason = reasonOf(record.kind, recordSize);
    record.liveState = !record.kind ? "unknown" : reason.isEmpty() ? "whole" : "unfit";
    record.liveReason = view(reason);
    printer->record(record);
    ++shown;
}

//! Why a status change is not read back from the log as it was sent; empty where it is.
QByteArray LiveEvents::reasonOf(const EventKind *kind, qint64 recordSize) const
{
    if (!kind) {
        return QByteArrayLiteral("the catalogue does not know this event");
    }
    const QString flaw = misfit(*kind->event, *catalogue, values);
    if (flaw.isEmpty() && recordSize > longestRecord) {
        return "its record has " + QByteArray::number(recordSize) + " bytes, and the log takes "
            + QByteArray::number(longestRecord) + " at most";
    }
    return flaw.toUtf8();
}

/*!
 * The bytes that the daemon would store, where they are shown. Of a record too long for a
 * log file the beginning. Gives how many it takes in front of its trailer.
 */
qint64 LiveEvents::makeRecord(RecordView &record, const QList<QVariant> &args)
{
    bytes.clear();
    LogFormat::appendLogNr(bytes, record.head.logNr);
    LogFormat::appendTimestamp(bytes, qint64(record.head.seconds),
                               qint32(record.head.microseconds));
    LogFormat::appendEventId(bytes, record.head.eventId);
    (void)LogFormat::appendValue(bytes, args.first());
    const auto valuesBegin = bytes.size();
    for (auto value = args.begin() + 1; value != args.end(); ++value) {
        (void)LogFormat::appendValue(bytes, *value); // some leave nothing
    }
    const qint64 size = bytes.size() + 1; // with the end mark
    if (wantsBytes) {
        bytes.truncate(longestRecord);
        const auto valuesEnd = bytes.size();
        LogFormat::appendTail(bytes, 0);
        record.bytes = view(bytes);
        record.values = record.bytes.substr(size_t(valuesBegin), size_t(valuesEnd - valuesBegin));
    }
    return size;
}

/*!
 * What the daemon does not hear, and so nothing is shown of, but some author waits for. Only
 * the first ones: anybody may send any number of them.
 */
void LiveEvents::tellUnheard(const BusMessage &message)
{
    constexpr int most = 10;
    if (quiet || unheardTold == most) {
        return;
    }
    ++unheardTold;
    Messages::tell(
        QStringLiteral("%1 announces something with the signature \"%2\"; the daemon "
                       "hears \"iv\" alone")
            .arg(QString::fromUtf8(message.path()), QString::fromUtf8(message.signature())));
}

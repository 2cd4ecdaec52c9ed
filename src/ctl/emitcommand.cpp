// SPDX-License-Identifier: Apache-2.0
#include "ctl/emitcommand.h"

#include "ctl/busname.h"
#include "ctl/daemoncalls.h"
#include "ctl/declaredevents.h"
#include "ctl/emittedrecord.h"
#include "ctl/emitvalues.h"
#include "ctl/messages.h"
#include "ctl/source.h"
#include "rendering/utf8text.h"

#include <optional>
#include <vector>

namespace
{

//! Thrown once it is told why nothing is announced, or nothing known of it.
struct Failed {
};

[[noreturn]] void refuse(const QString &reason)
{
    throw WrongUsage{reason.toStdString()};
}

struct Announcement {
    qint32 eventId = 0;
    std::vector<BusValue> values;
    std::optional<int> level; //!< where the catalogue was asked
};

const SystemeventDescription &eventOf(const SystemeventCatalogue &catalogue, const QString &typed)
{
    const std::vector<const SystemeventDescription *> found
        = DeclaredEvents::find(catalogue, typed);
    if (found.empty()) {
        refuse(QStringLiteral("the catalogue does not know the event \"%1\"; an id is announced "
                              "all the same with --type")
                   .arg(typed));
    }
    if (found.size() > 1) {
        refuse(QStringLiteral("several events are called \"%1\"; give an id").arg(typed));
    }
    return *found.front();
}

//! An id alone needs no catalogue.
Announcement byTypes(const EmitChoice &emit, Source &source)
{
    std::optional<qint32> id = DeclaredEvents::idOf(emit.event);
    if (!id) {
        if (!source.openCatalogue()) {
            throw Failed{};
        }
        const SystemeventCatalogue none;
        id = qint32(eventOf(source.catalogue() ? *source.catalogue() : none, emit.event).id);
    }
    const EmitValues::Result made = EmitValues::byTypes(*emit.types, emit.values);
    if (!made.refusal.isEmpty()) {
        refuse(made.refusal);
    }
    return {*id, made.values, std::nullopt};
}

Announcement byDeclaration(const EmitChoice &emit, Source &source)
{
    if (!source.openCatalogue()) {
        throw Failed{};
    }
    const SystemeventCatalogue none;
    const SystemeventCatalogue &catalogue = source.catalogue() ? *source.catalogue() : none;
    const SystemeventDescription &event = eventOf(catalogue, emit.event);
    const EmitValues::Result made = EmitValues::byDeclaration(event, catalogue, emit.values);
    if (!made.refusal.isEmpty()) {
        refuse(QStringLiteral("%1; the event %2 is declared as %3")
                   .arg(made.refusal, QString::number(qint32(event.id)),
                        EmitValues::declaration(event)));
    }
    return {qint32(event.id), made.values, event.logLevel};
}

Announcement announcementOf(const Plan &plan)
{
    if (!EmitValues::isPath(plan.emit.path)) {
        refuse(QStringLiteral("\"%1\" is no path of an object")
                   .arg(QString::fromUtf8(plan.emit.path)));
    }
    Source source(plan.source, plan.output.isQuiet);
    return plan.emit.types ? byTypes(plan.emit, source) : byDeclaration(plan.emit, source);
}

//! Refuses to wait for what the daemon does not store.
void checkIsStored(Bus &bus, std::optional<int> level)
{
    const BusAnswer logLocal = DaemonCalls::get(bus, "logLocal");
    const BusAnswer loglevel = DaemonCalls::get(bus, "loglevel");
    if (logLocal.value && !logLocal.value->value.toBool()) {
        Messages::tell(QStringLiteral("the daemon stores nothing: logLocal is off; nothing is "
                                      "announced"));
        throw Failed{};
    }
    const int dropped = loglevel.value ? loglevel.value->value.toInt() : -1;
    if (dropped >= 0 && level && *level <= dropped) {
        Messages::tell(QStringLiteral("the daemon stores no events up to level %1: loglevel is "
                                      "%1; nothing is announced")
                           .arg(dropped));
        throw Failed{};
    }
}

void send(Bus &bus, const Announcement &change, const QByteArray &path)
{
    if (!bus.announce(path, change.eventId, change.values)) {
        BusAnswer refusal;
        refusal.error = "org.freedesktop.DBus.Error.AccessDenied";
        tellFailure(refusal, QStringLiteral("nothing is announced"), BusName::statusGroup);
        throw Failed{};
    }
}

quint64 sendAndWait(Bus &bus, const Announcement &change, EmittedRecord &record, const Plan &plan)
{
    record.takeBegin();
    send(bus, change, plan.emit.path);
    // The bus keeps the order of what it gets, so the answer comes behind the status change.
    const BusAnswer answer = DaemonCalls::call(bus, "getMaxLogNr");
    if (!answer.isDone()) {
        tellFailure(answer, QStringLiteral("announced, but nobody knows whether it is stored"),
                    BusName::adminGroup);
        throw Failed{};
    }
    record.takeEnd();
    const std::optional<quint64> number = record.waitFor(plan.source.folder);
    if (!number) {
        Messages::tell(QStringLiteral("announced, but %1 seconds later no record of it is in %2; "
                                      "\"systemeventctl settings\" shows what the daemon leaves "
                                      "out")
                           .arg(QString::number(EmittedRecord::patience), plan.source.folder));
        throw Failed{};
    }
    return *number;
}

ExitStatus announce(const Plan &plan, OutputStream &out)
{
    const Announcement change = announcementOf(plan);
    EmittedRecord record(change.eventId, plan.emit.path, change.values);
    if (record.size() > EmittedRecord::largest) {
        refuse(QStringLiteral("its record would have %1 bytes, and the log takes %2 at most")
                   .arg(record.size())
                   .arg(EmittedRecord::largest));
    }
    Bus bus;
    if (!bus.openToDaemon()) {
        return ExitStatus::Failed;
    }
    if (!plan.emit.waits) {
        send(bus, change, plan.emit.path);
        return ExitStatus::Done;
    }
    checkIsStored(bus, change.level);
    Utf8Text::append(out.text(), sendAndWait(bus, change, record, plan));
    out.write("\n");
    return ExitStatus::Done;
}

} // namespace

ExitStatus runEmit(const Plan &plan, OutputStream &out)
{
    try {
        return announce(plan, out);
    } catch (const Failed &) {
        return ExitStatus::Failed;
    }
}

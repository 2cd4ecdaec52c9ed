// SPDX-License-Identifier: Apache-2.0
#include "ctl/salvagecommand.h"

#include "archive/archivefolder.h"
#include "ctl/cleanset.h"
#include "ctl/interruption.h"
#include "ctl/jsonobject.h"
#include "ctl/language.h"
#include "ctl/messages.h"
#include "ctl/progress.h"
#include "ctl/recordlisting.h"
#include "ctl/recordorder.h"
#include "ctl/recordsieve.h"
#include "ctl/selection.h"
#include "ctl/source.h"
#include "ctl/textprinter.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace
{

//! Lines as they always were: what is lost is among them wherever they go.
std::unique_ptr<RecordPrinter> plainLines(const Plan &plan, OutputStream &out)
{
    TextPrinter::Layout layout;
    layout.isAligned = false;
    layout.isColoured = plan.output.isColoured;
    layout.tellsMissing = false;
    return std::make_unique<TextPrinter>(
        layout, TimeText(plan.output.time.value_or(TimeStyle::Utc), plan.output.now), nullptr, out);
}

ExitStatus print(const Plan &plan, const Source &source, OutputStream &out)
{
    RecordListing listing(plan, source, out);
    if (plan.output.format == Format::Text) {
        listing.use(plainLines(plan, out));
    }
    if (plan.salvage.sureOnly) {
        listing.showWholeOnly();
    }
    Progress progress(plan.output.isProgressShown, out);
    RecordOrder order(source.folder(), RecordOrder::By::Place);
    progress.expect(order.size());
    listing.watch([&progress](qint64 bytes) { progress.advance(bytes); });
    listing.print(order);
    if (!order.isComplete()) {
        return ExitStatus::Failed;
    }
    // A folder without records is salvaged, too; nothing was looked for then.
    const ExitStatus status = listing.status();
    const bool isDone = status == ExitStatus::NothingMatched && plan.selection.isEverything();
    return isDone ? ExitStatus::Done : status;
}

//! Notes the whole records for a clean set, but for the first ones.
class Collector : public RecordSieve
{
public:
    //! Without a set they are only counted.
    Collector(Selection &selected, EventKinds &eventKinds, CleanSet *cleanSet, quint64 leftOut)
        : RecordSieve(selected, eventKinds)
        , set(cleanSet)
        , toSkip(leftOut)
    {
    }

    quint64 whole = 0;
    quint64 others = 0;

protected:
    void selected(RecordView &record) override
    {
        if (record.state != Archive::State::Whole) {
            ++others;
        } else if (++whole > toSkip && set) {
            set->add(record.place, record.head.logNr);
        }
    }
    void lostBetween(const Archive::Place & /*place*/, Archive::Fault /*reason*/) override { }
    void missing(const Archive::NumberRange & /*numbers*/) override { }

private:
    CleanSet *set;
    quint64 toSkip;
};

//! Goes through a folder; a set is told of each file.
void collect(RecordOrder &order, const Watched::Watcher &watcher, Collector &collector,
             CleanSet *set)
{
    Watched visitor(collector, watcher);
    for (const Stretch &stretch : order.stretches()) {
        if (set) {
            set->useFile(order.files()[stretch.file].listed);
        }
        if (const auto bytes = order.open(stretch)) {
            collector.useFile(*bytes);
            order.visit(stretch, *bytes, visitor);
        }
    }
    collector.end();
}

//! Says of a clean set what it holds.
void showResult(const Plan &plan, const CleanSet::Result &result, quint64 leftOut,
                OutputStream &out)
{
    if (plan.output.format == Format::Json) {
        JsonObject object(out.text());
        object.addNumber("files", result.files).addNumber("records", qint64(result.records));
        object.addNumber("leftOut", qint64(leftOut));
        object.end();
        out.write("\n");
    } else if (!plan.output.isQuiet || leftOut > 0) {
        std::string text = Messages::counted(result.records, "whole record") + " written to ";
        Messages::appendPrintable(text, plan.salvage.folder);
        text += ", in " + Messages::counted(quint64(result.files), "file");
        if (leftOut > 0) {
            text += "; " + Messages::counted(leftOut, "likely or damaged one") + " left out";
        }
        out.write(text + '\n');
    }
}

ExitStatus writeSet(const Plan &plan, const Source &source, OutputStream &out)
{
    const Interruption interruption;
    CleanSet set(plan.source.folder, plan.salvage.folder);
    const CleanSet::Refusal refusal = set.prepare();
    if (!refusal.reason.isEmpty()) {
        Messages::tell(refusal.reason);
        return refusal.isWrongUsage ? ExitStatus::WrongUsage : ExitStatus::Failed;
    }
    Selection selection(plan.selection, source.catalogue());
    EventKinds kinds(source.catalogue(), chooseLanguage(plan.output, source.catalogue()));
    Progress progress(plan.output.isProgressShown, out);
    const auto watcher = [&interruption, &progress](qint64 bytes) {
        interruption.check();
        progress.advance(bytes);
    };
    RecordOrder order(source.folder(), RecordOrder::By::Place);
    progress.expect(plan.selection.last ? 2 * order.size() : order.size());
    quint64 leftOut = 0;
    if (plan.selection.last) {
        Collector counter(selection, kinds, nullptr, 0);
        collect(order, watcher, counter, nullptr);
        leftOut = counter.whole - std::min(counter.whole, *plan.selection.last);
    }
    Collector collector(selection, kinds, &set, leftOut);
    collect(order, watcher, collector, &set);
    const CleanSet::Result result = set.write(interruption);
    if (!result.failure.isEmpty()) {
        Messages::tell(result.failure);
        return ExitStatus::Failed;
    }
    showResult(plan, result, collector.others, out);
    if (!order.isComplete()) {
        return ExitStatus::Failed;
    }
    if (collector.isDamaged()) {
        return ExitStatus::DamageFound;
    }
    const bool isWanting = result.records == 0 && !plan.selection.isEverything();
    return isWanting ? ExitStatus::NothingMatched : ExitStatus::Done;
}

} // namespace

ExitStatus runSalvage(const Plan &plan, OutputStream &out)
{
    Source source(plan.source, plan.output.isQuiet);
    if (!source.open()) {
        return ExitStatus::Failed;
    }
    return plan.salvage.isToFolder ? writeSet(plan, source, out) : print(plan, source, out);
}

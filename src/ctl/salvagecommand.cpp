// SPDX-License-Identifier: Apache-2.0
#include "ctl/salvagecommand.h"

#include "archive/archivefolder.h"
#include "ctl/cleanset.h"
#include "ctl/interruption.h"
#include "ctl/jsonobject.h"
#include "ctl/messages.h"
#include "ctl/recordlisting.h"
#include "ctl/recordorder.h"
#include "ctl/source.h"
#include "ctl/textprinter.h"

#include <memory>
#include <utility>

namespace
{

using Archive::Place;
using Archive::Record;
using Archive::State;

//! Takes note of what was wrong with a folder, and of what could not be read.
class Judge : public Archive::Visitor
{
public:
    explicit Judge(QString folderPath)
        : folder(std::move(folderPath))
    {
    }

    void record(const Place &place, const Record &record) override
    {
        (void)place;
        isDamaged = isDamaged || record.state != State::Whole;
    }
    void lost(const Place &place, Archive::Fault reason) override
    {
        (void)place;
        (void)reason;
        isDamaged = true;
    }
    void endFile(const Archive::FileResult &result) override
    {
        if (result.error != 0) {
            Messages::tell(QStringLiteral("%1: cannot be read to its end: %2")
                               .arg(Messages::filePath(folder, result.file),
                                    Messages::errorText(result.error)));
            isIncomplete = true;
        }
    }

    [[nodiscard]] ExitStatus status() const
    {
        if (isIncomplete) {
            return ExitStatus::Failed;
        }
        return isDamaged ? ExitStatus::DamageFound : ExitStatus::Done;
    }

private:
    QString folder;
    bool isDamaged = false;
    bool isIncomplete = false;
};

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
    RecordOrder order(source.folder(), RecordOrder::By::Place);
    listing.print(order);
    if (!order.isComplete()) {
        return ExitStatus::Failed;
    }
    // A folder without records is salvaged, too; nothing was looked for then.
    const ExitStatus status = listing.status();
    const bool isDone = status == ExitStatus::NothingMatched && plan.selection.isEverything();
    return isDone ? ExitStatus::Done : status;
}

//! Notes the whole records for a clean set.
class Collector : public Judge
{
public:
    Collector(const Plan &plan, CleanSet &cleanSet, const Interruption &signals)
        : Judge(plan.source.folder)
        , set(cleanSet)
        , interruption(signals)
    {
    }

    void record(const Place &place, const Record &record) override
    {
        Judge::record(place, record);
        interruption.check();
        if (record.state == State::Whole) {
            set.add(place, record.head.logNr);
        } else {
            ++others;
        }
    }

    [[nodiscard]] quint64 otherRecords() const { return others; }

private:
    CleanSet &set;
    const Interruption &interruption;
    quint64 others = 0;
};

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
        std::string text = std::to_string(result.records) + " whole records written to ";
        const QByteArray folder = plan.salvage.folder.toUtf8();
        Messages::appendPrintable(text, {folder.constData(), size_t(folder.size())});
        text += ", in " + std::to_string(result.files) + " files";
        if (leftOut > 0) {
            text += "; " + std::to_string(leftOut) + " likely or damaged ones left out";
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
    Collector collector(plan, set, interruption);
    for (const Archive::ListedFile &file : source.folder().files()) {
        set.useFile(file);
        (void)source.folder().visit(file, collector);
    }
    const CleanSet::Result result = set.write(interruption);
    if (!result.failure.isEmpty()) {
        Messages::tell(result.failure);
        return ExitStatus::Failed;
    }
    showResult(plan, result, collector.otherRecords(), out);
    return collector.status();
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

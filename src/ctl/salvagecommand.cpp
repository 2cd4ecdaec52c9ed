// SPDX-License-Identifier: Apache-2.0
#include "ctl/salvagecommand.h"

#include "archive/archivefolder.h"
#include "archive/filebytes.h"
#include "ctl/cleanset.h"
#include "ctl/interruption.h"
#include "ctl/jsonobject.h"
#include "ctl/messages.h"
#include "ctl/recordline.h"
#include "ctl/recordobject.h"
#include "ctl/source.h"

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

    void record(const Place & /*place*/, const Record &record) override
    {
        isDamaged = isDamaged || record.state != State::Whole;
    }
    void lost(const Place & /*place*/, Archive::Fault /*reason*/) override { isDamaged = true; }
    void endFile(const Archive::FileResult &result) override
    {
        if (result.error != 0) {
            Messages::tellUnread(folder, result.file, result.error);
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

class Printer : public Judge
{
public:
    Printer(const Plan &plan, const SystemeventCatalogue *catalogue, OutputStream &output)
        : Judge(plan.source.folder)
        , kinds(catalogue, plan.output.language)
        , object(catalogue, kinds)
        , line(kinds)
        , out(output)
        , isJson(plan.output.format == Format::Json)
        , sureOnly(plan.salvage.sureOnly)
    {
    }

    //! The file that is shown next, for what lies behind its records.
    void useFile(const std::shared_ptr<const Archive::FileBytes> &opened)
    {
        static const auto nothing = std::make_shared<const Archive::FileBytes>();
        file = opened ? opened : nothing;
    }

    void record(const Place &place, const Record &record) override
    {
        Judge::record(place, record);
        if (sureOnly && record.state != State::Whole) {
            return;
        }
        if (isJson) {
            object.append(out.text(), place, record, *file);
            out.text() += '\n';
        } else {
            line.append(out.text(), place, record, *file);
        }
        out.wrote();
    }

    void lost(const Place &place, Archive::Fault reason) override
    {
        Judge::lost(place, reason);
        if (sureOnly) {
            return;
        }
        if (isJson) {
            RecordObject::appendLost(out.text(), place, reason);
            out.text() += '\n';
        } else {
            RecordLine::appendLost(out.text(), place, reason);
        }
        out.wrote();
    }

private:
    EventKinds kinds;
    RecordObject object;
    RecordLine line;
    std::shared_ptr<const Archive::FileBytes> file;
    OutputStream &out;
    bool isJson;
    bool sureOnly;
};

ExitStatus print(const Plan &plan, const Source &source, OutputStream &out)
{
    Printer printer(plan, source.catalogue(), out);
    const Archive::Descriptor folder = Archive::openFolder(plan.source.folder);
    for (const Archive::ListedFile &file : source.folder().files()) {
        int error = 0; // what cannot be opened here is told of below
        printer.useFile(Archive::openListed(folder.get(), file, error));
        (void)source.folder().visit(file, printer);
    }
    return printer.status();
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

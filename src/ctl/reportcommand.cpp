// SPDX-License-Identifier: Apache-2.0
#include "ctl/reportcommand.h"

#include "ctl/interruption.h"
#include "ctl/jsonobject.h"
#include "ctl/language.h"
#include "ctl/messages.h"
#include "ctl/newfile.h"
#include "ctl/progress.h"
#include "ctl/recordlisting.h"
#include "ctl/recordorder.h"
#include "ctl/recordprinter.h"
#include "ctl/report/reportmarks.h"
#include "ctl/report/reportpage.h"
#include "ctl/report/reportrecords.h"
#include "ctl/source.h"
#include "ctl/timetext.h"
#include "ctl/withinfolder.h"

#include <QFileInfo>

#include <cerrno>
#include <memory>
#include <utility>

namespace
{

//! The languages that a page can be switched between, and the one that it opens in.
struct Languages {
    QStringList all;
    QString first;
};

Languages languagesFor(const Plan &plan, const SystemeventCatalogue *catalogue)
{
    Languages languages;
    languages.first = chooseLanguage(plan.output, catalogue);
    if (catalogue) {
        languages.all = languagesOf(*catalogue);
    }
    if (!languages.all.contains(languages.first)) {
        languages.all.append(languages.first);
    }
    return languages;
}

//! The last ones, too, are given in the log's order; the page turns them round.
Plan inLogOrder(const Plan &plan)
{
    Plan chosen = plan;
    chosen.selection.newestFirst = false;
    chosen.output.pager.clear();
    return chosen;
}

//! Gives a page what is selected.
class PagePrinter : public RecordPrinter
{
public:
    //! All must outlive this.
    PagePrinter(const SystemeventCatalogue *catalogue, const QStringList &languages,
                ReportPage &page)
        : records(catalogue, languages, page)
    {
    }

    //! The page has those of all languages.
    [[nodiscard]] bool needsMessage() const override { return false; }
    void record(const RecordView &record) override
    {
        if (record.fault != Archive::Fault::Head) {
            if (record.head.logNr <= last) {
                marks.again(records.count(), record.head.logNr);
            }
            last = record.head.logNr;
        }
        damaged += record.state != Archive::State::Whole ? 1 : 0;
        records.add(record);
    }
    void lost(const Archive::Place &place, Archive::Fault reason) override
    {
        marks.lost(records.count(), place, reason);
        ++damaged;
    }
    void missing(const Archive::NumberRange &numbers) override
    {
        marks.missing(records.count(), numbers);
        missed += numbers.last - numbers.first + 1;
    }

    [[nodiscard]] quint64 count() const { return records.count(); }
    void end() { records.flush(); }
    //! What there is to know of all of them.
    void addFacts(JsonObject &object) const
    {
        object.addNumber("records", qint64(records.count())).addLarge("missing", missed);
        object.addNumber("damaged", qint64(damaged));
        object.addKey("marks") += marks.json();
        records.appendEvents(object.addKey("events"));
    }

private:
    ReportRecords records;
    ReportMarks marks;
    quint64 last = 0; //!< number of the record before; 0: none
    quint64 missed = 0;
    quint64 damaged = 0;
};

//! The parts of a record, by where they end; what stands behind them varies.
void appendLayout(std::string &out)
{
    const std::pair<const char *, qint64> parts[] = {
        {"log number", LogFormat::secondsOffset},   {"seconds", LogFormat::microsecondsOffset},
        {"microseconds", LogFormat::paddingOffset}, {"padding", LogFormat::eventIdOffset},
        {"event", LogFormat::valuesOffset},
    };
    out += "{\"head\":[";
    const char *separator = "";
    for (const auto &[name, end] : parts) {
        out += std::exchange(separator, ",");
        out += "[\"" + std::string(name) + "\"," + std::to_string(end) + ']';
    }
    out += "],\"tail\":" + std::to_string(LogFormat::trailerSize) + '}';
}

QByteArray about(const Plan &plan, const Languages &languages, const PagePrinter &printer,
                 bool hasCatalogue, bool isComplete)
{
    std::string out;
    JsonObject object(out);
    const Instant now = Instant::now();
    std::string made;
    (void)appendTime(made, now.seconds, now.microseconds);
    object.add("program", std::string_view("systemeventctl " SEL_VERSION));
    object.add("made", std::string_view(made)).add("folder", plan.source.folder);
    object.addFlag("hasCatalogue", hasCatalogue).addFlag("isComplete", isComplete);
    object.addFlag("newestFirst", plan.selection.newestFirst);
    const bool isUtc = plan.output.time == TimeStyle::Utc;
    object.add("zone", std::string_view(isUtc ? "utc" : "local"));
    object.add("language", languages.first);
    object.addKey("languages") += '[';
    const char *separator = "";
    for (const QString &language : languages.all) {
        out += std::exchange(separator, ",");
        JsonObject::appendString(out, language.toStdString());
    }
    out += ']';
    appendLayout(object.addKey("layout"));
    printer.addFacts(object);
    object.end();
    return QByteArray::fromStdString(out);
}

struct Result {
    ExitStatus status = ExitStatus::Done;
    bool isEmpty = false; //!< there is neither a record nor damage
    quint64 records = 0;
};

/*!
 * Writes the page. Throws OutputFailure, and Interruption::Happened when the process is to
 * end.
 */
Result writePage(const Plan &plan, const Source &source, OutputStream &out,
                 OutputStream &standardOutput, const Interruption &interruption)
{
    const SystemeventCatalogue *const catalogue = source.catalogue();
    const Languages languages = languagesFor(plan, catalogue);
    ReportPage page(out);
    auto printer = std::make_unique<PagePrinter>(catalogue, languages.all, page);
    PagePrinter &printed = *printer;
    const Plan chosen = inLogOrder(plan);
    RecordListing listing(chosen, source, out);
    listing.use(std::move(printer));
    Progress progress(plan.output.isProgressShown, standardOutput);
    RecordOrder order(source.folder(), RecordOrder::By::Number);
    progress.expect(order.size());
    listing.watch([&](qint64 bytes) {
        interruption.check();
        progress.advance(bytes);
    });
    listing.print(order);
    printed.end();
    page.add("about", about(plan, languages, printed, catalogue != nullptr, order.isComplete()));
    page.end();
    out.flush();
    Result result;
    result.status = order.isComplete() ? listing.status() : ExitStatus::Failed;
    result.isEmpty = listing.status() == ExitStatus::NothingMatched;
    result.records = printed.count();
    return result;
}

//! Where only the daemon writes, or where a log file may be; through a link, too.
bool isPlaceOfLogs(const Plan &plan)
{
    const QString target = QFileInfo(plan.report.file).canonicalFilePath();
    const QFileInfo page(target.isEmpty() ? plan.report.file : target);
    const Archive::Descriptor folder = Archive::openFolder(page.path());
    return isWithin(folder, Archive::openFolder(SourceChoice().folder))
        || (page.fileName().startsWith(QLatin1String("zib"))
            && isWithin(folder, Archive::openFolder(plan.source.folder)));
}

ExitStatus cannotWrite(const Plan &plan, const QString &reason)
{
    Messages::tell(QStringLiteral("%1: cannot be written: %2").arg(plan.report.file, reason));
    return ExitStatus::Failed;
}

void showResult(const Plan &plan, const Result &result, OutputStream &out)
{
    std::string text = std::to_string(result.records);
    text += result.records == 1 ? " record written to " : " records written to ";
    Messages::appendPrintable(text, plan.report.file.toStdString());
    out.write(text + '\n');
}

} // namespace

ExitStatus runReport(const Plan &plan, OutputStream &out)
{
    Source source(plan.source, plan.output.isQuiet);
    if (!source.open()) {
        return ExitStatus::Failed;
    }
    if (isPlaceOfLogs(plan)) {
        Messages::tell(
            QStringLiteral("%1: is a place of log files; name another").arg(plan.report.file));
        return ExitStatus::WrongUsage;
    }
    const Interruption interruption;
    NewFile file(plan.report.file);
    if (!file.failure().isNull()) {
        return cannotWrite(plan, file.failure());
    }
    Result result;
    try {
        OutputStream page(file.descriptor());
        result = writePage(plan, source, page, out, interruption);
    } catch (const OutputFailure &failure) {
        return cannotWrite(plan, Messages::errorText(failure.error));
    }
    if (result.isEmpty) {
        if (!plan.output.isQuiet) {
            Messages::tell(QStringLiteral("there are no such records, so no page was written"));
        }
        return result.status;
    }
    if (!file.publish()) {
        return cannotWrite(plan, Messages::errorText(errno));
    }
    if (!plan.output.isQuiet) {
        showResult(plan, result, out);
    }
    return result.status;
}

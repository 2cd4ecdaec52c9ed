// SPDX-License-Identifier: Apache-2.0
#include "ctl/stats/statscommand.h"

#include "ctl/messages.h"
#include "ctl/pager.h"
#include "ctl/progress.h"
#include "ctl/recordlisting.h"
#include "ctl/recordorder.h"
#include "ctl/recordprinter.h"
#include "ctl/source.h"
#include "ctl/stats/statistics.h"
#include "ctl/stats/statisticsjson.h"
#include "ctl/stats/statisticstext.h"

#include <cerrno>
#include <memory>
#include <utility>

namespace
{

//! Counts what is selected.
class CountingPrinter : public RecordPrinter
{
public:
    //! It must outlive this.
    explicit CountingPrinter(Statistics &counted)
        : statistics(counted)
    {
    }

    [[nodiscard]] bool needsMessage() const override { return false; }
    void record(const RecordView &record) override
    {
        if (record.fault == Archive::Fault::Head) {
            statistics.addUnreadable(record.bytes.size());
            return;
        }
        Statistics::Facts facts;
        facts.number = record.head.logNr;
        facts.time = {record.head.seconds, record.head.microseconds};
        facts.eventId = record.head.eventId;
        facts.isKnown = record.kind != nullptr;
        facts.path = record.path;
        facts.size = record.bytes.size();
        facts.state = record.state;
        statistics.add(facts);
    }
    void lost(const Archive::Place &place, Archive::Fault reason) override
    {
        (void)reason;
        statistics.addLost(quint64(place.length));
    }
    void missing(const Archive::NumberRange &numbers) override { statistics.addMissing(numbers); }

private:
    Statistics &statistics;
};

WallClock::Zone zoneOf(const OutputChoice &output)
{
    return output.format == Format::Json || output.time == TimeStyle::Utc ? WallClock::Zone::Utc
                                                                          : WallClock::Zone::Local;
}

//! In the order of the log, whatever is asked for; paged is what comes of it.
Plan countingPlan(const Plan &plan)
{
    Plan counting = plan;
    counting.selection.newestFirst = false;
    counting.output.pager.clear();
    return counting;
}

//! Counts, and says how the process ends.
ExitStatus count(const Plan &plan, const Source &source, Statistics &statistics,
                 CountedFiles &files, OutputStream &out)
{
    const Plan counting = countingPlan(plan);
    RecordListing listing(counting, source, out);
    listing.use(std::make_unique<CountingPrinter>(statistics));
    Progress progress(plan.output.isProgressShown, out);
    RecordOrder order(source.folder(), RecordOrder::By::Number);
    progress.expect(order.size());
    if (plan.output.isProgressShown) {
        listing.watch([&progress](qint64 bytes) { progress.advance(bytes); });
    }
    listing.print(order);
    files.count = order.files().size();
    files.size = quint64(order.size());
    files.isComplete = order.isComplete();
    return order.isComplete() ? listing.status() : ExitStatus::Failed;
}

void print(const Plan &plan, const Source &source, const Statistics &statistics,
           const CountedFiles &files, OutputStream &out)
{
    const Pager pager(plan.output.pager);
    try {
        if (plan.output.format == Format::Json) {
            writeStatisticsJson(statistics, files, source.catalogue(), out);
        } else {
            StatisticsText(plan.output, source.catalogue(), out).print(statistics, files);
        }
        out.flush(); // while there is a pager
    } catch (const OutputFailure &failure) {
        if (!pager.isUsed() || failure.error != EPIPE) {
            throw;
        }
        throw Pager::Left{};
    }
}

} // namespace

ExitStatus runStats(const Plan &plan, OutputStream &out)
{
    Source source(plan.source, plan.output.isQuiet);
    if (!source.open()) {
        return ExitStatus::Failed;
    }
    Statistics statistics(zoneOf(plan.output));
    CountedFiles files;
    files.folder = plan.source.folder;
    const ExitStatus status = count(plan, source, statistics, files, out);
    const bool isNothing = statistics.total().records == 0 && status != ExitStatus::DamageFound;
    if (isNothing && plan.output.format == Format::Text) {
        if (!plan.output.isQuiet && status == ExitStatus::NothingMatched) {
            Messages::tell(QStringLiteral("there are no such records"));
        }
        return status;
    }
    print(plan, source, statistics, files, out);
    return status;
}

// SPDX-License-Identifier: Apache-2.0
#include "ctl/recordlisting.h"

#include "ctl/language.h"
#include "ctl/newestfirst.h"

#include <limits>

namespace
{

//! Counts what is selected.
class Counter : public RecordSieve
{
public:
    using RecordSieve::RecordSieve;

    quint64 count = 0;

protected:
    void selected(RecordView & /*record*/) override { ++count; }
    void lostBetween(const Archive::Place & /*place*/, Archive::Fault /*reason*/) override { }
    void missing(const Archive::NumberRange & /*numbers*/) override { }
};

} // namespace

//! Prints what is selected, but for the first records and all that stands among those.
class RecordListing::Printing : public RecordSieve
{
public:
    Printing(Selection &selected, EventKinds &eventKinds, RecordPrinter &recordPrinter,
             const Pager &outputPager)
        : RecordSieve(selected, eventKinds)
        , printer(recordPrinter)
        , pager(outputPager)
    {
    }

    //! Leaves out so many of the next records.
    void skip(quint64 records)
    {
        toSkip = records;
        isBegun = records == 0;
        countDamage(isBegun);
    }

    quint64 count = 0; //!< of the records that were printed

protected:
    void selected(RecordView &record) override
    {
        pager.check();
        if (toSkip > 0) {
            --toSkip;
            return;
        }
        isBegun = true;
        countDamage(true);
        if (record.state != Archive::State::Whole) {
            noticeDamage();
        }
        if (printer.needsMessage()) {
            record.message = messageOf(record);
        }
        printer.record(record);
        ++count;
    }
    void lostBetween(const Archive::Place &place, Archive::Fault reason) override
    {
        if (isBegun) {
            printer.lost(place, reason);
        }
    }
    void missing(const Archive::NumberRange &numbers) override
    {
        if (isBegun) {
            printer.missing(numbers);
        }
    }

private:
    RecordPrinter &printer;
    const Pager &pager;
    quint64 toSkip = 0;
    bool isBegun = true;
};

RecordListing::RecordListing(const Plan &shown, const Source &source, OutputStream &output)
    : plan(shown)
    , out(output)
    , selection(plan.selection, source.catalogue())
    , kinds(source.catalogue(), chooseLanguage(plan.output, source.catalogue()))
    , pager(plan.output.pager)
    , printer(makePrinter(plan.output, source.catalogue(), out))
{
}

RecordListing::~RecordListing() = default;

void RecordListing::print(RecordOrder &order)
{
    printing = std::make_unique<Printing>(selection, kinds, *printer, pager);
    printing->showWholeOnly(wholeOnly);
    printer->expect(order.highestNumber());
    printer->begin();
    if (plan.selection.newestFirst) {
        printBackwards(order);
    } else {
        printForwards(order);
    }
    out.flush(); // while there is a pager
}

void RecordListing::printBackwards(RecordOrder &order)
{
    constexpr quint64 all = std::numeric_limits<quint64>::max();
    NewestFirst newestFirst(selection, kinds, *printer, pager);
    result = newestFirst.print(order, plan.selection.last.value_or(all), wholeOnly);
}

void RecordListing::printForwards(RecordOrder &order)
{
    const Beginning begin = beginning(order);
    printing->skip(begin.leftOut);
    for (size_t i = begin.stretch; i < order.stretches().size(); ++i) {
        visit(order, order.stretches()[i], *printing);
    }
    printing->end();
}

void RecordListing::visit(RecordOrder &order, const Stretch &stretch, RecordSieve &into) const
{
    const bool isMeant = selection.takesNumbers(stretch.first, stretch.last);
    const auto bytes = isMeant ? order.open(stretch) : nullptr;
    if (!bytes) {
        into.begin();
        return;
    }
    into.useFile(*bytes);
    order.visit(stretch, *bytes, into);
}

//! Counts from the end, so that older files are not read.
RecordListing::Beginning RecordListing::beginning(RecordOrder &order)
{
    if (!plan.selection.last) {
        return {};
    }
    quint64 wanted = *plan.selection.last;
    size_t i = order.stretches().size();
    while (i > 0 && wanted > 0) {
        Counter counter(selection, kinds);
        counter.showWholeOnly(wholeOnly);
        visit(order, order.stretches()[--i], counter);
        if (counter.count >= wanted) {
            return {i, counter.count - wanted};
        }
        wanted -= counter.count;
    }
    return {i, 0};
}

quint64 RecordListing::count() const
{
    return result.count + printing->count;
}

ExitStatus RecordListing::status() const
{
    if (result.isDamaged || printing->isDamaged()) {
        return ExitStatus::DamageFound;
    }
    return count() > 0 ? ExitStatus::Done : ExitStatus::NothingMatched;
}

RecordSieve &RecordListing::sieve()
{
    return *printing;
}

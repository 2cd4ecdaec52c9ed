// SPDX-License-Identifier: Apache-2.0
#include "ctl/newestfirst.h"

#include "ctl/recordsieve.h"

#include <deque>

namespace
{

//! Something to be printed: a record, what is lost, or numbers that are missing.
struct Item {
    enum class Kind : quint8 { Record, Lost, Missing };

    Kind kind = Kind::Record;
    Archive::State state = Archive::State::Whole;
    Archive::Fault fault = Archive::Fault::None;
    Archive::Place place;
    Archive::NumberRange numbers;
};

//! Notes what is selected: the last items of it, where there are too many.
class Notes : public RecordSieve
{
public:
    using RecordSieve::RecordSieve;

    std::deque<Item> items;
    bool isCut = false; //!< there were more in front of these, which begin with a record

    //! Makes sure that what is left out ends where a record begins.
    void cut()
    {
        while (isCut && items.size() > 1 && items.front().kind != Item::Kind::Record) {
            items.pop_front();
        }
    }

protected:
    void selected(RecordView &record) override
    {
        Item item;
        item.state = record.state;
        item.fault = record.fault;
        item.place = record.place;
        item.numbers = {record.head.logNr, record.head.logNr};
        add(item);
    }
    void lostBetween(const Archive::Place &place, Archive::Fault reason) override
    {
        Item item;
        item.kind = Item::Kind::Lost;
        item.fault = reason;
        item.place = place;
        add(item);
    }
    void missing(const Archive::NumberRange &numbers) override
    {
        Item item;
        item.kind = Item::Kind::Missing;
        item.numbers = numbers;
        add(item);
    }

private:
    void add(const Item &item)
    {
        constexpr size_t most = 65536;
        if (items.size() == most) {
            items.pop_front();
            isCut = true;
        }
        items.push_back(item);
    }
};

//! Reads the records of a file that were noted.
class Reader
{
public:
    explicit Reader(const Archive::FileBytes &opened)
        : file(opened)
    {
    }

    //! Valid until the next one is read; without bytes where it cannot be.
    Archive::Record read(const Item &item)
    {
        Archive::Record record;
        if (file.read(item.place.offset, item.place.end(), bytes)) {
            record = Archive::recordIn({bytes.constData(), size_t(bytes.size())});
            record.state = item.state;
            record.fault = item.fault;
        }
        return record;
    }

private:
    const Archive::FileBytes &file;
    QByteArray bytes;
};

//! Prints what was noted, from its end, until so many records are printed.
class Printing
{
public:
    Printing(EventKinds &eventKinds, RecordPrinter &recordPrinter, const Pager &outputPager,
             quint64 mostRecords)
        : kinds(eventKinds)
        , printer(recordPrinter)
        , pager(outputPager)
        , most(mostRecords)
    {
    }

    NewestFirst::Result result;

    [[nodiscard]] bool isDone() const { return result.count >= most; }

    void print(Notes &notes, const Archive::FileBytes &bytes)
    {
        Reader reader(bytes);
        for (auto item = notes.items.rbegin(); item != notes.items.rend(); ++item) {
            if (isDone()) {
                return;
            }
            pager.check();
            print(*item, notes, reader);
        }
        result.isDamaged = result.isDamaged || notes.isDamaged();
    }

private:
    void print(const Item &item, Notes &notes, Reader &reader)
    {
        if (item.kind == Item::Kind::Missing) {
            printer.missing(item.numbers);
            return;
        }
        if (item.kind == Item::Kind::Lost) {
            result.isDamaged = true;
            printer.lost(item.place, item.fault);
            return;
        }
        const Archive::Record record = reader.read(item);
        if (record.bytes.empty()) {
            return; // it was cut off meanwhile
        }
        RecordView view = viewOf(item.place, record);
        view.kind = kinds.find(view.head.eventId);
        view.message = printer.needsMessage() ? notes.messageOf(view) : "";
        printer.record(view);
        result.isDamaged = result.isDamaged || record.state != Archive::State::Whole;
        ++result.count;
    }

    EventKinds &kinds;
    RecordPrinter &printer;
    const Pager &pager;
    quint64 most;
};

} // namespace

NewestFirst::Result NewestFirst::print(RecordOrder &order, quint64 most, bool wholeOnly)
{
    Printing printing(kinds, printer, pager, most);
    quint64 numberBehind = 0; // of the record that stands behind what is looked at
    Instant timeBehind;
    std::vector<Stretch> left = order.stretches();
    while (!left.empty() && !printing.isDone()) {
        Stretch &part = left.back();
        const bool isMeant = selection.takesNumbers(part.first, part.last);
        const auto bytes = isMeant ? order.open(part) : nullptr;
        if (!bytes) {
            left.pop_back();
            numberBehind = 0;
            continue;
        }
        Notes notes(selection, kinds);
        notes.showWholeOnly(wholeOnly);
        notes.useFile(*bytes);
        order.visit(part, *bytes, notes);
        if (numberBehind != 0) {
            notes.end(numberBehind, timeBehind);
        } else {
            notes.end();
        }
        notes.cut();
        printing.print(notes, *bytes);
        timeBehind = notes.firstTime();
        if (notes.isCut) {
            part.end = notes.items.front().place.offset;
            numberBehind = notes.items.front().numbers.first;
        } else {
            numberBehind = notes.firstNumber();
            left.pop_back();
        }
    }
    return printing.result;
}

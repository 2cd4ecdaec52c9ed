// SPDX-License-Identifier: Apache-2.0
#include "ctl/collectcommand.h"

#include "ctl/collectrange.h"
#include "ctl/jsonobject.h"
#include "ctl/jsonprinter.h"
#include "ctl/language.h"
#include "ctl/recordsieve.h"
#include "ctl/source.h"
#include "ctl/timetext.h"
#include "ctl/window.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace
{

//! Prints records as they come, and between them what their numbers say.
class Printing : public RecordSieve
{
public:
    Printing(Selection &everything, EventKinds &eventKinds, OutputStream &output)
        : RecordSieve(everything, eventKinds)
        , out(output)
        , printer(output)
    {
    }

    //! The next number is the one behind that one, or something is missing.
    void goOnBehind(quint64 number) { last = number; }
    //! The last whole record that was printed; a number of 0 where there was none.
    [[nodiscard]] const CollectChoice &position() const { return printed; }

    void restarted(quint64 number)
    {
        JsonObject object(out.text());
        object.addLarge("restarted", number).end();
        endLine();
    }
    //! A time is that of a record, or one that could be.
    void resume(const CollectChoice &place)
    {
        JsonObject object(out.text());
        std::string &text = object.addLarge("resume", place.number).addKey("time");
        text += '"';
        (void)appendTime(text, place.time.seconds, place.time.microseconds);
        text += '"';
        object.end();
        endLine();
    }

protected:
    void selected(RecordView &record) override
    {
        if (record.state == Archive::State::Damaged && record.fault == Archive::Fault::Head) {
            printer.lost(record.place, record.fault); // who it is would be a guess
            return;
        }
        if (record.state == Archive::State::Whole) {
            pass(record.head);
        } else if (doubtful.size() < mostDoubtful) {
            doubtful.push_back(record.head.logNr);
        }
        record.message = messageOf(record);
        printer.record(record);
    }
    void lostBetween(const Archive::Place &place, Archive::Fault reason) override
    {
        printer.lost(place, reason);
    }
    //! As whole records alone see it, tellMissing() says it.
    void missing(const Archive::NumberRange & /*numbers*/) override { }

private:
    static constexpr size_t mostDoubtful = 65536;

    void pass(const LogFormat::RecordHead &head)
    {
        if (last && head.logNr <= *last) {
            restarted(head.logNr);
        } else if (last) {
            tellMissing({*last + 1, head.logNr - 1});
        }
        doubtful.clear();
        last = head.logNr;
        printed = {head.logNr, {head.seconds, head.microseconds}};
    }

    //! Tells of numbers between two whole records that no record has, be it a damaged one.
    void tellMissing(Archive::NumberRange range)
    {
        std::sort(doubtful.begin(), doubtful.end());
        for (const quint64 number : doubtful) {
            if (number >= range.first && number <= range.last) {
                printMissing({range.first, number - 1});
                range.first = number + 1;
            }
        }
        printMissing(range);
    }

    void printMissing(const Archive::NumberRange &range)
    {
        if (range.first <= range.last) {
            JsonObject object(out.text());
            object.addKey("missing") += "[\"" + std::to_string(range.first) + "\",\""
                + std::to_string(range.last) + "\"]";
            object.end();
            endLine();
        }
    }

    void endLine()
    {
        out.text() += '\n';
        out.wrote();
    }

    OutputStream &out;
    JsonPrinter printer;
    std::optional<quint64> last;   //!< the number in front of the next one, where that matters
    std::vector<quint64> doubtful; //!< numbers since the last whole record
    CollectChoice printed;
};

void begin(const CollectRange &range, const CollectChoice &choice, Printing &printing)
{
    switch (range.beginning) {
    case CollectRange::Beginning::Oldest:
        return;
    case CollectRange::Beginning::Follows:
        printing.goOnBehind(choice.number);
        return;
    case CollectRange::Beginning::BeganAgain:
        break;
    }
    printing.restarted(range.oldestNumber);
    // A run that is new as a whole had the number 1. Otherwise the store may have its beginning.
    printing.goOnBehind(choice.time < range.oldestTime ? 0 : range.oldestNumber - 1);
}

//! False, and told, where a file cannot be read.
bool print(const Archive::Folder &folder, const CollectRange &range, Printing &printing)
{
    for (size_t i = range.firstFile; i <= range.end.file; ++i) {
        const bool isLast = i == range.end.file;
        const Archive::OpenFile opened = isLast
            ? Archive::OpenFile{range.end.bytes, range.end.size, 0}
            : folder.openFile(folder.files()[i]);
        const qint64 from = i == range.firstFile ? range.begin : 0;
        if (opened.bytes ? from >= opened.size : opened.error == 0) {
            continue; // deleted meanwhile, or there is nothing new in it
        }
        const int index = folder.files()[i].index;
        Window window(from, opened.size, printing);
        if (opened.bytes) {
            printing.useFile(*opened.bytes);
        }
        if (!opened.bytes || !folder.visit(index, *opened.bytes, opened.size, window)) {
            CollectRange::tellUnread(folder, index, opened.bytes ? window.error : opened.error);
            return false;
        }
    }
    return true;
}

} // namespace

ExitStatus runCollect(const Plan &plan, OutputStream &out)
{
    Source source(plan.source, plan.output.isQuiet);
    if (!source.open()) {
        return ExitStatus::Failed;
    }
    const CollectRange range(source.folder(), plan.collect);
    Selection everything(plan.selection, source.catalogue());
    EventKinds kinds(source.catalogue(), chooseLanguage(plan.output, source.catalogue()));
    Printing printing(everything, kinds, out);
    if (range.hasEnd()) {
        begin(range, plan.collect, printing);
    }
    if (!range.isKnown() || (range.hasEnd() && !print(source.folder(), range, printing))) {
        return ExitStatus::Failed; // without a place to go on from
    }
    printing.resume(printing.position().number != 0 ? printing.position() : plan.collect);
    return printing.isDamaged() ? ExitStatus::DamageFound : ExitStatus::Done;
}

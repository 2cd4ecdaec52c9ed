// SPDX-License-Identifier: Apache-2.0
#include "ctl/collectrange.h"

#include "ctl/messages.h"

#include <cerrno>

using Archive::Fault;
using Archive::Place;
using Archive::Record;
using Archive::State;

namespace
{

//! A whole record; a number of 0 where there is none.
struct Milestone {
    quint64 number = 0;
    Instant time;
};

} // namespace

//! Looks for a record in one file after another, the newest one first.
class CollectRange::Search : public Archive::Visitor
{
public:
    explicit Search(const CollectChoice &choice)
        : wanted{choice.number, choice.time}
    {
    }

    void startFile()
    {
        behind = first.number != 0 ? first : behind;
        first = {};
        last = {};
        wholeEnd = 0;
        exactEnd = -1;
        gap = -1;
    }
    void record(const Place &place, const Record &record) override
    {
        if (record.state == State::Damaged && record.fault == Fault::Head) {
            return;
        }
        const Instant time{record.head.seconds, record.head.microseconds};
        if (record.head.logNr == wanted.number && areSame(time, wanted.time)) {
            exactEnd = place.end();
        }
        if (record.state == State::Whole) {
            pass({record.head.logNr, time});
            wholeEnd = place.end();
        }
    }
    void lost(const Place & /*place*/, Fault /*reason*/) override { }
    void endFile(const Archive::FileResult &result) override { error = result.error; }
    //! A file may end in front of the place where the record is missing.
    void stopFile() { notice(behind); }

    //! The first whole record of the files so far; without a number where there is none.
    [[nodiscard]] const Milestone &oldest() const { return first.number != 0 ? first : behind; }

    bool falls = false; //!< numbers do, somewhere

    // Of the file at hand.
    int error = 0;        //!< errno of why it could not be read to its end
    qint64 wholeEnd = 0;  //!< of its last whole record; 0: there is none
    qint64 exactEnd = -1; //!< of the record itself; negative: it is not there
    qint64 gap = -1;      //!< where it is missing; negative: nowhere

private:
    static bool areSame(const Instant &left, const Instant &right)
    {
        return !(left < right) && !(right < left);
    }

    void pass(const Milestone &next)
    {
        notice(next);
        first = first.number == 0 ? next : first;
        last = next;
    }

    /*!
     * Looks between two records: whether the one that is looked for could only have stood
     * there. What is before it must not be later, or numbers have begun again.
     */
    void notice(const Milestone &next)
    {
        falls = falls || (next.number != 0 && next.number <= last.number);
        if (last.number != 0 && last.number < wanted.number && wanted.number < next.number
            && !(wanted.time < last.time)) {
            gap = wholeEnd;
        }
    }

    Milestone wanted;
    Milestone first;  //!< of the file at hand
    Milestone last;   //!< of it, so far
    Milestone behind; //!< the first one of the files behind it
};

void CollectRange::tellUnread(const Archive::Folder &folder, int file, int error)
{
    constexpr int isShorter = ENODATA; // than it was when it was opened
    Messages::tellUnread(folder.path(), file, error != 0 ? error : isShorter);
}

CollectRange::CollectRange(const Archive::Folder &opened, const CollectChoice &choice)
    : folder(opened)
{
    find(choice);
}

void CollectRange::find(const CollectChoice &choice)
{
    Search search(choice);
    bool hasGap = false;
    for (size_t i = folder.files().size(); i-- > 0;) {
        const Archive::OpenFile opened = folder.openFile(folder.files()[i]);
        const int index = folder.files()[i].index;
        search.startFile();
        if (!opened.bytes && opened.error == 0) {
            continue; // deleted meanwhile
        }
        if (!opened.bytes || !folder.visit(index, *opened.bytes, opened.size, search)) {
            tellUnread(folder, index, opened.bytes ? search.error : opened.error);
            known = false;
            return;
        }
        search.stopFile();
        if (!hasEnd() && search.wholeEnd > 0) {
            end = {opened.bytes, i, search.wholeEnd};
        }
        if (choice.number == 0 && hasEnd()) {
            return;
        }
        const bool isExact = search.exactEnd >= 0;
        if (isExact || (search.gap >= 0 && !hasGap)) {
            hasGap = true;
            beginning = Beginning::Follows;
            firstFile = i;
            begin = isExact ? search.exactEnd : search.gap;
        }
        if (isExact) {
            return;
        }
    }
    if (choice.number != 0 && !hasGap) {
        oldestNumber = search.oldest().number;
        oldestTime = search.oldest().time;
        // Of two runs of numbers the older one may be that of the record, or not.
        const bool mayFollow = !search.falls || !(oldestTime < choice.time);
        beginning = choice.number < oldestNumber && mayFollow ? Beginning::Follows
                                                              : Beginning::BeganAgain;
    }
}

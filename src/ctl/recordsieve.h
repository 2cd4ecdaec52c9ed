// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"
#include "archive/numberset.h"
#include "ctl/eventkinds.h"
#include "ctl/selection.h"

#include <string>
#include <vector>

/*!
 * Goes through records in the order in which they are shown, and finds those that are
 * selected. What is lost or missing between records belongs to the selection where its
 * neighbours' numbers and times do, as nobody knows what it was.
 */
class RecordSieve : public Archive::Visitor
{
public:
    //! Both must outlive this.
    RecordSieve(Selection &selected, EventKinds &eventKinds)
        : selection(selected)
        , kinds(eventKinds)
        , isLastInTime(selection.takesEveryTime())
    {
    }

    //! Leaves out all that may be no record as it was made. It counts as damage all the same.
    void showWholeOnly(bool isWanted) { wholeOnly = isWanted; }
    //! What comes next does not follow what came last.
    void begin();
    //! What was lost last has nothing behind it, or the record with a number.
    void end();
    void end(quint64 numberBehind, const Instant &timeBehind) { follow(numberBehind, timeBehind); }

    //! The file that comes next, which must outlive what is made of it.
    void useFile(const Archive::FileBytes &opened) { file = &opened; }
    void record(const Archive::Place &place, const Archive::Record &record) final;
    void lost(const Archive::Place &place, Archive::Fault reason) final;

    //! Whether there was any damage within what is selected by number and time.
    [[nodiscard]] bool isDamaged() const { return damaged; }
    //! The first record with a number since begin(); 0 where there was none.
    [[nodiscard]] quint64 firstNumber() const { return first; }
    [[nodiscard]] const Instant &firstTime() const { return timeOfFirst; }
    //! The record's text, where its event is known; valid until the next one is made.
    std::string_view messageOf(const RecordView &record);

protected:
    //! A record that is selected. Its text is there where \a record has it already.
    virtual void selected(RecordView &record) = 0;
    virtual void lostBetween(const Archive::Place &place, Archive::Fault reason) = 0;
    virtual void missing(const Archive::NumberRange &numbers) = 0;

    //! From now on damage counts, or does not.
    void countDamage(bool isCounted) { countsDamage = isCounted; }
    void noticeDamage() { damaged = damaged || countsDamage; }

private:
    struct Lost {
        Archive::Place place;
        Archive::Fault reason = Archive::Fault::None;
    };

    void follow(quint64 number, const Instant &time);
    void decideLost(quint64 numberBehind, bool isBehindInTime);

    Selection &selection;
    EventKinds &kinds;
    const Archive::FileBytes *file = nullptr;
    std::string message;
    std::vector<Lost> pending; //!< since the last record with a number
    quint64 last = 0;          //!< its number; 0 where there is none
    bool isLastInTime;         //!< whether its time is selected; without one: whether all are
    quint64 first = 0;
    Instant timeOfFirst;
    bool countsDamage = true;
    bool wholeOnly = false;
    bool damaged = false;
};

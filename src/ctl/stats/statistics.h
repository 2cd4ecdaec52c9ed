// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archiverecord.h"
#include "archive/numberset.h"
#include "ctl/stats/tally.h"
#include "ctl/stats/timehistogram.h"
#include "ctl/stats/wallclock.h"
#include "ctl/timepoint.h"

#include <QString>

#include <string>
#include <string_view>
#include <vector>

//! The log files in which records were counted.
struct CountedFiles {
    QString folder;
    quint64 count = 0;
    quint64 size = 0;       //!< of all together, in bytes
    bool isComplete = true; //!< or one could not be read to its end
};

/*!
 * Counts records, which come in the order of the log, and what is wrong between them.
 *
 * Memory: less than 10 MiB, whatever there is to count.
 */
class Statistics
{
public:
    //! Of lists of what is wrong no more is kept than anybody reads.
    static constexpr size_t mostRanges = 1000;
    static constexpr size_t mostSteps = 10;
    //! Ranges of numbers between which there are others, to know which are repeated.
    static constexpr size_t mostSeen = 16384;

    //! What is counted of a record.
    struct Facts {
        quint64 number = 0;
        Instant time; //!< before the year 10000
        qint32 eventId = 0;
        bool isKnown = false; //!< the event, to the catalogue
        std::string_view path;
        quint64 size = 0; //!< in bytes
        Archive::State state = Archive::State::Whole;
    };

    struct Numbers {
        quint64 lowest = 0; //!< 0: there is none
        quint64 highest = 0;
        quint64 restarts = 0; //!< how often one is not above the one before
    };
    //! Numbers that no record has.
    struct Missing {
        quint64 numbers = 0; //!< or as many as fit
        quint64 gaps = 0;
        std::vector<Archive::NumberRange> ranges; //!< the first gaps
    };
    //! Numbers that several records have.
    struct Repeated {
        quint64 numbers = 0;
        std::vector<Archive::NumberRange> ranges; //!< the lowest ones
        bool isComplete = true;                   //!< or there were too many to know all
    };
    //! From a record to the next one, which is earlier.
    struct StepBack {
        quint64 number = 0; //!< of the next one
        Instant from;
        Instant to;
    };
    struct Clock {
        Instant earliest;
        Instant latest;
        bool isKnown = false; //!< whether there was a time at all
        quint64 stepsBack = 0;
        std::vector<StepBack> largest; //!< of those, the largest first
    };
    struct Damage {
        quint64 damaged = 0;    //!< records
        quint64 unreadable = 0; //!< of those, the ones that are counted by nothing but their size
        quint64 likely = 0;     //!< records that only look whole
        quint64 places = 0;     //!< stretches that are no record
        quint64 lostBytes = 0;  //!< in those
    };

    explicit Statistics(WallClock::Zone zone)
        : wallClock(zone)
    {
    }

    void add(const Facts &facts);
    //! A damaged record whose number, time or path cannot be right.
    void addUnreadable(quint64 size);
    void addMissing(const Archive::NumberRange &numbers);
    void addLost(quint64 bytes);

    //! All records.
    [[nodiscard]] const Amount &total() const { return all; }
    [[nodiscard]] const Tally<qint32> &knownEvents() const { return known; }
    [[nodiscard]] const Tally<qint32> &unknownEvents() const { return unknown; }
    [[nodiscard]] const Tally<std::string> &paths() const { return emitters; }
    //! By what the clock on the wall showed.
    [[nodiscard]] const TimeHistogram &times() const { return histogram; }
    [[nodiscard]] const Numbers &numbers() const { return range; }
    [[nodiscard]] const Missing &missing() const { return gaps; }
    [[nodiscard]] Repeated repeated() const;
    [[nodiscard]] const Clock &clock() const { return clockFacts; }
    [[nodiscard]] const Damage &damage() const { return harm; }

private:
    void addNumber(quint64 number);
    void addTime(const Facts &facts);
    void noticeStepBack(const StepBack &step);

    WallClock wallClock;
    Amount all;
    Tally<qint32> known;
    Tally<qint32> unknown;
    Tally<std::string> emitters;
    TimeHistogram histogram;
    Numbers range;
    Archive::NumberSet seen{mostSeen};
    quint64 lastNumber = 0;
    Missing gaps;
    Clock clockFacts;
    Instant lastTime;
    Damage harm;
};

//! From an earlier point in time to a later one, in microseconds; at most \c INT64_MAX.
qint64 microsecondsBetween(const Instant &earlier, const Instant &later);

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/stats/tally.h"

#include <QtGlobal>

#include <map>
#include <vector>

//! A span that a clock or a calendar has marks for: 15 minutes, a day, a month.
struct TimeStep {
    enum class Unit : quint8 { Second, Month };

    Unit unit = Unit::Second;
    qint64 count = 1; //!< of the unit

    //! The beginning of the step that a time lies in; weeks begin on Mondays.
    [[nodiscard]] qint64 floor(qint64 seconds) const;
    //! Of the step behind one that begins then.
    [[nodiscard]] qint64 next(qint64 begin) const;
    //! How many there are from the beginning of one to that of another.
    [[nodiscard]] qint64 between(qint64 begin, qint64 end) const;
};

/*!
 * Counts records over time, whatever the order in which they come. Empty stretches take no
 * memory, so a clock that began in 1970 makes no other day less clear.
 *
 * Times are seconds since 1970, up to the year 9999, as WallClock gives them.
 *
 * Memory: some 600 KiB. Where more cells would be needed they become larger, to no effect on
 * what bars() says.
 */
class TimeHistogram
{
public:
    TimeHistogram() = default;
    ~TimeHistogram() = default;
    Q_DISABLE_COPY_MOVE(TimeHistogram)

    struct Bar {
        qint64 begin = 0;
        qint64 end = 0;
        Amount amount;
    };
    //! Those with records alone, the earliest first.
    struct Bars {
        TimeStep step;
        std::vector<Bar> bars;
    };

    static constexpr size_t mostRows = 100;
    //! Up to so many empty steps in a row are rows of their own; more are one.
    static constexpr qint64 mostEmptyRows = 2;
    //! Rows of the latter kind: a clock that began in 1970, and breaks.
    static constexpr size_t mostBreaks = 3;

    void add(qint64 seconds, const Amount &amount);

    /*!
     * In the smallest step with which there are no more than \a rows rows, from 24 to
     * mostRows, and of these no more than half are empty and mostBreaks are breaks.
     */
    [[nodiscard]] Bars bars(size_t rows) const;

private:
    using Cells = std::map<qint64, Amount>; // by where they begin

    static constexpr size_t mostCells = 8192;

    void enlarge();
    [[nodiscard]] bool fill(Bars &made, size_t rows) const;

    Cells cells;
    size_t size = 0; //!< of the cells: an index of the steps for them
    Cells::iterator current = cells.end();
    qint64 currentEnd = 0;
};

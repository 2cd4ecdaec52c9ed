// SPDX-License-Identifier: Apache-2.0
#include "ctl/stats/timehistogram.h"

#include <QDate>

#include <iterator>
#include <utility>

namespace
{

constexpr qint64 minute = 60;
constexpr qint64 hour = 60 * minute;
constexpr qint64 day = 24 * hour;
constexpr qint64 week = 7 * day;
constexpr qint64 firstMonday = 4 * day; // 1970-01-05
constexpr qint64 year = 12;             // months

constexpr auto inSeconds = TimeStep::Unit::Second;
constexpr auto inMonths = TimeStep::Unit::Month;

//! What bars are made of.
constexpr TimeStep steps[] = {
    {inSeconds, 1},
    {inSeconds, 2},
    {inSeconds, 5},
    {inSeconds, 10},
    {inSeconds, 15},
    {inSeconds, 30},
    {inSeconds, minute},
    {inSeconds, 2 * minute},
    {inSeconds, 5 * minute},
    {inSeconds, 10 * minute},
    {inSeconds, 15 * minute},
    {inSeconds, 30 * minute},
    {inSeconds, hour},
    {inSeconds, 2 * hour},
    {inSeconds, 3 * hour},
    {inSeconds, 6 * hour},
    {inSeconds, 12 * hour},
    {inSeconds, day},
    {inSeconds, week},
    {inMonths, 1},
    {inMonths, 3},
    {inMonths, year},
    {inMonths, 10 * year},
    {inMonths, 100 * year},
    {inMonths, 1000 * year},
};

/*!
 * What cells are made of. Each lies within every larger step for bars; and where there were
 * too many cells of the size before, there are still more than bars can be.
 */
constexpr TimeStep cellSizes[] = {{inSeconds, 1},   {inSeconds, minute}, {inSeconds, hour},
                                  {inSeconds, day}, {inMonths, 1},       {inMonths, year}};

qint64 floorTo(qint64 value, qint64 step)
{
    const qint64 rest = value % step;
    return value - (rest < 0 ? rest + step : rest);
}

const QDate &epoch()
{
    static const QDate date(1970, 1, 1);
    return date;
}

//! Since the beginning of the calendar.
qint64 monthOf(qint64 seconds)
{
    const QDate date = epoch().addDays(floorTo(seconds, day) / day);
    return qint64(date.year()) * year + date.month() - 1;
}

qint64 beginOfMonth(qint64 month)
{
    return epoch().daysTo(QDate(int(month / year), int(month % year) + 1, 1)) * day;
}

} // namespace

qint64 TimeStep::floor(qint64 seconds) const
{
    if (unit == Unit::Month) {
        return beginOfMonth(floorTo(monthOf(seconds), count));
    }
    const qint64 mark = count == week ? firstMonday : 0;
    return floorTo(seconds - mark, count) + mark;
}

qint64 TimeStep::next(qint64 begin) const
{
    return unit == Unit::Month ? beginOfMonth(monthOf(begin) + count) : begin + count;
}

qint64 TimeStep::between(qint64 begin, qint64 end) const
{
    return (unit == Unit::Month ? monthOf(end) - monthOf(begin) : end - begin) / count;
}

void TimeHistogram::add(qint64 seconds, const Amount &amount)
{
    if (current == cells.end() || seconds < current->first || seconds >= currentEnd) {
        while (cells.size() >= mostCells) {
            enlarge();
        }
        const qint64 begin = cellSizes[size].floor(seconds);
        current = cells.try_emplace(begin).first;
        currentEnd = cellSizes[size].next(begin);
    }
    current->second.add(amount);
}

void TimeHistogram::enlarge()
{
    const TimeStep &larger = cellSizes[++size];
    Cells left;
    for (const auto &[begin, amount] : cells) {
        left[larger.floor(begin)].add(amount);
    }
    cells = std::move(left);
}

TimeHistogram::Bars TimeHistogram::bars(size_t rows) const
{
    Bars made;
    for (const TimeStep &step : steps) {
        made.step = step;
        if (fill(made, rows)) {
            break;
        }
    }
    return made;
}

//! Whether they are fit to be shown; those of the largest step are, whatever there is.
bool TimeHistogram::fill(Bars &made, size_t rows) const
{
    const TimeStep &step = made.step;
    std::vector<Bar> &bars = made.bars;
    size_t empty = 0;
    size_t breaks = 0;
    bars.clear();
    for (const auto &[begin, amount] : cells) {
        if (!bars.empty() && begin < bars.back().end) {
            bars.back().amount.add(amount);
            continue;
        }
        const qint64 start = step.floor(begin);
        const qint64 left = bars.empty() ? 0 : step.between(bars.back().end, start);
        breaks += left > mostEmptyRows ? 1 : 0;
        empty += left > mostEmptyRows ? 0 : size_t(left);
        bars.push_back({start, step.next(start), amount});
        if (bars.size() + empty + breaks > rows) {
            return false;
        }
    }
    return empty <= bars.size() && breaks <= mostBreaks;
}

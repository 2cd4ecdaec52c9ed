// SPDX-License-Identifier: Apache-2.0
#include "archive/numberset.h"

#include <iterator>
#include <limits>

namespace Archive
{

//! Adds a range that touches the ranges beside it at most.
void NumberSet::add(Ranges &ranges, NumberRange range)
{
    auto next = ranges.upper_bound(range.last);
    if (next != ranges.begin()) {
        const auto before = std::prev(next);
        if (before->second >= range.last) {
            return; // it is there
        }
        if (before->second + 1 == range.first) {
            range.first = before->first;
            ranges.erase(before);
        }
    }
    if (next != ranges.end() && next->first == range.last + 1) {
        range.last = next->second;
        ranges.erase(next);
    }
    ranges[range.first] = range.last;
}

//! Takes the range of a number, or a new one, for the one that grows.
void NumberSet::goOnAt(quint64 number)
{
    current = {number, number};
    auto next = others.upper_bound(number);
    if (next != others.begin()) {
        const auto before = std::prev(next);
        if (before->second >= number || before->second + 1 == number) {
            const bool isKnown = before->second >= number;
            current = {before->first, isKnown ? before->second : number};
            next = others.erase(before);
            if (isKnown && (twice.size() < most)) {
                add(twice, {number, number});
            } else if (isKnown) {
                cut = true;
            }
        }
    }
    roof = next != others.end() ? next->first : std::numeric_limits<quint64>::max();
}

void NumberSet::insertElsewhere(quint64 number)
{
    if (current.first != 0) {
        if (others.size() >= most) {
            cut = true;
            return;
        }
        add(others, current);
    }
    goOnAt(number);
}

NumberSet::Ranges NumberSet::all() const
{
    Ranges ranges = others;
    if (current.first != 0) {
        add(ranges, current);
    }
    return ranges;
}

std::vector<NumberRange> NumberSet::missing() const
{
    std::vector<NumberRange> gaps;
    quint64 next = 0;
    for (const auto &[first, last] : all()) {
        if (next != 0) {
            gaps.push_back({next, first - 1});
        }
        next = last + 1;
    }
    return gaps;
}

std::vector<NumberRange> NumberSet::repeated() const
{
    std::vector<NumberRange> ranges;
    ranges.reserve(twice.size());
    for (const auto &[first, last] : twice) {
        ranges.push_back({first, last});
    }
    return ranges;
}

} // namespace Archive

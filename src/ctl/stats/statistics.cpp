// SPDX-License-Identifier: Apache-2.0
#include "ctl/stats/statistics.h"

#include <algorithm>
#include <limits>

qint64 microsecondsBetween(const Instant &earlier, const Instant &later)
{
    constexpr qint64 second = 1000000; // years up to 9999 fit
    return qint64(later.seconds - earlier.seconds) * second + qint64(later.microseconds)
        - qint64(earlier.microseconds);
}

void Statistics::add(const Facts &facts)
{
    const Amount amount{1, facts.size};
    all.add(amount);
    (facts.isKnown ? known : unknown).add(facts.eventId, amount);
    emitters.add(facts.path, amount);
    harm.damaged += facts.state == Archive::State::Damaged ? 1 : 0;
    harm.likely += facts.state == Archive::State::Likely ? 1 : 0;
    addTime(facts);
    addNumber(facts.number);
}

void Statistics::addUnreadable(quint64 size)
{
    all.add({1, size});
    ++harm.damaged;
    ++harm.unreadable;
}

void Statistics::addNumber(quint64 number)
{
    range.lowest = range.lowest == 0 ? number : std::min(range.lowest, number);
    range.highest = std::max(range.highest, number);
    range.restarts += number <= lastNumber ? 1 : 0;
    lastNumber = number;
    seen.insert(number);
}

void Statistics::addTime(const Facts &facts)
{
    histogram.add(wallClock.at(facts.time.seconds), {1, facts.size});
    if (!clockFacts.isKnown) {
        clockFacts.isKnown = true;
        clockFacts.earliest = facts.time;
        clockFacts.latest = facts.time;
    } else if (facts.time < lastTime) {
        noticeStepBack({facts.number, lastTime, facts.time});
    }
    clockFacts.earliest = std::min(clockFacts.earliest, facts.time);
    clockFacts.latest = std::max(clockFacts.latest, facts.time);
    lastTime = facts.time;
}

void Statistics::noticeStepBack(const StepBack &step)
{
    ++clockFacts.stepsBack;
    std::vector<StepBack> &largest = clockFacts.largest;
    const auto isLarger = [](const StepBack &left, const StepBack &right) {
        return microsecondsBetween(left.to, left.from) > microsecondsBetween(right.to, right.from);
    };
    largest.insert(std::upper_bound(largest.begin(), largest.end(), step, isLarger), step);
    if (largest.size() > mostSteps) {
        largest.pop_back();
    }
}

void Statistics::addMissing(const Archive::NumberRange &numbers)
{
    const quint64 count = numbers.last - numbers.first + 1;
    const quint64 room = std::numeric_limits<quint64>::max() - gaps.numbers;
    gaps.numbers += std::min(count, room); // only of numbers that damage makes
    ++gaps.gaps;
    if (gaps.ranges.size() < mostRanges) {
        gaps.ranges.push_back(numbers);
    }
}

void Statistics::addLost(quint64 bytes)
{
    ++harm.places;
    harm.lostBytes += bytes;
}

Statistics::Repeated Statistics::repeated() const
{
    Repeated found;
    if (range.restarts == 0) {
        return found; // numbers rose all along
    }
    found.ranges = seen.repeated();
    for (const Archive::NumberRange &numbers : found.ranges) {
        found.numbers += numbers.last - numbers.first + 1;
    }
    found.ranges.resize(std::min(found.ranges.size(), mostRanges));
    found.ranges.shrink_to_fit();
    found.isComplete = !seen.isCut();
    return found;
}

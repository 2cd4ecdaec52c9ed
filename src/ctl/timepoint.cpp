// SPDX-License-Identifier: Apache-2.0
#include "ctl/timepoint.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include <ctime>

Instant Instant::now()
{
    timespec time{};
    (void)clock_gettime(CLOCK_REALTIME, &time);
    return {quint64(time.tv_sec), quint32(time.tv_nsec / 1000)};
}

namespace TimePoint
{
namespace
{

constexpr qint64 second = 1000000; // in microseconds, as all time spans here
constexpr qint64 minute = 60 * second;
constexpr qint64 hour = 60 * minute;
constexpr qint64 day = 24 * hour;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

//! Takes a text apart from its front. What is not there is not taken.
class Scanner
{
public:
    explicit Scanner(std::string_view scanned)
        : text(scanned)
    {
    }

    [[nodiscard]] bool isAtEnd() const { return text.empty(); }
    bool take(char c) { return take(std::string_view(&c, 1)); }
    bool take(std::string_view word)
    {
        const bool found = text.substr(0, word.size()) == word;
        text.remove_prefix(found ? word.size() : 0);
        return found;
    }
    void skipBlanks()
    {
        while (take(' ')) { }
    }
    //! A number of so many digits; more of them stay.
    std::optional<qint64> number(size_t fewest, size_t most)
    {
        size_t count = 0;
        qint64 value = 0;
        while (count < text.size() && isDigit(text[count]) && count < most) {
            value = 10 * value + (text[count] - '0');
            ++count;
        }
        if (count < fewest) {
            return std::nullopt;
        }
        text.remove_prefix(count);
        return value;
    }
    //! What follows a decimal point, of a unit; 0 where there is none.
    std::optional<qint64> fraction(qint64 unit)
    {
        if (!take('.') && !take(',')) {
            return 0;
        }
        qint64 value = 0;
        size_t count = 0;
        for (; count < text.size() && isDigit(text[count]); ++count) {
            unit /= 10;
            value += unit * (text[count] - '0');
        }
        text.remove_prefix(count);
        return count > 0 ? std::optional(value) : std::nullopt;
    }
    std::string_view letters()
    {
        size_t count = 0;
        while (count < text.size() && text[count] >= 'a' && text[count] <= 'z') {
            ++count;
        }
        const std::string_view word = text.substr(0, count);
        text.remove_prefix(count);
        return word;
    }

private:
    std::string_view text;
};

Instant instantOf(qint64 microseconds)
{
    const qint64 since1970 = std::max<qint64>(microseconds, 0);
    return {quint64(since1970 / second), quint32(since1970 % second)};
}

std::optional<qint64> unitOf(std::string_view name)
{
    static constexpr struct {
        std::string_view name;
        qint64 span;
    } units[] = {{"us", 1},          {"ms", 1000},        {"s", second},     {"sec", second},
                 {"second", second}, {"seconds", second}, {"m", minute},     {"min", minute},
                 {"minute", minute}, {"minutes", minute}, {"h", hour},       {"hour", hour},
                 {"hours", hour},    {"d", day},          {"day", day},      {"days", day},
                 {"w", 7 * day},     {"week", 7 * day},   {"weeks", 7 * day}};
    const auto *const found = std::find_if(std::begin(units), std::end(units),
                                           [name](const auto &unit) { return unit.name == name; });
    return found != std::end(units) ? std::optional(found->span) : std::nullopt;
}

//! One part of a time span, such as "2d".
std::optional<qint64> readPart(Scanner &in)
{
    const std::optional<qint64> count = in.number(1, 9);
    Scanner behind = in;
    if (!count || !behind.fraction(1)) {
        return std::nullopt;
    }
    behind.skipBlanks();
    const std::optional<qint64> unit = unitOf(behind.letters());
    if (!unit || *count > std::numeric_limits<qint64>::max() / 4 / *unit) {
        return std::nullopt;
    }
    const qint64 part = in.fraction(*unit).value_or(0);
    in = behind;
    return *count * *unit + part;
}

//! A time span, as a distance from now.
std::optional<Instant> readSpan(Scanner in, const Instant &now)
{
    constexpr qint64 longest = std::numeric_limits<qint64>::max() / 4;
    const bool isAhead = in.take('+') || in.take("in ");
    if (!isAhead) {
        in.take('-');
    }
    qint64 span = 0;
    do {
        const std::optional<qint64> part = readPart(in);
        if (!part || span > longest - *part) {
            return std::nullopt;
        }
        span += *part;
        in.skipBlanks();
    } while (!in.isAtEnd() && !in.take("ago"));
    if (!in.isAtEnd()) {
        return std::nullopt;
    }
    const qint64 present = qint64(now.seconds) * second + now.microseconds;
    return instantOf(isAhead ? present + span : present - span);
}

std::optional<Instant> readUnixTime(Scanner in)
{
    const bool isMarked = in.take('@');
    const std::optional<qint64> seconds = in.number(isMarked ? 1 : 9, 12);
    const std::optional<qint64> part = seconds ? in.fraction(second) : std::nullopt;
    if (!part || !in.isAtEnd()) {
        return std::nullopt;
    }
    return instantOf(*seconds * second + *part);
}

//! A day and a time of day that are read one after another.
struct Clock {
    std::tm parts{};
    qint64 microseconds = 0;
    std::optional<qint64> offset; //!< of the zone from UTC, in seconds; none: local time
};

//! A day by its name; false where there is none.
bool readNamedDay(Scanner &in, Clock &clock)
{
    if (in.take("yesterday")) {
        --clock.parts.tm_mday;
    } else if (in.take("tomorrow")) {
        ++clock.parts.tm_mday;
    } else {
        return in.take("today");
    }
    return true;
}

//! Whether a day is one of its month.
bool isInCalendar(const std::tm &parts)
{
    std::tm same{};
    same.tm_year = parts.tm_year;
    same.tm_mon = parts.tm_mon;
    same.tm_mday = parts.tm_mday;
    (void)timegm(&same);
    return same.tm_mon == parts.tm_mon && same.tm_mday == parts.tm_mday;
}

bool readDate(Scanner &in, Clock &clock)
{
    const std::optional<qint64> year = in.number(4, 4);
    const std::optional<qint64> month = year && in.take('-') ? in.number(2, 2) : std::nullopt;
    const std::optional<qint64> dayOfMonth = month && in.take('-') ? in.number(2, 2) : std::nullopt;
    if (!dayOfMonth) {
        return false;
    }
    clock.parts.tm_year = int(*year) - 1900;
    clock.parts.tm_mon = int(*month) - 1;
    clock.parts.tm_mday = int(*dayOfMonth);
    return isInCalendar(clock.parts);
}

bool readTimeOfDay(Scanner &in, Clock &clock)
{
    const std::optional<qint64> hours = in.number(2, 2);
    const std::optional<qint64> minutes = hours && in.take(':') ? in.number(2, 2) : std::nullopt;
    std::optional<qint64> seconds = 0;
    std::optional<qint64> part = 0;
    if (minutes && in.take(':')) {
        seconds = in.number(2, 2);
        part = seconds ? in.fraction(second) : std::nullopt;
    }
    if (!minutes || !part || *hours > 23 || *minutes > 59 || *seconds > 60) {
        return false;
    }
    clock.parts.tm_hour = int(*hours);
    clock.parts.tm_min = int(*minutes);
    clock.parts.tm_sec = int(*seconds);
    clock.microseconds = *part;
    return true;
}

bool readZone(Scanner &in, Clock &clock)
{
    in.skipBlanks();
    if (in.isAtEnd()) {
        return true;
    }
    if (in.take('Z') || in.take('z') || in.take("UTC")) {
        clock.offset = 0;
        return in.isAtEnd();
    }
    const bool isEast = in.take('+');
    if (!isEast && !in.take('-')) {
        return false;
    }
    const std::optional<qint64> hours = in.number(2, 2);
    in.take(':');
    const std::optional<qint64> minutes = in.isAtEnd() ? 0 : in.number(2, 2);
    if (!hours || !minutes || *hours > 23 || *minutes > 59 || !in.isAtEnd()) {
        return false;
    }
    const qint64 offset = *hours * 3600 + *minutes * 60;
    clock.offset = isEast ? offset : -offset;
    return true;
}

//! Midnight of the day of an instant.
Clock dayOf(const Instant &instant)
{
    Clock clock;
    const auto seconds = std::time_t(instant.seconds);
    (void)localtime_r(&seconds, &clock.parts);
    clock.parts.tm_hour = clock.parts.tm_min = clock.parts.tm_sec = 0;
    clock.parts.tm_isdst = -1; // the zone's rules say it
    return clock;
}

//! Of the local time zone from UTC at an instant.
std::time_t offsetAt(std::time_t instant)
{
    std::tm parts{};
    (void)localtime_r(&instant, &parts);
    return parts.tm_gmtoff;
}

std::time_t readLocal(std::tm parts, Reading reading)
{
    constexpr auto aDay = std::time_t(day / second);
    std::tm normalised = parts;
    const std::time_t wall = timegm(&normalised);
    // Where the zone's offset changes, the old one makes the first reading.
    std::time_t first = wall - offsetAt(wall - aDay);
    std::time_t last = wall - offsetAt(wall + aDay);
    if (reading == Reading::Second) {
        std::swap(first, last);
    }
    for (const std::time_t instant : {first, last}) {
        if (instant + offsetAt(instant) == wall) {
            return instant;
        }
    }
    return std::mktime(&parts); // a time that is left out, as when summer time begins
}

std::optional<Instant> readClock(Scanner in, const Instant &now, Reading reading)
{
    Clock clock = dayOf(now);
    Scanner front = in;
    const bool isTimeAlone = front.number(2, 2).has_value() && front.take(':');
    if (!isTimeAlone && !readNamedDay(in, clock) && !readDate(in, clock)) {
        return std::nullopt;
    }
    if (!in.isAtEnd()) {
        const bool isParted = isTimeAlone || in.take('T') || in.take('t') || in.take(' ');
        in.skipBlanks();
        if (!isParted || !readTimeOfDay(in, clock) || !readZone(in, clock)) {
            return std::nullopt;
        }
    }
    const std::time_t seconds = clock.offset ? timegm(&clock.parts) - std::time_t(*clock.offset)
                                             : readLocal(clock.parts, reading);
    return instantOf(qint64(seconds) * second + clock.microseconds);
}

} // namespace

std::optional<Instant> read(std::string_view text, const Instant &now, Reading reading)
{
    if (text == "now") {
        return now;
    }
    if (const std::optional<Instant> found = readUnixTime(Scanner(text))) {
        return found;
    }
    if (const std::optional<Instant> found = readSpan(Scanner(text), now)) {
        return found;
    }
    return readClock(Scanner(text), now, reading);
}

} // namespace TimePoint

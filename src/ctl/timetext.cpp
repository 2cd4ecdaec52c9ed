// SPDX-License-Identifier: Apache-2.0
#include "ctl/timetext.h"

#include "rendering/utf8text.h"

#include <ctime>
#include <iterator>

namespace
{

constexpr quint64 endOfYear9999 = 253402300800;
constexpr quint32 microsecondsPerSecond = 1000000;

void appendDigits(std::string &out, quint32 value, int digits)
{
    const size_t begin = out.size();
    out.append(size_t(digits), '0');
    for (size_t place = begin + size_t(digits); place > begin && value > 0; value /= 10) {
        out[--place] = char('0' + value % 10);
    }
}

//! Two digits of seconds and six behind the point.
void appendSeconds(std::string &out, quint32 seconds, quint32 microseconds)
{
    char text[] = "00.000000";
    text[0] = char('0' + seconds / 10);
    text[1] = char('0' + seconds % 10);
    for (char *digit = std::end(text) - 1; microseconds > 0; microseconds /= 10) {
        *--digit = char('0' + microseconds % 10);
    }
    out.append(text, sizeof text - 1);
}

bool isWritable(quint64 seconds, quint32 microseconds)
{
    return seconds < endOfYear9999 && microseconds < microsecondsPerSecond;
}

//! A date and a time of day up to the seconds.
void appendMinute(std::string &out, const std::tm &parts, char between)
{
    const struct {
        int value;
        int digits;
        char behind;
    } fields[] = {{parts.tm_year + 1900, 4, '-'},
                  {parts.tm_mon + 1, 2, '-'},
                  {parts.tm_mday, 2, between},
                  {parts.tm_hour, 2, ':'},
                  {parts.tm_min, 2, ':'}};
    for (const auto &field : fields) {
        appendDigits(out, quint32(field.value), field.digits);
        out += field.behind;
    }
}

void appendOffset(std::string &out, long seconds)
{
    out += seconds < 0 ? '-' : '+';
    const auto minutes = quint32((seconds < 0 ? -seconds : seconds) / 60);
    appendDigits(out, minutes / 60, 2);
    out += ':';
    appendDigits(out, minutes % 60, 2);
}

} // namespace

bool appendTime(std::string &out, quint64 seconds, quint32 microseconds)
{
    return TimeText(TimeStyle::Utc, {}).append(out, seconds, microseconds);
}

size_t TimeText::width() const
{
    switch (style) {
    case TimeStyle::Local:
        return 26;
    case TimeStyle::Utc:
        return 27;
    case TimeStyle::Iso:
        return 32;
    case TimeStyle::Unix:
        return 17;
    case TimeStyle::Relative:
        break;
    }
    return 14;
}

bool TimeText::append(std::string &out, quint64 seconds, quint32 microseconds)
{
    if (!isWritable(seconds, microseconds)) {
        return false;
    }
    if (style == TimeStyle::Relative) {
        appendRelative(out, seconds, microseconds);
        return true;
    }
    if (style == TimeStyle::Unix) {
        Utf8Text::append(out, seconds);
        out += '.';
        appendDigits(out, microseconds, 6);
        return true;
    }
    if (seconds / 60 != minute && !workOut(seconds)) {
        return false;
    }
    out += front;
    appendSeconds(out, quint32(seconds % 60), microseconds);
    out += back;
    return true;
}

//! Zones that lie no whole minutes from UTC are gone since long before there were records.
bool TimeText::workOut(quint64 seconds)
{
    const auto instant = std::time_t(seconds);
    std::tm parts{};
    const bool isUtc = style == TimeStyle::Utc;
    if ((isUtc ? gmtime_r(&instant, &parts) : localtime_r(&instant, &parts)) == nullptr) {
        return false;
    }
    front.clear();
    back.clear();
    appendMinute(front, parts, style == TimeStyle::Local ? ' ' : 'T');
    if (isUtc) {
        back = 'Z';
    } else if (style == TimeStyle::Iso) {
        appendOffset(back, parts.tm_gmtoff);
    }
    minute = seconds / 60;
    return true;
}

void TimeText::appendRelative(std::string &out, quint64 seconds, quint32 microseconds) const
{
    constexpr qint64 second = microsecondsPerSecond;
    const Instant present = now ? *now : Instant::now();
    const qint64 distance = (qint64(present.seconds) - qint64(seconds)) * second
        + qint64(present.microseconds) - qint64(microseconds);
    const qint64 span = distance < 0 ? -distance : distance;
    out += distance < 0 ? "in " : "";
    static constexpr struct {
        qint64 span;
        const char *name;
    } units[] = {{86400 * second, "d"}, {3600 * second, "h"}, {60 * second, "min"}, {second, "s"}};
    size_t unit = 0;
    while (unit < 3 && span < units[unit].span) {
        ++unit;
    }
    Utf8Text::append(out, span / units[unit].span);
    if (unit < 3) {
        out += units[unit].name;
        out += ' ';
        Utf8Text::append(out, span % units[unit].span / units[unit + 1].span);
        out += units[unit + 1].name;
    } else {
        out += '.';
        appendDigits(out, quint32(span % second), 6);
        out += 's';
    }
    out += distance < 0 ? "" : " ago";
}

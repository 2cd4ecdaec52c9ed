// SPDX-License-Identifier: Apache-2.0
#include "ctl/timetext.h"

#include <ctime>

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

} // namespace

bool appendTime(std::string &out, quint64 seconds, quint32 microseconds)
{
    const auto instant = std::time_t(seconds);
    std::tm parts{};
    if (seconds >= endOfYear9999 || microseconds >= microsecondsPerSecond
        || gmtime_r(&instant, &parts) == nullptr) {
        return false;
    }
    const struct {
        int value;
        int digits;
        char behind;
    } fields[]
        = {{parts.tm_year + 1900, 4, '-'}, {parts.tm_mon + 1, 2, '-'}, {parts.tm_mday, 2, 'T'},
           {parts.tm_hour, 2, ':'},        {parts.tm_min, 2, ':'},     {parts.tm_sec, 2, '.'},
           {int(microseconds), 6, 'Z'}};
    for (const auto &field : fields) {
        appendDigits(out, quint32(field.value), field.digits);
        out += field.behind;
    }
    return true;
}

// SPDX-License-Identifier: Apache-2.0
#include "ctl/stats/wallclock.h"

#include <ctime>

qint64 WallClock::at(quint64 seconds)
{
    constexpr quint64 quarterOfAnHour = 900; // no zone changes within one
    if (!isUtc && seconds / quarterOfAnHour != quarter) {
        const auto instant = std::time_t(seconds);
        std::tm parts{};
        distance = localtime_r(&instant, &parts) != nullptr ? qint64(parts.tm_gmtoff) : 0;
        quarter = seconds / quarterOfAnHour;
    }
    return qint64(seconds) + distance;
}

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

/*!
 * What a clock on the wall shows, as seconds since it showed 1970: days and hours of it begin
 * at whole ones, whatever the time zone. An hour that comes twice, when summer ends, is one.
 */
class WallClock
{
public:
    enum class Zone : quint8 { Local, Utc };

    explicit WallClock(Zone zone)
        : isUtc(zone == Zone::Utc)
    {
    }

    //! At so many seconds since 1970-01-01 UTC.
    [[nodiscard]] qint64 at(quint64 seconds);

private:
    static constexpr quint64 none = ~quint64(0);

    bool isUtc;
    quint64 quarter = none; //!< of an hour, that the distance belongs to
    qint64 distance = 0;    //!< from UTC, in seconds
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <optional>
#include <string_view>
#include <tuple>

//! A point in time, as records hold it.
struct Instant {
    quint64 seconds = 0; //!< since 1970-01-01 UTC
    quint32 microseconds = 0;

    //! By the system's clock.
    static Instant now();

    friend bool operator<(const Instant &left, const Instant &right)
    {
        return std::tie(left.seconds, left.microseconds)
            < std::tie(right.seconds, right.microseconds);
    }
};

namespace TimePoint
{

//! What read() takes, for who typed something else.
constexpr char accepted[] = "2026-11-21, \"2026-11-21 19:06:49.000787\", 2026-11-21T19:06:49Z, "
                            "19:06, now, today, yesterday, 1h, \"2d 3h ago\", @1795288009";

//! Which one is meant of a local time that comes twice, as when summer time ends.
enum class Reading : quint8 { First, Second };

/*!
 * What somebody means by a text: a date, a time of day, or both, in the local time zone
 * unless the text says another one; a time span, which counts back from \a now; or
 * seconds since 1970. Every form is taken in which the tool prints times. A day without a
 * time is its beginning; what lies before 1970 is 1970. Nothing for any other text.
 */
std::optional<Instant> read(std::string_view text, const Instant &now, Reading reading);

} // namespace TimePoint

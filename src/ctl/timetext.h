// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/plan.h"

#include <string>

/*!
 * Appends a time as RFC 3339 writes it, in UTC with six digits. False, and nothing
 * appended, for one behind the year 9999 or with a million microseconds and more, which
 * only damage makes.
 */
[[nodiscard]] bool appendTime(std::string &out, quint64 seconds, quint32 microseconds);

//! Writes many times in one style. What two in a row have in common is worked out once.
class TimeText
{
public:
    //! Relative times count from \a present.
    TimeText(TimeStyle timeStyle, const Instant &present)
        : style(timeStyle)
        , now(present)
    {
    }

    //! False, and nothing appended, for the times that appendTime() refuses.
    [[nodiscard]] bool append(std::string &out, quint64 seconds, quint32 microseconds);
    //! How many characters it takes at most, but for odd times.
    [[nodiscard]] size_t width() const;

private:
    [[nodiscard]] bool workOut(quint64 seconds);
    void appendRelative(std::string &out, quint64 seconds, quint32 microseconds) const;

    static constexpr quint64 none = ~quint64(0);

    TimeStyle style;
    Instant now;
    quint64 minute = none; //!< that the texts belong to; the seconds vary
    std::string front;     //!< up to the seconds
    std::string back;      //!< behind the microseconds
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <array>
#include <functional>
#include <string>
#include <string_view>

/*!
 * Remembers of each sender the serial number of the message that was handled last. Each counts
 * its messages, so that one which follows upon it has none of the same sender in between.
 *
 * Of two that meet in one place the former is forgotten, which costs a question each time.
 * Nothing is allocated for a name as the bus gives it, since what stays from a storm of senders
 * would keep the memory around it.
 */
class Senders
{
public:
    [[nodiscard]] bool follows(std::string_view sender, quint32 serial) const
    {
        const Last &last = places[placeOf(sender)];
        return last.sender == sender && last.serial + 1 == serial;
    }
    //! Whether it is that message or one before it, as far as numbers tell.
    [[nodiscard]] bool isHandled(std::string_view sender, quint32 serial) const
    {
        const Last &last = places[placeOf(sender)];
        return last.sender == sender && qint32(serial - last.serial) <= 0;
    }
    void handled(std::string_view sender, quint32 serial)
    {
        Last &last = places[placeOf(sender)];
        last.sender = sender;
        last.serial = serial;
    }

private:
    struct Last {
        std::string sender;
        quint32 serial = 0;
    };
    static constexpr size_t size = 1024;

    static size_t placeOf(std::string_view sender)
    {
        return std::hash<std::string_view>()(sender) % size;
    }

    std::array<Last, size> places;
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <map>
#include <vector>

namespace Archive
{

//! Numbers from a first to a last one, both included.
struct NumberRange {
    quint64 first = 0;
    quint64 last = 0;
};

/*!
 * The record numbers of a folder. Memory is for ranges, not numbers: in a healthy log
 * there is one. Once there are as many as may be, numbers that would make another are not
 * taken. A range takes some 64 bytes, one of repeated numbers as much.
 */
class NumberSet
{
public:
    static constexpr size_t mostRanges = 65536;

    explicit NumberSet(size_t ranges = mostRanges)
        : most(ranges)
    {
    }

    void insert(quint64 number)
    {
        if (number == current.last + 1 && number < roof) {
            current.last = number; // as a healthy log has it
        } else {
            insertElsewhere(number);
        }
    }

    //! Between the lowest and the highest number there are, ascending.
    [[nodiscard]] std::vector<NumberRange> missing() const;
    //! Inserted more than once, ascending.
    [[nodiscard]] std::vector<NumberRange> repeated() const;
    //! Whether there were too many ranges to know all of them.
    [[nodiscard]] bool isCut() const { return cut; }

private:
    using Ranges = std::map<quint64, quint64>; // from the first number to the last

    void insertElsewhere(quint64 number);
    static void add(Ranges &ranges, NumberRange range);
    void goOnAt(quint64 number);
    [[nodiscard]] Ranges all() const;

    size_t most;
    Ranges others;       //!< all but the current one
    NumberRange current; //!< that is growing; 0 where there is none, as no record has it
    quint64 roof = 0;    //!< where the next range begins, which the current one must not reach
    Ranges twice;
    bool cut = false;
};

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/valuefit.h"

#include <string_view>
#include <vector>

namespace Archive
{

//! Bytes that look like what stands in front of a record's values.
struct Head {
    quint64 logNr = 0;
    qint32 position = 0;
    qint32 valuesBegin = 0;
    qint32 eventId = 0;
    qint32 firstCandidate = -1; //!< of those that begin with it
    ValueEnds ends;
};

//! Bytes that look like a whole record.
struct Candidate {
    qint32 head = 0; //!< index
    qint32 end = 0;
    qint32 next = -1; //!< index of the next shorter one with this head
    Fit fit = Fit::Unknown;
};

//! The end of a record whose beginning is none.
struct LooseEnd {
    qint32 end = 0;
    qint32 next = -1; //!< index of another one for the same beginning
};

//! What may be part of a chain, in the bytes of a window. See ChainSearch for the bounds.
class Candidates
{
public:
    //! Both must outlive this.
    Candidates(std::string_view window, ValueFit &fit);

    std::string_view bytes;
    std::vector<Head> heads;           //!< ascending
    std::vector<Candidate> candidates; //!< ascending by their ends

    //! Index of the head at a position; -1 where there is none.
    [[nodiscard]] qint32 headAt(qint32 position) const { return headOf[size_t(position)]; }
    //! Index of the first end without a head that counts from a position, or -1.
    [[nodiscard]] qint32 looseEndAt(qint32 position) const { return looseEndOf[size_t(position)]; }
    [[nodiscard]] const LooseEnd &looseEnd(qint32 index) const { return looseEnds[size_t(index)]; }
    //! Whether a candidate ends at a position.
    [[nodiscard]] bool isEnd(qint32 position) const { return ends[size_t(position)]; }
    //! Whether one ends there and another one begins.
    [[nodiscard]] bool goesOnAt(qint32 position) const
    {
        return isEnd(position) && headAt(position) >= 0
            && heads[size_t(headAt(position))].firstCandidate >= 0;
    }
    //! How many runs of touching candidates begin in a stretch.
    [[nodiscard]] int runsIn(qint32 begin, qint32 end) const
    {
        return runs[size_t(end)] - runs[size_t(begin)];
    }
    //! At how many places in it candidates begin.
    [[nodiscard]] int beginningsIn(qint32 begin, qint32 end) const
    {
        return beginnings[size_t(end)] - beginnings[size_t(begin)];
    }
    [[nodiscard]] bool hasEndMark(qint32 end) const;
    [[nodiscard]] bool hasTrailer(qint32 begin, qint32 end) const;
    /*!
     * The lowest number above a candidate's own that stands in its values as that of a
     * record; where that cannot be told, the next one. Highest where there is none.
     */
    [[nodiscard]] quint64 lowestHeld(const Candidate &candidate) const;

private:
    void findHeads(const ValueFit &fit);
    void findEnds();
    void findBeginnings(qint32 end);
    void judge(ValueFit &fit);
    void countRuns();

    IndexedTextCheck text;
    std::vector<qint32> headOf;
    std::vector<qint32> looseEndOf;
    std::vector<LooseEnd> looseEnds;
    std::vector<bool> ends;
    std::vector<qint32> runs;       //!< that begin before each position
    std::vector<qint32> beginnings; //!< before each position
};

} // namespace Archive

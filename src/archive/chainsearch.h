// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filescan.h"
#include "archive/valuefit.h"

#include <string_view>
#include <vector>

namespace Archive
{

/*!
 * Finds the records of a damaged file: the chain from its start to its end that explains
 * its bytes best, that is at the least cost.
 *
 * Links of a chain are
 *   - candidates, bytes that look like a whole record: free;
 *   - damaged records: a head and values with a wrong end, an end with a wrong head
 *     that lies between two others, a head whose record the file's end cuts off: cheap;
 *   - gaps, bytes that nothing explains: dear, and dearer for each run of touching
 *     candidates that they leave out.
 * A number that does not rise costs a little, and so do values that contradict the
 * catalogue.
 *
 * A candidate may hold others: a sender of numbers can spell a record in them. Such
 * candidates stay dead, as the one around them is free where its values fill it to the
 * byte. Where they do not, or nobody knows, a wrong length may have made it take in whole
 * records: it costs as much as a gap for each run within, which is given back when the
 * next number shows that none of those records is missing.
 *
 * Bounds, for a window of n bytes: one look for a head at each byte, at most
 * longestRecord / 65536 looks for a beginning at each end mark, of which at most
 * mostCandidates count, and mostStates chains that end at a byte, which differ in their
 * last number. So time is linear in n, with a factor of at most
 * mostStates * mostStates * (mostCandidates + 3), and memory with one of
 * mostStates times the size of a state, at most at every third byte.
 */
class ChainSearch
{
public:
    //! Longer records are not looked for in damaged files.
    static constexpr qint64 longestRecord = 262144;
    static constexpr int mostCandidates = 2;
    static constexpr int mostStates = 6;
    //! No number that can be trusted lies farther from the one before.
    static constexpr quint64 farthestNumber = quint64(1) << 20;

    //! Learns about events from what is searched; \a values must outlive this.
    explicit ChainSearch(ValueFit &values)
        : fit(values)
    {
    }

    /*!
     * The pieces of a file's next bytes, each from the start of these bytes. \a isLast where
     * they end the file; before that the last longestRecord bytes are only looked at, and
     * the pieces end somewhere before them or at them, but never where they began.
     */
    std::vector<Piece> search(std::string_view bytes, bool isLast);

    //! How many states the last search has made.
    [[nodiscard]] size_t stateCount() const { return states; }

private:
    static void cutOff(std::vector<Piece> &pieces, qint64 limit);
    void remember(const std::vector<Piece> &pieces);

    ValueFit &fit;
    quint64 lastNumber = 0; //!< of the record before the bytes
    bool isInGap = false;   //!< the bytes before are lost
    size_t states = 0;
};

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#include "archive/judgement.h"

#include "archive/chainsearch.h"

#include <algorithm>
#include <limits>

namespace Archive
{
namespace
{

/*!
 * Finds numbers that cannot be right among the pieces of a file: one that does not lie
 * between those beside it, while they rise, and a last one far from the one before.
 */
class NumberCheck
{
public:
    NumberCheck(std::vector<Piece> &all, quint64 numberBefore, bool isLastPart)
        : pieces(all)
        , before(numberBefore)
        , isLast(isLastPart)
    {
    }

    void run()
    {
        for (size_t i = 0; i < pieces.size(); ++i) {
            if (!pieces[i].isRecord) {
                before = 0;
            } else if (isNumbered(pieces[i])) {
                check(i);
            }
        }
    }

private:
    //! The next record that tells its number and that a piece touches; the end without one.
    [[nodiscard]] size_t nextNumbered(size_t index) const
    {
        do {
            ++index;
        } while (index < pieces.size() && pieces[index].isRecord && !isNumbered(pieces[index]));
        return index;
    }

    [[nodiscard]] bool isNumberedAt(size_t index) const
    {
        return index < pieces.size() && pieces[index].isRecord;
    }

    void check(size_t index)
    {
        Piece &piece = pieces[index];
        const size_t next = nextNumbered(index);
        bool isWrong = false;
        if (isNumberedAt(next)) {
            // Of two that are the same nobody can tell which one is right.
            const quint64 behind = pieces[next].logNr;
            isWrong = before < behind && (piece.logNr < before || piece.logNr > behind);
            const size_t afterNext = nextNumbered(next);
            if (before == 0 && isNumberedAt(afterNext)) {
                // Of the first two the one is right that is nearer to the third.
                isWrong = isWrong && piece.logNr >= pieces[afterNext].logNr;
            }
        } else if (next == pieces.size() && isLast && before != 0) {
            isWrong = piece.logNr < before || piece.logNr > before + ChainSearch::farthestNumber;
        }
        if (isWrong) {
            piece.state = State::Damaged;
            piece.fault = Fault::Head;
        } else {
            before = piece.logNr;
        }
    }

    std::vector<Piece> &pieces;
    quint64 before;
    bool isLast;
};

/*!
 * Judges the runs of touching records between lost stretches. One that reaches the start
 * or the end of the file is as sure as what the daemon's walk finds, and one of several
 * records in a row cannot be chance; of two in a row the numbers must lie between their
 * neighbours'. One alone may be spelt in the values of a damaged record.
 */
class RunCheck
{
public:
    RunCheck(std::vector<Piece> &all, quint64 numberBefore, bool isInGap)
        : pieces(all)
        , before(numberBefore)
    {
        for (size_t i = 0; i < pieces.size();) {
            size_t end = i;
            while (end < pieces.size() && isLinked(pieces[end])) {
                ++end;
            }
            if (end > i) {
                addRun(i, end, (i == 0 && !isInGap) || end == pieces.size());
                if (i > 0 || isInGap) {
                    doubtFirst(i, end);
                }
            }
            i = std::max(end, i + 1);
        }
    }

    void run()
    {
        std::vector<quint64> behind(runs.size(), std::numeric_limits<quint64>::max());
        for (size_t i = runs.size(); i-- > 1;) {
            behind[i - 1] = runs[i].isStrong || runs[i].isAnchored ? runs[i].first : behind[i];
        }
        for (size_t i = 0; i < runs.size(); ++i) {
            const Run &each = runs[i];
            const bool rises
                = each.first > before && each.first - before <= ChainSearch::farthestNumber;
            const bool fits = rises && each.isPair && each.last < behind[i];
            if (each.isStrong || fits || (each.isAnchored && (rises || before == 0))) {
                before = each.last;
            } else {
                doubt(each);
            }
        }
    }

private:
    struct Run {
        size_t begin = 0;
        size_t end = 0;
        quint64 first = 0;
        quint64 last = 0;
        bool isAnchored = false; //!< it reaches the start or the end of the file
        bool isStrong = false;
        bool isPair = false; //!< two of its records have numbers in a row
    };

    //! A record with a wrong end does not tell where the next one begins.
    static bool isLinked(const Piece &piece) { return piece.isRecord && piece.fault != Fault::End; }

    void addRun(size_t begin, size_t end, bool isAnchored)
    {
        constexpr int enough = 4; // records with numbers in a row
        Run found{begin, end, 0, 0, isAnchored, begin == 0 && isAnchored, false};
        int inARow = 0;
        for (size_t i = begin; i < end; ++i) {
            if (!isNumbered(pieces[i])) {
                continue;
            }
            inARow = pieces[i].logNr == found.last + 1 ? inARow + 1 : 1;
            found.isStrong = found.isStrong || inARow >= enough;
            found.isPair = found.isPair || inARow > 1;
            found.first = found.first == 0 ? pieces[i].logNr : found.first;
            found.last = pieces[i].logNr;
        }
        if (found.first != 0) {
            runs.push_back(found);
        }
    }

    void doubt(const Run &each)
    {
        for (size_t i = each.begin; i < each.end; ++i) {
            if (pieces[i].state == State::Whole) {
                pieces[i].state = State::Likely;
            }
        }
    }

    /*!
     * Where a run begins nothing but its head says: what stands in front of the end of a
     * record may happen to look like one, but hardly with the number in front of the next.
     */
    void doubtFirst(size_t begin, size_t end)
    {
        const size_t first = nextNumbered(begin, end);
        const size_t second = nextNumbered(first + 1, end);
        if (second < end && pieces[second].logNr != pieces[first].logNr + 1
            && pieces[first].state == State::Whole) {
            pieces[first].state = State::Likely;
        }
    }

    [[nodiscard]] size_t nextNumbered(size_t index, size_t end) const
    {
        while (index < end && !isNumbered(pieces[index])) {
            ++index;
        }
        return index;
    }

    std::vector<Piece> &pieces;
    std::vector<Run> runs;
    quint64 before;
};

} // namespace

bool isNumbered(const Piece &piece)
{
    return piece.isRecord && piece.fault != Fault::Head;
}

void judgeNumbers(std::vector<Piece> &pieces, quint64 before, bool isLast)
{
    NumberCheck(pieces, before, isLast).run();
}

void judgeRuns(std::vector<Piece> &pieces, quint64 before, bool isBehindLost)
{
    RunCheck(pieces, before, isBehindLost).run();
}

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#include "archive/chainsearch.h"

#include "archive/candidates.h"
#include "archive/judgement.h"
#include "logformat/logformat.h"

#include <algorithm>
#include <array>
#include <unordered_map>

namespace Archive
{
namespace
{

// What the links of a chain cost.
constexpr int gapCost = 100;
// Candidates that a gap leaves out: each run of touching ones, and each place where one
// begins, which is more than all that can be wrong with one.
constexpr int leftOutCost = 150;
constexpr int leftOutOneCost = 12;
// Those that a record holds. A few cost less than a gap, behind which they could begin.
constexpr int heldCost = 100;
constexpr int heldOneCost = 7;
constexpr int heldDiscount = 20;
constexpr int contradictionCost = 6;
constexpr int brokenTextCost = 6;
constexpr int orderCost = 4;
constexpr int wrongEndCost = 5; // the end mark or the trailer, in place of a gap
constexpr int wrongEndsCost = 9;
constexpr int wrongHeadCost = 5;
constexpr int tornCost = 8;

enum class Link : quint8 { Start, Record, WrongEnd, WrongHead, Torn, Gap };

//! The best chain to a position with a certain last number.
struct Chain {
    int cost = 0;
    int owed = 0;           //!< what the next number may give back
    quint64 logNr = 0;      //!< the last one; 0 before any
    quint64 owedUntil = 0;  //!< the highest next number that does
    qint32 begin = 0;       //!< of the last link
    qint32 from = -1;       //!< index of the state before it
    qint32 next = -1;       //!< index of another state at this position
    Fit fit = Fit::Unknown; //!< of a record
    Link link = Link::Start;
};

//! Whether no link that follows makes a difference between two chains but by their costs.
bool areAlike(const Chain &left, const Chain &right)
{
    return left.logNr == right.logNr && (left.owed > 0) == (right.owed > 0);
}

//! What a chain costs at least, whatever follows.
int hopeOf(const Chain &chain)
{
    return chain.cost - chain.owed;
}

class Search
{
public:
    Search(const Candidates &found, bool isLastPart)
        : parts(found)
        , size(qint32(found.bytes.size()))
        , isLast(isLastPart)
        , first(found.bytes.size() + 1, -1)
    {
    }

    void start(quint64 logNr, bool isInGap);
    void run();
    //! The links of the best chain, in their order: each with its end in \a next.
    [[nodiscard]] std::vector<Chain> chain() const;
    [[nodiscard]] size_t stateCount() const { return states.size(); }

private:
    [[nodiscard]] int leftOut(qint32 begin, qint32 end) const
    {
        return leftOutCost * parts.runsIn(begin, end)
            + leftOutOneCost * parts.beginningsIn(begin, end);
    }
    //! The same for what a damaged record leaves out, the candidates that begin with it too.
    [[nodiscard]] int leftOutBy(const Head &head, qint32 end) const
    {
        const qint32 begin = head.position + 1;
        const bool isPartOfRun
            = parts.runsIn(begin, end) == 0 && parts.beginningsIn(begin, end) > 0;
        return leftOut(begin, end) + (isPartOfRun ? leftOutCost : 0)
            + (head.firstCandidate >= 0 ? leftOutCost : 0);
    }
    [[nodiscard]] int held(const Candidate &candidate) const
    {
        const qint32 begin = parts.heads[size_t(candidate.head)].position + 1;
        const int runs = parts.runsIn(begin, candidate.end) + (candidate.next >= 0 ? 1 : 0);
        return runs == 0 ? 0
                         : heldCost * runs - heldDiscount
                + heldOneCost * parts.beginningsIn(begin, candidate.end);
    }
    void leaveGap(qint32 position);
    void enterGap(qint32 index, qint32 position);
    void extend(qint32 index, qint32 position);
    void addRecord(const Chain &before, qint32 from, const Candidate &candidate);
    void addWrongEnds(const Chain &before, qint32 from, const Head &head);
    void addWrongEnd(const Chain &before, qint32 from, const Head &head, qint32 end, int cost);
    void addWrongHeads(const Chain &before, qint32 from, qint32 position);
    void addTorn(const Chain &before, qint32 from, const Head &head);
    static void follow(Chain &state, quint64 logNr);
    void add(qint32 position, const Chain &state);

    const Candidates &parts;
    qint32 size;
    bool isLast;
    std::vector<Chain> states;
    std::vector<qint32> first; //!< index of the first state at each position
    // Of those in a gap: the cost is that at its begin, less what it costs up to there.
    std::array<Chain, ChainSearch::mostStates> inGap{};
    size_t gapCount = 0;
    //! Where the record behind one with a certain number begins.
    std::unordered_map<quint64, qint32> nextBegins;
};

void Search::start(quint64 logNr, bool gap)
{
    Chain state;
    state.logNr = logNr;
    if (gap) {
        state.link = Link::Gap;
        inGap[gapCount++] = state;
    } else {
        add(0, state);
    }
}

/*!
 * Adds a state where it is among the best at its position; of two that are alike
 * the better one stays.
 */
void Search::add(qint32 position, const Chain &state)
{
    int count = 0;
    qint32 worst = -1;
    for (qint32 each = first[size_t(position)]; each >= 0; each = states[size_t(each)].next) {
        Chain &known = states[size_t(each)];
        if (areAlike(known, state)) {
            worst = each;
            count = ChainSearch::mostStates;
            break;
        }
        if (worst < 0 || hopeOf(known) > hopeOf(states[size_t(worst)])) {
            worst = each;
        }
        ++count;
    }
    if (count < ChainSearch::mostStates) {
        states.push_back(state);
        states.back().next = first[size_t(position)];
        first[size_t(position)] = qint32(states.size()) - 1;
    } else if (hopeOf(state) < hopeOf(states[size_t(worst)])) {
        const qint32 next = states[size_t(worst)].next;
        states[size_t(worst)] = state;
        states[size_t(worst)].next = next;
    }
}

void Search::leaveGap(qint32 position)
{
    for (size_t i = 0; i < gapCount; ++i) {
        Chain state = inGap.at(i);
        state.cost += leftOut(0, position);
        add(position, state);
    }
}

void Search::enterGap(qint32 index, qint32 position)
{
    Chain state = states[size_t(index)];
    if (state.link == Link::Gap) {
        return; // it has just left one
    }
    state.cost += gapCost - leftOut(0, position);
    if (parts.goesOnAt(position)) {
        state.cost += leftOutCost; // what is left of a run
    }
    state.begin = position;
    state.from = index;
    state.link = Link::Gap;
    const auto known = inGap.begin() + gapCount;
    auto place = std::find_if(inGap.begin(), known,
                              [&state](const Chain &each) { return each.logNr == state.logNr; });
    if (place == known && gapCount < inGap.size()) {
        ++gapCount;
        *place = state;
        return;
    }
    if (place == known) {
        place = std::max_element(inGap.begin(), known, [](const Chain &left, const Chain &right) {
            return hopeOf(left) < hopeOf(right);
        });
    }
    if (hopeOf(state) < hopeOf(*place)) {
        *place = state;
    }
}

//! A number comes behind the one before.
void Search::follow(Chain &state, quint64 logNr)
{
    if (logNr <= state.logNr
        || (state.logNr != 0 && logNr > state.logNr + ChainSearch::farthestNumber)) {
        state.cost += orderCost;
    }
    if (state.owed > 0 && logNr > state.logNr && logNr <= state.owedUntil) {
        state.cost -= state.owed;
    }
    state.owed = 0;
    state.logNr = logNr;
}

void Search::addRecord(const Chain &before, qint32 from, const Candidate &candidate)
{
    const Head &head = parts.heads[size_t(candidate.head)];
    Chain state = before;
    follow(state, head.logNr);
    state.begin = head.position;
    state.from = from;
    state.link = Link::Record;
    state.fit = candidate.fit;
    if (candidate.fit == Fit::Contradictory) {
        state.cost += contradictionCost;
    } else if (candidate.fit == Fit::Broken) {
        state.cost += brokenTextCost;
    }
    // No number follows the last record, but that a file ends with it says as much: hardly any
    // wrong length happens to lead to the beginning of a record.
    if (candidate.fit != Fit::Exact && !(isLast && candidate.end == size)) {
        state.owed = held(candidate);
    }
    if (state.owed > 0) {
        state.cost += state.owed;
        state.owedUntil = parts.lowestHeld(candidate);
    }
    add(candidate.end, state);
}

void Search::addWrongEnd(const Chain &before, qint32 from, const Head &head, qint32 end, int cost)
{
    Chain state = before;
    follow(state, head.logNr);
    state.begin = head.position;
    state.from = from;
    state.link = Link::WrongEnd;
    state.cost += cost;
    add(end, state);
}

/*!
 * A record with a wrong end ends where its values do, as far as the catalogue tells, or
 * where the next record begins.
 */
void Search::addWrongEnds(const Chain &before, qint32 from, const Head &head)
{
    constexpr auto tail = qint32(LogFormat::trailerSize + 1);
    for (size_t i = 0; i < head.ends.count && head.ends.isKnown && !head.ends.isOpen; ++i) {
        const qint32 end = head.valuesBegin + head.ends.ends.at(i).offset + tail;
        if (end <= size && end - head.position <= ChainSearch::longestRecord
            && !head.ends.ends.at(i).isBroken
            && !(parts.hasEndMark(end) && parts.hasTrailer(head.position, end))) {
            const bool isHalfRight = parts.hasEndMark(end) || parts.hasTrailer(head.position, end);
            addWrongEnd(before, from, head, end,
                        leftOutBy(head, end) + (isHalfRight ? wrongEndCost : wrongEndsCost));
        }
    }
    const auto next = nextBegins.find(head.logNr);
    if (next == nextBegins.end()) {
        return;
    }
    const qint32 end = next->second;
    if (end - head.position < LogFormat::minRecordSize
        || end - head.position > ChainSearch::longestRecord) {
        return;
    }
    addWrongEnd(before, from, head, end,
                leftOutBy(head, end) + (parts.hasEndMark(end) ? wrongEndCost + 1 : wrongEndsCost));
}

void Search::addWrongHeads(const Chain &before, qint32 from, qint32 position)
{
    if (before.link == Link::Gap) {
        return; // where the gap ends is known by a head only
    }
    for (qint32 index = parts.looseEndAt(position); index >= 0;
         index = parts.looseEnd(index).next) {
        const qint32 end = parts.looseEnd(index).end;
        Chain state = before;
        state.begin = position;
        state.from = from;
        state.link = Link::WrongHead;
        state.cost += wrongHeadCost + leftOut(position, end);
        add(end, state);
    }
}

void Search::addTorn(const Chain &before, qint32 from, const Head &head)
{
    Chain state = before;
    follow(state, head.logNr);
    state.begin = head.position;
    state.from = from;
    state.link = Link::Torn;
    state.cost += tornCost + leftOutBy(head, size);
    add(size, state);
}

void Search::extend(qint32 index, qint32 position)
{
    const Chain before = states[size_t(index)]; // adding others moves it
    const qint32 headIndex = parts.headAt(position);
    if (headIndex >= 0) {
        const Head &head = parts.heads[size_t(headIndex)];
        for (qint32 each = head.firstCandidate; each >= 0;
             each = parts.candidates[size_t(each)].next) {
            addRecord(before, index, parts.candidates[size_t(each)]);
        }
        addWrongEnds(before, index, head);
        if (isLast) {
            addTorn(before, index, head);
        }
    } else {
        addWrongHeads(before, index, position);
    }
    enterGap(index, position);
}

void Search::run()
{
    for (auto head = parts.heads.rbegin(); head != parts.heads.rend(); ++head) {
        if (head->firstCandidate >= 0) {
            nextBegins[head->logNr - 1] = head->position; // of several the first
        }
    }
    for (qint32 position = 0; position < size; ++position) {
        if (gapCount > 0 && parts.headAt(position) >= 0) {
            leaveGap(position);
        }
        for (qint32 each = first[size_t(position)]; each >= 0; each = states[size_t(each)].next) {
            extend(each, position);
        }
    }
    leaveGap(size);
}

std::vector<Chain> Search::chain() const
{
    qint32 best = first.back();
    for (qint32 each = best; each >= 0; each = states[size_t(each)].next) {
        if (states[size_t(each)].cost < states[size_t(best)].cost) {
            best = each;
        }
    }
    std::vector<Chain> links;
    qint32 end = size;
    for (qint32 each = best; each >= 0 && states[size_t(each)].link != Link::Start;
         each = states[size_t(each)].from) {
        Chain link = states[size_t(each)];
        link.next = end;
        end = link.begin;
        links.push_back(link);
    }
    std::reverse(links.begin(), links.end());
    return links;
}

bool isAllZero(std::string_view bytes)
{
    return bytes.find_first_not_of('\0') == std::string_view::npos;
}

Piece pieceOf(const Chain &link, std::string_view bytes)
{
    Piece piece;
    piece.begin = link.begin;
    piece.end = link.next;
    piece.logNr = link.logNr;
    piece.isRecord = link.link != Link::Gap && link.link != Link::Torn;
    switch (link.link) {
    case Link::Start:
    case Link::Record:
        break;
    case Link::WrongEnd:
        piece.fault = Fault::End;
        break;
    case Link::WrongHead:
        piece.fault = Fault::Head;
        break;
    case Link::Torn:
        piece.fault = Fault::Torn;
        break;
    case Link::Gap:
        const auto begin = size_t(piece.begin);
        const bool isZeros = isAllZero(bytes.substr(begin, size_t(piece.end) - begin));
        piece.fault = isZeros ? Fault::Zeros : Fault::Unknown;
        break;
    }
    piece.state = piece.fault == Fault::None ? State::Whole : State::Damaged;
    return piece;
}

} // namespace

std::vector<Piece> ChainSearch::search(std::string_view bytes, bool isLast)
{
    const Candidates parts(bytes, fit);
    Search chains(parts, isLast);
    chains.start(lastNumber, isInGap);
    chains.run();
    states = chains.stateCount();

    std::vector<Piece> pieces;
    for (const Chain &link : chains.chain()) {
        Piece piece = pieceOf(link, bytes);
        const bool isBroken = link.link == Link::Record && link.fit == Fit::Broken;
        if (isBroken && fit.isCertain(parts.heads[size_t(parts.headAt(link.begin))].eventId)) {
            piece.state = State::Damaged;
            piece.fault = Fault::Text;
        }
        if (piece.end > piece.begin) {
            pieces.push_back(piece);
        }
    }
    judgeNumbers(pieces, isInGap ? 0 : lastNumber, isLast);
    judgeRuns(pieces, lastNumber, isInGap);
    if (!isLast) {
        cutOff(pieces, qint64(bytes.size()) - longestRecord);
    }
    remember(pieces);
    return pieces;
}

//! Leaves what more bytes may change to the next search.
void ChainSearch::cutOff(std::vector<Piece> &pieces, qint64 limit)
{
    while (!pieces.empty() && pieces.back().end > limit) {
        Piece &last = pieces.back();
        if (!last.isRecord && last.begin < limit) {
            last.end = limit;
        } else {
            pieces.pop_back();
        }
    }
}

void ChainSearch::remember(const std::vector<Piece> &pieces)
{
    for (const Piece &piece : pieces) {
        isInGap = !piece.isRecord;
        if (isNumbered(piece) && piece.state != State::Likely) {
            lastNumber = piece.logNr;
        }
    }
}

} // namespace Archive

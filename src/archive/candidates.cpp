// SPDX-License-Identifier: Apache-2.0
#include "archive/candidates.h"

#include "archive/chainsearch.h"
#include "logformat/logformat.h"
#include "logformat/plausibility.h"
#include "logformat/storedvalue.h"

#include <algorithm>
#include <limits>

namespace Archive
{
namespace
{

constexpr auto tailSize = qint32(LogFormat::trailerSize + 1); // with the end mark

quint16 trailerBefore(std::string_view bytes, qint32 end)
{
    ByteSource in(bytes);
    in.seek(end - LogFormat::trailerSize);
    return LogFormat::readNumber<quint16>(in);
}

} // namespace

Candidates::Candidates(std::string_view window, ValueFit &fit)
    : bytes(window)
    , text(window)
    , headOf(window.size() + 1, -1)
    , looseEndOf(window.size() + 1, -1)
    , ends(window.size() + 1)
    , runs(window.size() + 1)
    , beginnings(window.size() + 1)
{
    findHeads(fit);
    findEnds();
    judge(fit);
    countRuns();
}

void Candidates::findHeads(const ValueFit &fit)
{
    constexpr std::string_view padding("\0\0\0\0", 4);
    static_assert(LogFormat::eventIdOffset - LogFormat::paddingOffset == padding.size());
    for (size_t at = bytes.find(padding, size_t(LogFormat::paddingOffset));
         at != std::string_view::npos; at = bytes.find(padding, at + 1)) {
        const auto position = qint32(at - size_t(LogFormat::paddingOffset));
        const std::string_view rest = bytes.substr(size_t(position));
        if (LogFormat::headFlaw(rest) != LogFormat::Flaw::None) {
            continue;
        }
        ByteSource in(rest);
        const LogFormat::RecordHead fields = LogFormat::readHead(in, 0);
        (void)LogFormat::readValue(in, ArgumentType::String); // the path
        Head head;
        head.logNr = fields.logNr;
        head.position = position;
        head.valuesBegin = position + qint32(in.position());
        head.eventId = fields.eventId;
        head.ends = fit.endsOf(head.eventId, rest.substr(size_t(in.position())), text);
        headOf[size_t(position)] = qint32(heads.size());
        heads.push_back(head);
    }
}

void Candidates::findEnds()
{
    for (size_t mark = bytes.find(LogFormat::endMark);
         mark != std::string_view::npos && mark + size_t(tailSize) <= bytes.size();
         mark = bytes.find(LogFormat::endMark, mark + 1)) {
        findBeginnings(qint32(mark) + tailSize);
    }
}

void Candidates::findBeginnings(qint32 end)
{
    const qint32 shortest = end - qint32(LogFormat::trailerSize) - trailerBefore(bytes, end);
    const qint32 longest = std::max<qint32>(end - qint32(ChainSearch::longestRecord), 0);
    int found = 0;
    for (qint32 begin = shortest; begin >= longest && found < ChainSearch::mostCandidates;
         begin -= qint32(LogFormat::lengthModulus)) {
        const qint32 index = headAt(begin);
        if (index < 0 || heads[size_t(index)].valuesBegin > end - tailSize) {
            continue;
        }
        Candidate candidate;
        candidate.head = index;
        candidate.end = end;
        candidate.next = heads[size_t(index)].firstCandidate;
        heads[size_t(index)].firstCandidate = qint32(candidates.size());
        candidates.push_back(candidate);
        ++found;
    }
    if (found > 0) {
        ends[size_t(end)] = true;
    } else if (shortest >= 0 && end - shortest >= LogFormat::minRecordSize) {
        looseEnds.push_back({end, looseEndAt(shortest)});
        looseEndOf[size_t(shortest)] = qint32(looseEnds.size()) - 1;
    }
}

void Candidates::judge(ValueFit &fit)
{
    for (Candidate &candidate : candidates) {
        const Head &head = heads[size_t(candidate.head)];
        candidate.fit = head.ends.fitOf(candidate.end - tailSize - head.valuesBegin);
        fit.learn(head.eventId, candidate.fit);
    }
    for (Candidate &candidate : candidates) {
        const qint32 eventId = heads[size_t(candidate.head)].eventId;
        if (candidate.fit != Fit::Exact && !fit.isBelieved(eventId)) {
            candidate.fit = Fit::Unknown;
        }
    }
}

void Candidates::countRuns()
{
    for (size_t i = 0; i + 1 < headOf.size(); ++i) {
        const qint32 head = headOf[i];
        const bool begins = head >= 0 && heads[size_t(head)].firstCandidate >= 0;
        beginnings[i + 1] = beginnings[i] + (begins ? 1 : 0);
        runs[i + 1] = runs[i] + (begins && !ends[i] ? 1 : 0);
    }
}

bool Candidates::hasEndMark(qint32 end) const
{
    return bytes[size_t(end - tailSize)] == LogFormat::endMark;
}

bool Candidates::hasTrailer(qint32 begin, qint32 end) const
{
    return trailerBefore(bytes, end)
        == (end - begin - LogFormat::trailerSize) % LogFormat::lengthModulus;
}

quint64 Candidates::lowestHeld(const Candidate &candidate) const
{
    constexpr size_t mostLookedAt = 64;
    const quint64 own = heads[size_t(candidate.head)].logNr;
    quint64 lowest = std::numeric_limits<quint64>::max();
    const auto first = size_t(candidate.head) + 1;
    for (size_t index = first; index < heads.size() && heads[index].position < candidate.end;
         ++index) {
        if (index - first >= mostLookedAt) {
            return own + 1;
        }
        if (heads[index].logNr > own) {
            lowest = std::min(lowest, heads[index].logNr);
        }
    }
    return candidate.next >= 0 ? own + 1 : lowest;
}

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#include "archive/filesurvey.h"

#include "archive/chainsearch.h"
#include "logformat/bytesource.h"

namespace Archive
{
namespace
{

//! Whether the daemon's walk gets over a damaged record, as its length is right.
bool isFramed(const Record &record)
{
    if (record.fault != Fault::End) {
        return true;
    }
    const qint64 trailer = qint64(record.bytes.size()) - LogFormat::trailerSize;
    ByteSource in(record.bytes);
    in.seek(trailer);
    return LogFormat::readNumber<quint16>(in) == trailer;
}

} // namespace

void FileSurvey::beginFile(int /*file*/, qint64 fileSize)
{
    size = fileSize;
    isNoted = size <= mostNoted;
}

void FileSurvey::noteDamage(const Place &place, Fault reason)
{
    if (damagedAt < 0) {
        damagedAt = place.offset;
        fault = reason;
    }
}

void FileSurvey::addGood(const Place &place, quint64 logNr)
{
    if (place.offset == goodPrefix) {
        goodPrefix = place.end();
    }
    goodEnd = place.end();
    lastNumber = logNr;
    if (!isNoted) {
        return;
    }
    if (!good.empty() && good.back().end == place.offset) {
        good.back().end = place.end();
    } else {
        good.push_back({place.offset, place.end()});
    }
}

//! Takes doubtful records whose numbers rise towards a limit, which none may reach.
void FileSurvey::decideDoubtful(quint64 limit)
{
    for (const Doubtful &each : doubtful) {
        if (each.logNr > lastNumber && each.logNr < limit) {
            addGood(each.place, each.logNr);
            if (each.isLikely) {
                addWhole(each.place, true);
            }
        }
    }
    doubtful.clear();
}

void FileSurvey::addWhole(const Place &place, bool isReadByDaemon)
{
    ++goodRecords;
    if (isNoted) {
        begins.push_back(place.offset);
        if (isReadByDaemon) {
            readNow.push_back(place.offset);
        }
    }
}

void FileSurvey::record(const Place &place, const Record &record)
{
    constexpr size_t mostDoubtful = 1024; // in a row; nobody misses the others
    records += record.state != State::Damaged ? 1 : 0;
    if (record.state == State::Whole) {
        decideDoubtful(record.head.logNr);
        addGood(place, record.head.logNr);
        addWhole(place, record.isReadByDaemon);
        return;
    }
    const bool isLikely = record.state == State::Likely;
    noteDamage(place, isLikely ? Fault::Unknown : record.fault);
    const bool isKept = isLikely ? record.isReadByDaemon : isFramed(record);
    if (isKept && doubtful.size() < mostDoubtful) {
        doubtful.push_back({place, record.head.logNr, isLikely});
    }
}

void FileSurvey::lost(const Place &place, Fault reason)
{
    noteDamage(place, reason);
}

void FileSurvey::endFile(const FileResult &fileResult)
{
    if (lastNumber == 0) {
        doubtful.clear(); // nothing speaks for their numbers
    }
    decideDoubtful(lastNumber + ChainSearch::farthestNumber);
    result = fileResult;
}

} // namespace Archive

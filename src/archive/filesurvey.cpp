// SPDX-License-Identifier: Apache-2.0
#include "archive/filesurvey.h"

#include "archive/chainsearch.h"

namespace Archive
{

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

//! Takes damaged records whose numbers rise towards a limit, which none may reach.
void FileSurvey::decideDoubtful(quint64 limit)
{
    for (const Doubtful &each : doubtful) {
        if (each.logNr > lastNumber && each.logNr < limit) {
            addGood(each.place, each.logNr);
            holdsDamagedRecord = true;
        }
    }
    doubtful.clear();
}

void FileSurvey::record(const Place &place, const Record &record)
{
    if (record.state == State::Damaged) {
        noteDamage(place, record.fault);
        constexpr size_t mostDoubtful = 1024; // in a row; nobody misses the others
        if (record.fault != Fault::End && doubtful.size() < mostDoubtful) {
            doubtful.push_back({place, record.head.logNr, record.isReadByDaemon});
        }
        return;
    }
    ++records;
    if (record.state == State::Likely && !record.isReadByDaemon) {
        noteDamage(place, Fault::Unknown);
        return;
    }
    ++goodRecords;
    decideDoubtful(record.head.logNr);
    addGood(place, record.head.logNr);
    if (isNoted) {
        begins.push_back(place.offset);
        if (record.isReadByDaemon) {
            readNow.push_back(place.offset);
        }
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

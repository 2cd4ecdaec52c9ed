// SPDX-License-Identifier: Apache-2.0
#include "archive/filescan.h"

#include "archive/chainsearch.h"
#include "logformat/bytesource.h"
#include "logformat/plausibility.h"
#include "logformat/storedvalue.h"

#include <algorithm>

namespace Archive
{
namespace
{

quint64 logNrOf(std::string_view record)
{
    ByteSource in(record);
    return LogFormat::readNumber<quint64>(in);
}

} // namespace

qint64 lastRecord(std::string_view bytes)
{
    const auto end = qint64(bytes.size());
    if (end < LogFormat::minRecordSize) {
        return -1;
    }
    const qint64 trailer = end - LogFormat::trailerSize;
    if (bytes[size_t(trailer - 1)] != LogFormat::endMark) {
        return -1;
    }
    ByteSource in(bytes);
    in.seek(trailer);
    qint64 begin = trailer - LogFormat::readNumber<quint16>(in);
    while (begin >= 0
           && LogFormat::recordFlaw(bytes.substr(size_t(begin))) != LogFormat::Flaw::None) {
        begin -= LogFormat::lengthModulus;
    }
    return begin;
}

bool holdsRecord(std::string_view record)
{
    const std::string_view within
        = record.substr(0, record.size() - size_t(LogFormat::trailerSize));
    for (size_t mark = within.find(LogFormat::endMark);
         mark + size_t(LogFormat::trailerSize) < within.size();
         mark = within.find(LogFormat::endMark, mark + 1)) {
        if (lastRecord(within.substr(0, mark + 1 + size_t(LogFormat::trailerSize))) >= 0) {
            return true;
        }
    }
    return false;
}

FileScan::FileScan(const FileBytes &file, qint64 size, const EventTypes &types)
    : bytes(file)
    , fileSize(size)
    , fit(types)
{
}

bool FileScan::load(qint64 begin, qint64 end)
{
    windowBegin = begin;
    return bytes.read(begin, end, window);
}

/*!
 * Whether a record is sound beside the one behind it. Numbers that are left out make it
 * suspicious: a wrong length may make it take in others, whose numbers they are.
 */
bool FileScan::isSound(qint64 begin, qint64 end)
{
    const std::string_view record(window.constData() + (begin - windowBegin), size_t(end - begin));
    const quint64 logNr = logNrOf(record);
    const bool rises
        = following == 0 || (logNr < following && following - logNr <= ChainSearch::farthestNumber);
    const bool isSuspicious = following != logNr + 1;
    following = logNr;
    holdsLongRecord
        = holdsLongRecord || end - begin - LogFormat::trailerSize >= LogFormat::lengthModulus;
    return rises && !(isSuspicious && holdsRecord(record));
}

bool FileScan::arePositionsSound(qint64 end)
{
    for (const qint64 begin : positions) {
        if (!isSound(begin, end)) {
            return false;
        }
        end = begin;
    }
    return true;
}

/*!
 * Walks as far back as the window goes: to its begin, or to a place where no plausible
 * record ends.
 */
void FileScan::walkPart(qint64 end)
{
    positions.clear();
    while (end > windowBegin) {
        const qint64 begin
            = lastRecord({window.constData(), size_t(end - windowBegin)}) + windowBegin;
        if (begin < windowBegin) {
            return;
        }
        positions.push_back(begin);
        end = begin;
    }
}

//! Walks the file from its end; false, with errno, where it cannot be read.
bool FileScan::findParts()
{
    qint64 end = fileSize;
    qint64 size = windowSize;
    while (end > 0) {
        if (!load(std::max<qint64>(end - size, 0), end)) {
            return false;
        }
        walkPart(end);
        const bool mayBeLonger = windowBegin > 0 && size < longestRecord;
        if (!arePositionsSound(end) || (positions.empty() && !mayBeLonger)) {
            return true;
        }
        size = positions.empty() ? size * 2 : windowSize;
        if (!positions.empty()) {
            parts.push_back(end);
            end = positions.back();
        }
    }
    sound = true;
    return true;
}

bool FileScan::showParts(const Show &show)
{
    Pieces found;
    qint64 begin = 0;
    for (auto end = parts.rbegin(); end != parts.rend(); begin = *end++) {
        const bool isLoaded = parts.size() == 1 && windowBegin == 0; // a small file
        if (!isLoaded) {
            if (!load(begin, *end)) {
                return false;
            }
            walkPart(*end);
        }
        found.bytes = window;
        found.bytesBegin = windowBegin;
        found.pieces.clear();
        for (size_t i = positions.size(); i-- > 0;) {
            const qint64 recordEnd = i > 0 ? positions[i - 1] : *end;
            Piece piece;
            piece.begin = positions[i];
            piece.end = recordEnd;
            piece.logNr = logNrOf(
                {found.bytes.constData() + (piece.begin - windowBegin), sizeof piece.logNr});
            found.pieces.push_back(piece);
        }
        judgeTexts(found);
        show(found);
    }
    return true;
}

//! Finds the records of a sound file whose texts are none.
void FileScan::judgeTexts(Pieces &found)
{
    if (fit.knowsNothing()) {
        return;
    }
    const TextCheck text;
    std::vector<std::pair<Piece *, qint32>> broken;
    for (Piece &piece : found.pieces) {
        const std::string_view record = found.bytesOf(piece);
        ByteSource in(record);
        const LogFormat::RecordHead head = LogFormat::readHead(in, 0);
        (void)LogFormat::readValue(in, ArgumentType::String); // the path
        const auto begin = size_t(in.position());
        const size_t size = record.size() - size_t(LogFormat::trailerSize) - 1 - begin;
        const std::string_view values = record.substr(begin, size);
        const Fit suits = fit.endsOf(head.eventId, values, text).fitOf(qint64(size));
        fit.learn(head.eventId, suits);
        if (suits == Fit::Broken) {
            broken.emplace_back(&piece, head.eventId);
        }
    }
    for (const auto &[piece, eventId] : broken) {
        if (fit.isCertain(eventId)) {
            piece->state = State::Damaged;
            piece->fault = Fault::Text;
        }
    }
}

bool FileScan::search(const Show &show)
{
    static_assert(windowSize >= 2 * ChainSearch::longestRecord);
    ChainSearch chains(fit);
    Pieces found;
    for (qint64 begin = 0; begin < fileSize; begin = found.pieces.back().end) {
        const qint64 end = std::min(begin + windowSize, fileSize);
        if (!load(begin, end)) {
            return false;
        }
        found.pieces = chains.search({window.constData(), size_t(window.size())}, end == fileSize);
        for (Piece &piece : found.pieces) {
            piece.begin += begin;
            piece.end += begin;
        }
        found.bytes = window;
        found.bytesBegin = begin;
        show(found);
    }
    return true;
}

bool FileScan::run(const Show &show)
{
    if (!findParts()) {
        return false;
    }
    return sound ? showParts(show) : search(show);
}

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#include "archive/repaircontent.h"

#include "archive/chainsearch.h"
#include "archive/filescan.h"
#include "logformat/bytesource.h"
#include "logformat/logformat.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace Archive
{
namespace
{

quint64 logNrAt(const QByteArray &bytes, qint64 position)
{
    ByteSource in({bytes.constData(), size_t(bytes.size())});
    in.seek(position);
    return LogFormat::readNumber<quint64>(in);
}

bool follows(quint64 logNr, quint64 before)
{
    return logNr > before && logNr - before <= ChainSearch::farthestNumber;
}

/*!
 * Where the daemon finds records now without doubt: from the end of the bytes, as long as
 * nothing is wrong. A last number far from the one before is, and so is one in front of
 * them all that does not follow what is good before it.
 */
class SoundEnd
{
public:
    SoundEnd(const QByteArray &content, const FileSurvey &surveyed)
        : bytes(content)
        , survey(surveyed)
        , range{bytes.size(), bytes.size()}
    {
        while (range.begin > 0 && step()) { }
        if (!positions.empty() && !isGood(positions.back()) && !isFollowing(positions.back())) {
            const bool isAll = positions.size() == 1;
            range.begin = isAll ? range.end : positions[positions.size() - 2];
            positions.pop_back();
        }
    }

    [[nodiscard]] const Range &where() const { return range; }
    //! The last one first.
    [[nodiscard]] const std::vector<qint64> &begins() const { return positions; }

private:
    bool step()
    {
        const std::string_view all(bytes.constData(), size_t(range.begin));
        const qint64 begin = lastRecord(all);
        if (begin < 0 || range.begin - begin - LogFormat::trailerSize >= LogFormat::lengthModulus) {
            return false;
        }
        const quint64 logNr = logNrAt(bytes, begin);
        const bool isSuspicious = following != logNr + 1 || !isGood(begin);
        const bool isWrong = following != 0 && !follows(following, logNr);
        if ((isSuspicious && holdsRecord(all.substr(size_t(begin))))
            || (isWrong && positions.size() > 1)) {
            return false;
        }
        if (isWrong) {
            positions.clear();
            range.end = range.begin;
        }
        positions.push_back(begin);
        range.begin = begin;
        following = logNr;
        return true;
    }

    [[nodiscard]] bool isGood(qint64 begin) const
    {
        return std::binary_search(survey.begins.begin(), survey.begins.end(), begin);
    }

    [[nodiscard]] bool isFollowing(qint64 begin) const
    {
        const auto behind = std::lower_bound(survey.begins.begin(), survey.begins.end(), begin);
        return behind == survey.begins.begin()
            || follows(logNrAt(bytes, begin), logNrAt(bytes, *std::prev(behind)));
    }

    const QByteArray &bytes;
    const FileSurvey &survey;
    Range range;
    std::vector<qint64> positions;
    quint64 following = 0;
};

} // namespace

QByteArray partsOf(const QByteArray &bytes, const std::vector<Range> &ranges)
{
    QByteArray parts;
    for (const Range &range : ranges) {
        parts.append(bytes.constData() + range.begin, int(range.end - range.begin));
    }
    return parts;
}

std::set<qint64> walkedPositions(const QByteArray &bytes)
{
    std::set<qint64> found;
    if (bytes.isEmpty()) {
        return found;
    }
    ByteSource in({bytes.constData(), size_t(bytes.size())});
    LogFormat::walkBack(in, in.size(), LogFormat::Walk::WholeFile,
                        [&found](qint64 position, quint64 /*logNr*/) {
                            found.insert(position);
                            return true;
                        });
    return found;
}

qint64 positionInParts(qint64 position, const std::vector<Range> &ranges)
{
    qint64 before = 0;
    for (const Range &range : ranges) {
        if (position < range.end) {
            return position >= range.begin ? before + position - range.begin : -1;
        }
        before += range.end - range.begin;
    }
    return -1;
}

std::vector<Range> rangesOfRanges(const std::vector<Range> &outer, const std::vector<Range> &inner)
{
    std::vector<Range> ranges;
    for (const Range &part : inner) {
        qint64 before = 0;
        for (const Range &range : outer) {
            const qint64 shift = range.begin - before;
            const Range found{std::max(part.begin + shift, range.begin),
                              std::min(part.end + shift, range.end)};
            if (found.begin < found.end) {
                ranges.push_back(found);
            }
            before += range.end - range.begin;
        }
    }
    return ranges;
}

qint64 sizeOf(const std::vector<Range> &ranges)
{
    return std::accumulate(
        ranges.begin(), ranges.end(), qint64(0),
        [](qint64 sum, const Range &range) { return sum + range.end - range.begin; });
}

std::vector<Range> goodContent(const FileSurvey &survey, const QByteArray &bytes)
{
    const Range sound = SoundEnd(bytes, survey).where();
    // The last record that ends before it.
    const auto behind = std::upper_bound(survey.begins.begin(), survey.begins.end(), sound.begin);
    const qint64 limit = behind != survey.begins.begin() ? *std::prev(behind) : 0;
    std::vector<Range> ranges;
    for (Range range : survey.good) {
        if (range.end > sound.begin) {
            range.end = limit;
        }
        if (range.begin < range.end) {
            ranges.push_back(range);
        }
    }
    if (sound.begin < sound.end) {
        ranges.push_back(sound);
    }
    return ranges;
}

bool leavesOutWalked(const QByteArray &bytes, const std::vector<Range> &content)
{
    const std::set<qint64> walked = walkedPositions(bytes);
    if (walked.empty() || *walked.begin() != 0) {
        return false;
    }
    qint64 end = bytes.size();
    int leftOut = 0;
    for (auto begin = walked.rbegin(); begin != walked.rend(); end = *begin++) {
        const qint64 mark = end - LogFormat::trailerSize - 1;
        if (end - *begin < LogFormat::minRecordSize
            || bytes.constData()[mark] != LogFormat::endMark) {
            return false;
        }
        leftOut += positionInParts(*begin, content) < 0 ? 1 : 0;
    }
    return leftOut > 1; // one is a wrong number, which the daemon would go on with
}

std::vector<qint64> undoubtedRecords(const FileSurvey &survey, const QByteArray &bytes)
{
    return SoundEnd(bytes, survey).begins();
}

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#include "reader/logindex.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

namespace
{

bool isBelow(const LogIndexEntry &left, const LogIndexEntry &right)
{
    return left.logNr < right.logNr;
}

/*!
 * Sorts entries that were found backwards, newest first, as healthy files deliver
 * them; any other order only takes longer. Of equal numbers the one found last
 * comes first.
 */
void sortFound(std::vector<LogIndexEntry> &found)
{
    std::reverse(found.begin(), found.end());
    if (!std::is_sorted(found.begin(), found.end(), isBelow)) {
        std::stable_sort(found.begin(), found.end(), isBelow);
    }
}

} // namespace

void LogIndex::assign(std::vector<LogIndexEntry> found)
{
    sortFound(found);
    const auto sameNumber = [](const LogIndexEntry &left, const LogIndexEntry &right) {
        return left.logNr == right.logNr;
    };
    found.erase(std::unique(found.begin(), found.end(), sameNumber), found.end());
    entries = std::move(found);
}

void LogIndex::add(std::vector<LogIndexEntry> found)
{
    if (found.empty()) {
        return;
    }
    sortFound(found);
    const auto known = std::ptrdiff_t(entries.size());
    const auto unmoved = std::ptrdiff_t(from(found.front().logNr) - entries.cbegin());
    entries.insert(entries.end(), found.begin(), found.end());
    std::inplace_merge(entries.begin() + unmoved, entries.begin() + known, entries.end(), isBelow);
}

bool LogIndex::contains(quint64 logNr) const
{
    const auto entry = from(logNr);
    return entry != entries.cend() && entry->logNr == logNr;
}

LogIndex::const_iterator LogIndex::from(quint64 logNr) const
{
    if (entries.empty() || logNr > entries.back().logNr) {
        return entries.cend();
    }
    return std::lower_bound(entries.cbegin(), entries.cend(), LogIndexEntry{logNr}, isBelow);
}

quint64 LogIndex::minLogNr() const
{
    return entries.empty() ? std::numeric_limits<quint64>::max() : entries.front().logNr;
}

quint64 LogIndex::maxLogNr() const
{
    return entries.empty() ? 0 : entries.back().logNr;
}

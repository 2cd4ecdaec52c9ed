// SPDX-License-Identifier: Apache-2.0
#include "ctl/stats/namedamounts.h"

#include <algorithm>
#include <map>
#include <utility>

namespace NamedAmounts
{
namespace
{

//! The busiest one first; of those with as much in the order that they came in.
template <typename Row>
void sortByAmount(std::vector<Row> &rows)
{
    std::stable_sort(rows.begin(), rows.end(), [](const Row &left, const Row &right) {
        return left.amount.records > right.amount.records;
    });
}

Amount unknownAmount(const Statistics &statistics)
{
    Amount sum = statistics.unknownEvents().others();
    for (const auto &[id, amount] : statistics.unknownEvents().amounts()) {
        sum.add(amount);
    }
    return sum;
}

//! Calls a function of the description and the amount of each event that is known.
template <typename Take>
void forEachKnown(const Statistics &statistics, const SystemeventCatalogue *catalogue, Take &&take)
{
    for (const auto &[id, amount] : statistics.knownEvents().amounts()) {
        take(*catalogue->events.constFind(uint(id)), amount);
    }
}

} // namespace

std::vector<Event> events(const Statistics &statistics, const SystemeventCatalogue *catalogue)
{
    std::vector<Event> rows;
    forEachKnown(statistics, catalogue,
                 [&](const SystemeventDescription &event, const Amount &amount) {
                     rows.push_back({qint32(event.id), &event, amount});
                 });
    for (const auto &[id, amount] : statistics.unknownEvents().amounts()) {
        rows.push_back({id, nullptr, amount});
    }
    sortByAmount(rows);
    return rows;
}

std::vector<Level> levels(const Statistics &statistics, const SystemeventCatalogue *catalogue)
{
    std::map<std::pair<int, QString>, Amount> sums;
    forEachKnown(statistics, catalogue,
                 [&](const SystemeventDescription &event, const Amount &amount) {
                     sums[{event.logLevel, event.logLevelName}].add(amount);
                 });
    std::vector<Level> rows;
    rows.reserve(sums.size() + 1);
    for (const auto &[level, amount] : sums) {
        rows.push_back({level.first, level.second, amount});
    }
    const Amount unknown = unknownAmount(statistics);
    if (unknown.records > 0) {
        rows.push_back({{}, {}, unknown});
    }
    return rows;
}

std::vector<Service> services(const Statistics &statistics, const SystemeventCatalogue *catalogue)
{
    std::map<QString, Amount> sums;
    forEachKnown(statistics, catalogue,
                 [&](const SystemeventDescription &event, const Amount &amount) {
                     sums[event.service].add(amount);
                 });
    std::vector<Service> rows;
    rows.reserve(sums.size() + 1);
    for (const auto &[name, amount] : sums) {
        rows.push_back({name.isNull() ? QLatin1String("") : name, amount});
    }
    const Amount unknown = unknownAmount(statistics);
    if (unknown.records > 0) {
        rows.push_back({{}, unknown});
    }
    sortByAmount(rows);
    return rows;
}

} // namespace NamedAmounts

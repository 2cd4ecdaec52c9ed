// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

//! How many records there are of something, and how large they are.
struct Amount {
    quint64 records = 0;
    quint64 bytes = 0;

    void add(const Amount &more)
    {
        records += more.records;
        bytes += more.bytes;
    }
};

/*!
 * Counts records by a key. As many keys as any device has are counted exactly; damage and
 * malice make keys without end, and those that come when there is no room left are counted
 * together. What is counted by its key is never too low or too high.
 *
 * Memory: 3 MiB at most for texts, half a MiB for numbers.
 */
template <typename Key>
class Tally
{
public:
    static constexpr size_t mostKeys = 8192;
    static constexpr size_t mostKeyBytes = 2097152; //!< of texts, all together

    using Amounts = std::map<Key, Amount, std::less<>>; // whatever the keys, none is slow to find
    using Entry = typename Amounts::value_type;

    //! Looks for what a key can be compared with.
    template <typename Sought>
    void add(const Sought &key, const Amount &amount)
    {
        const auto known = counted.find(key);
        if (known != counted.end()) {
            known->second.add(amount);
            return;
        }
        const size_t size = sizeOf(key);
        if (counted.size() >= mostKeys || size > mostKeyBytes - keyBytes) {
            rest.add(amount);
            return;
        }
        keyBytes += size;
        counted.emplace(Key(key), amount);
    }

    [[nodiscard]] const Amounts &amounts() const { return counted; }
    //! Of all keys that there was no room for.
    [[nodiscard]] const Amount &others() const { return rest; }

    //! The key with the most records first; of those with as many the lowest one.
    [[nodiscard]] std::vector<const Entry *> descending() const
    {
        std::vector<const Entry *> sorted;
        sorted.reserve(counted.size());
        for (const Entry &entry : counted) {
            sorted.push_back(&entry);
        }
        std::stable_sort(sorted.begin(), sorted.end(), [](const Entry *left, const Entry *right) {
            return left->second.records > right->second.records;
        });
        return sorted;
    }

private:
    static size_t sizeOf(std::string_view text) { return text.size(); }
    static size_t sizeOf(qint32 /*number*/) { return 0; }

    Amounts counted;
    Amount rest;
    size_t keyBytes = 0;
};

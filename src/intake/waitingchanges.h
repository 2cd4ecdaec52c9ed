// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "intake/wiremessage.h"

#include <deque>
#include <memory>
#include <string_view>

/*!
 * Status changes that have been read and wait to be handled, in the order of their arrival:
 * of each what counts, as bytes. Memory is taken in blocks and given back block by block.
 */
class WaitingChanges
{
public:
    /*!
     * Bytes beyond which nothing more should be read. Of a message of the usual size some two
     * thirds are kept, so that this is room for more of them than libdbus keeps for QtDBus.
     */
    static constexpr size_t limit = size_t(48) * 1024 * 1024;

    //! One of them; views that are there until it is taken out.
    struct Change {
        quint32 serial = 0; //!< as its sender counts
        bool isBigEndian = false;
        std::string_view sender;
        std::string_view path;
        std::string_view body; //!< its first byte is aligned to 8
    };

    [[nodiscard]] bool isEmpty() const { return count == 0; }
    [[nodiscard]] bool isFull() const { return size >= limit; }
    //! How many have been added since this was made.
    [[nodiscard]] quint64 added() const { return taken + count; }
    //! How many of them have been taken out again.
    [[nodiscard]] quint64 removed() const { return taken; }

    void add(const Wire::Head &message);
    //! The oldest; there must be one.
    [[nodiscard]] Change first() const;
    void removeFirst();
    void clear();

    //! Calls a function with each, the oldest first, until it returns false.
    template <typename Function>
    void visit(Function &&function) const
    {
        for (const Block &block : blocks) {
            for (size_t at = block.begin; at < block.end;) {
                Change change;
                at += read(change, block.bytes.get() + at);
                if (!function(change)) {
                    return;
                }
            }
        }
    }

private:
    struct Block {
        std::unique_ptr<char[]> bytes;
        size_t size = 0;
        size_t begin = 0;
        size_t end = 0;
    };

    static size_t read(Change &change, const char *entry);

    std::deque<Block> blocks;
    size_t size = 0; //!< of all blocks, in bytes
    quint64 count = 0;
    quint64 taken = 0;
};

// SPDX-License-Identifier: Apache-2.0
#include "intake/waitingchanges.h"

#include <algorithm>
#include <cstring>

namespace
{

constexpr size_t usualBlock = 131072; // the allocator maps such by themselves, and unmaps them
constexpr size_t boundary = 8;

//! What stands in front of the body, the sender and the path.
struct Label {
    quint32 body;
    quint32 path;
    quint32 serial;
    quint16 sender;
    bool isBigEndian;
};

constexpr size_t labelSize = (sizeof(Label) + boundary - 1) / boundary * boundary;

size_t entrySize(const Label &label)
{
    const size_t texts = label.sender + size_t(label.path);
    return (labelSize + label.body + texts + boundary - 1) / boundary * boundary;
}

char *append(char *out, std::string_view bytes)
{
    return std::copy(bytes.begin(), bytes.end(), out);
}

} // namespace

size_t WaitingChanges::read(Change &change, const char *entry)
{
    Label label{};
    std::memcpy(&label, entry, sizeof label);
    change.serial = label.serial;
    change.isBigEndian = label.isBigEndian;
    const char *at = entry + labelSize;
    change.body = {at, label.body};
    at += label.body;
    change.sender = {at, label.sender};
    at += label.sender;
    change.path = {at, label.path};
    return entrySize(label);
}

void WaitingChanges::add(const Wire::Head &message)
{
    const std::string_view sender = message.sender.substr(0, 255); // the most that a bus gives
    const Label label{quint32(message.body.size()), quint32(message.path.size()), message.serial,
                      quint16(sender.size()), message.isBigEndian};
    const size_t needed = entrySize(label);
    if (blocks.empty() || blocks.back().size - blocks.back().end < needed) {
        if (count == 0) {
            clear(); // a block without any would stand in front
        }
        const size_t room = std::max(usualBlock, needed);
        blocks.push_back({std::unique_ptr<char[]>(new char[room]), room});
        size += room;
    }
    Block &block = blocks.back();
    char *const entry = block.bytes.get() + block.end;
    std::memcpy(entry, &label, sizeof label);
    append(append(append(entry + labelSize, message.body), sender), message.path);
    block.end += needed;
    ++count;
}

WaitingChanges::Change WaitingChanges::first() const
{
    Change change;
    (void)read(change, blocks.front().bytes.get() + blocks.front().begin);
    return change;
}

void WaitingChanges::removeFirst()
{
    Change change;
    Block &block = blocks.front();
    block.begin += read(change, block.bytes.get() + block.begin);
    ++taken;
    --count;
    if (block.begin < block.end) {
        return;
    }
    if (blocks.size() == 1 && block.size == usualBlock) {
        block.begin = block.end = 0; // is used again
        return;
    }
    size -= block.size;
    blocks.pop_front();
}

void WaitingChanges::clear()
{
    taken += count;
    count = 0;
    size = 0;
    blocks.clear();
}

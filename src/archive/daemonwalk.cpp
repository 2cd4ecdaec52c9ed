// SPDX-License-Identifier: Apache-2.0
#include "archive/daemonwalk.h"

#include "logformat/logformat.h"

#include <algorithm>
#include <cstring>

namespace Archive
{
namespace
{

//! Reads a file as a QIODevice does, through a window that suits a walk backwards.
class WindowSource
{
public:
    WindowSource(const FileBytes &file, qint64 size)
        : bytes(file)
        , fileSize(size)
    {
    }

    void seek(qint64 position) { place = position; }
    qint64 read(char *out, qint64 count)
    {
        const qint64 there = std::clamp<qint64>(fileSize - place, 0, count);
        if (there == 0 || !has(place, place + there)) {
            return 0;
        }
        std::memcpy(out, window.constData() + (place - windowBegin), size_t(there));
        place += there;
        return there;
    }

private:
    bool has(qint64 begin, qint64 end)
    {
        if (begin >= windowBegin && end <= windowBegin + window.size()) {
            return true;
        }
        constexpr qint64 before = 65536;
        constexpr qint64 behind = 64;
        windowBegin = std::max<qint64>(begin - before, 0);
        if (bytes.read(windowBegin, std::min(end + behind, fileSize), window)) {
            return true;
        }
        window.clear(); // what is no longer there counts as not delivered
        return false;
    }

    const FileBytes &bytes;
    qint64 fileSize;
    qint64 place = 0;
    QByteArray window;
    qint64 windowBegin = 0;
};

} // namespace

DaemonWalk::DaemonWalk(const FileBytes &file, qint64 size)
    : bytes(file)
    , fileSize(size)
{
    constexpr qint64 markEvery = 1048576;
    if (size == 0) {
        return;
    }
    WindowSource in(bytes, fileSize);
    LogFormat::walkBack(in, fileSize, LogFormat::Walk::WholeFile,
                        [this](qint64 position, quint64 logNr) {
                            if (marks.empty()) {
                                last = logNr;
                            }
                            if (marks.empty() || marks.back() - position >= markEvery) {
                                marks.push_back(position);
                            }
                            return true;
                        });
}

std::vector<qint64> DaemonWalk::positions(qint64 begin, qint64 end) const
{
    std::vector<qint64> found;
    const auto mark = std::lower_bound(marks.begin(), marks.end(), end,
                                       [](qint64 each, qint64 limit) { return each >= limit; });
    // The last mark at or behind the end, from which the walk goes on.
    const qint64 start = mark == marks.begin() ? fileSize : *std::prev(mark);
    if (start <= 0) {
        return found;
    }
    WindowSource in(bytes, fileSize);
    LogFormat::walkBack(in, start, LogFormat::Walk::WholeFile,
                        [&found, begin, end](qint64 position, quint64 /*logNr*/) {
                            if (position >= begin && position < end) {
                                found.push_back(position);
                            }
                            return position >= begin;
                        });
    return found;
}

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#include "reader/logfilecursor.h"

#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <limits>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{

constexpr qint64 usualRead = 65536;

// A disk fails by whole sectors. It mostly fails by pages too, but that is only a guess
// which saves attempts: each of them may take seconds.
constexpr qint64 sectorSize = 512;
constexpr qint64 pageSize = 4096;

qint64 nextMultiple(qint64 position, qint64 of)
{
    return position - position % of + of;
}

struct Reading {
    size_t size = 0;
    bool failed = false; //!< what follows cannot be read
};

//! Reads until all is there, the file ends or a byte cannot be read.
Reading readAt(int handle, char *bytes, size_t size, qint64 position)
{
    Reading done;
    while (done.size < size && !done.failed) {
        const ssize_t got
            = pread(handle, bytes + done.size, size - done.size, position + qint64(done.size));
        if (got == 0) {
            break;
        }
        done.size += size_t(std::max<ssize_t>(got, 0));
        done.failed = got < 0 && errno != EINTR;
    }
    return done;
}

/*!
 * Whether a descriptor is one of the last. They are left to the others: without one the
 * bus cuts the daemon off at the first message that carries a descriptor. Where there are
 * few, one less than half of them is left.
 */
bool isAmongTheLast(int handle)
{
    constexpr rlim_t mostSpare = 31;
    constexpr rlim_t fewest = 2;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return false;
    }
    const rlim_t spare = std::min(mostSpare, std::max(limit.rlim_cur, fewest) / 2 - 1);
    return rlim_t(handle) + spare >= limit.rlim_cur;
}

} // namespace

LogFile::LogFile(const QString &path)
    : file(path)
{
    // Opening a pipe, through a link, would wait for a writer that never comes.
    if (!QFileInfo(file).isFile()) {
        return;
    }
    if (!open()) {
        leftOut = file.error() == QFileDevice::ResourceError; // not even one descriptor
    } else if (isAmongTheLast(file.handle())) {
        file.close();
        leftOut = true;
    }
}

bool LogFile::open()
{
    return file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

void LogFile::announceReading() const
{
    (void)posix_fadvise(file.handle(), 0, 0, POSIX_FADV_WILLNEED);
}

LogFileCursor::LogFileCursor()
    : window(size_t(std::max(usualRead, maxRead)))
{
}

void LogFileCursor::use(LogFile &logFile)
{
    if (current != &logFile) {
        forget();
        current = &logFile;
        if (current->openedWhileUsed) {
            (void)current->open(); // without success it holds no byte
        }
    }
}

void LogFileCursor::forget()
{
    if (current != nullptr && current->openedWhileUsed) {
        current->file.close();
    }
    current = nullptr;
    windowBegin = 0;
    windowSize = 0;
    gapEnd = 0;
}

std::string_view LogFileCursor::takeAfterRefill(qint64 size)
{
    if (current->position < windowBegin || current->position >= gapEnd) {
        refill(size);
    }
    const qint64 offset = current->position - windowBegin;
    const qint64 found = std::clamp<qint64>(qint64(windowSize) - offset, 0, size);
    current->position += found;
    return {window.data() + std::min(offset, qint64(windowSize)), size_t(found)};
}

void LogFileCursor::refill(qint64 size)
{
    const qint64 wanted = std::max(size, usualRead);
    const qint64 position = current->position;
    // A walk towards the start of the file asks for positions ever lower, each time for a
    // length and for the number that may lie a little behind it. The window then ends a little
    // behind the bytes asked for, so that all of these are in it already.
    constexpr qint64 behind = 64;
    const bool backwards = windowSize > 0 && position < windowBegin;
    const qint64 end = position + (backwards ? std::max(size, behind) : wanted);
    windowBegin = std::max<qint64>(0, end - wanted);
    while (!fill(end) && gapEnd <= position) {
        // What lies before the gap is not what is asked for.
        windowBegin = std::min(position, nextMultiple(gapEnd - 1, pageSize));
    }
}

/*!
 * Reads from the window's begin to \a end, or to where the file ends or cannot be
 * read; false in the last case. All of that sector is a gap then.
 */
bool LogFileCursor::fill(qint64 end)
{
    const auto wanted = size_t(end - windowBegin);
    const Reading done = current->file.isOpen()
        ? readAt(current->file.handle(), window.data(), wanted, windowBegin)
        : Reading();
    windowSize = done.size;
    if (!done.failed) {
        gapEnd = windowSize < wanted ? std::numeric_limits<qint64>::max() : 0;
        return true;
    }
    const qint64 gapBegin = windowBegin + qint64(windowSize);
    gapEnd = nextMultiple(gapBegin, sectorSize);
    if (windowSize == 0) {
        windowBegin = gapEnd - sectorSize;
    }
    return false;
}

// SPDX-License-Identifier: Apache-2.0
#include "reader/logfilecursor.h"

#include <QFileInfo>

#include <algorithm>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace
{

constexpr qint64 usualRead = 65536;

//! Reads until all is there or the file ends; the number of bytes read.
size_t readAt(int handle, char *bytes, size_t size, qint64 position)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t got = pread(handle, bytes + done, size - done, position + qint64(done));
        if (got <= 0) {
            break;
        }
        done += size_t(got);
    }
    return done;
}

/*!
 * Whether a descriptor is one of the last. They are left to the others: without one the
 * bus cuts the daemon off at the first message that carries a descriptor.
 */
bool isAmongTheLast(int handle)
{
    constexpr rlim_t spare = 32;
    rlimit limit{};
    return getrlimit(RLIMIT_NOFILE, &limit) == 0 && rlim_t(handle) + spare >= limit.rlim_cur;
}

} // namespace

LogFile::LogFile(const QString &path)
    : file(path)
{
    // Opening a pipe, through a link, would wait for a writer that never comes.
    if (QFileInfo(file).isFile() && file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)
        && isAmongTheLast(file.handle())) {
        file.close();
    }
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
    }
}

void LogFileCursor::forget()
{
    current = nullptr;
    windowBegin = 0;
    windowSize = 0;
    windowEndsFile = false;
}

std::string_view LogFileCursor::takeAfterRefill(qint64 size)
{
    if (!windowEndsFile || current->position < windowBegin) {
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
    // Who goes backwards wants what lies before next.
    const bool backwards = windowSize > 0 && position < windowBegin;
    windowBegin = backwards ? std::max<qint64>(0, position + size - wanted) : position;
    windowSize = current->file.isOpen()
        ? readAt(current->file.handle(), window.data(), size_t(wanted), windowBegin)
        : 0;
    windowEndsFile = windowSize < size_t(wanted);
}

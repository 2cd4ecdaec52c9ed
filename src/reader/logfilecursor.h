// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFile>
#include <QString>

#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

//! A log file, open for reading, and the position at which reading it goes on.
class LogFile
{
public:
    /*!
     * Opens the file; without success, or with anything but a regular file, it holds no
     * byte. It is left out, and holds none either, where it would take one of the last
     * descriptors of the process.
     */
    explicit LogFile(const QString &path);

    //! The absolute path that it was opened under; a rotation may have renamed it since.
    [[nodiscard]] QString fileName() const { return file.fileName(); }
    //! In bytes, as of now; of a file that is not open, that of what now has its name.
    [[nodiscard]] qint64 size() const { return file.size(); }
    [[nodiscard]] bool isLeftOut() const { return leftOut; }
    //! Has a file that is left out opened all the same, as long as a cursor is in it.
    void openWhileUsed() { openedWhileUsed = std::exchange(leftOut, false); }
    [[nodiscard]] bool canBeRead() const { return file.isOpen() || openedWhileUsed; }
    //! Tells the system that all of the file is about to be read.
    void announceReading() const;

private:
    friend class LogFileCursor;

    bool open();

    QFile file;
    qint64 position = 0;
    bool leftOut = false;
    bool openedWhileUsed = false;
};

/*!
 * Reads log files with a QIODevice's read() and seek(), one file at a time and
 * through one small window of its bytes, so that hardly any field costs a system
 * call of its own. Each file keeps its position while others are read.
 *
 * Bytes that cannot be read are missing in the fields that lie in them, as at the end
 * of the file, and in no other.
 */
class LogFileCursor
{
public:
    LogFileCursor();

    //! Goes on in a file, which must outlive its use.
    void use(LogFile &logFile);
    //! Leaves the file and drops the window: what follows may find another file there.
    void forget();

    [[nodiscard]] qint64 position() const { return current->position; }
    //! \a position is from the start of the file and not negative.
    void seek(qint64 position) { current->position = position; }
    //! Reads up to \a size bytes, not more than maxRead, and gives their number.
    qint64 read(char *bytes, qint64 size)
    {
        const std::string_view found = take(size);
        std::memcpy(bytes, found.data(), found.size());
        return qint64(found.size());
    }
    //! The same without copying: valid until the next reading.
    std::string_view take(qint64 size)
    {
        const qint64 offset = current->position - windowBegin;
        if (offset < 0 || offset + size > qint64(windowSize)) {
            return takeAfterRefill(size);
        }
        current->position += size;
        return {window.data() + offset, size_t(size)};
    }

    static constexpr qint64 maxRead = 65535;

private:
    std::string_view takeAfterRefill(qint64 size);
    void refill(qint64 size);
    [[nodiscard]] bool fill(qint64 end);

    LogFile *current = nullptr;
    std::vector<char> window;
    qint64 windowBegin = 0;
    size_t windowSize = 0;
    //! Up to here, behind the window, the file is known to deliver nothing; 0: nothing is known.
    qint64 gapEnd = 0;
};

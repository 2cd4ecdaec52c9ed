// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "binlog/currentfile.h"
#include "binlog/folderlock.h"
#include "binlog/logfiles.h"
#include "output/loginterface.h"

#include <QByteArray>
#include <QDir>

#include <system_error>

/*!
 * Appends events to a rotating set of log files.
 *
 * Records collect in memory as one bundle and reach the file together, with one
 * write and one fsync: when a record makes the bundle larger than maxBundleSize,
 * or when the flush timer fires, which the first record after a timed write
 * arms. Once the current file has reached maxFileSize every file's index grows
 * by one and a new current file is started.
 *
 * Numbering: runs on across files, clearing and restarts; a start with no record
 * anywhere begins at 1.
 * Owns: the handle of the current file; nobody else may write in the directory meanwhile, a
 * repair only before and after. As long as that file is open the directory is locked
 * (FolderLock), unless somebody else has the lock.
 * Failure: ends the process with a fatal message when the directory or the
 * current file cannot be opened. A bundle that cannot be written is lost as a whole,
 * its numbers stay unused, and storing goes on with the next one; one whose fsync fails
 * counts as not stored, but stays in the file. The first bundle not stored and the first
 * stored again are reported as warnings. A failed rename or removal goes unnoticed: the
 * file stays under its name.
 * Lifetime: records still in memory when the object dies are lost, on purpose.
 */
class BinaryLogInterface : public LogInterface
{
    Q_OBJECT

public:
    //! Where a device keeps its log.
    static QDir defaultLogDir();
    // What it is made with, the daemon's on a device and the benchmarks' alike.
    static constexpr uint defaultBundleSize = 2560; //!< bytes
    static constexpr int defaultFlushInterval = 30; //!< seconds
    static constexpr int defaultLogtail = 10;       //!< until another is set
    static constexpr uint defaultFileSize = 102400; //!< bytes

    /*!
     * \a bundleLimit and \a fileLimit are in bytes, a \a fileLimit of 0 switches
     * rotation after a write off; \a flushSeconds is the longest time that a record
     * waits in memory; \a highestIndex is that of the oldest file kept. Creates the
     * last level of \a directory when it is missing.
     */
    BinaryLogInterface(uint bundleLimit, int flushSeconds, int highestIndex, uint fileLimit,
                       const QDir &directory = defaultLogDir());
    ~BinaryLogInterface() override;
    Q_DISABLE_COPY_MOVE(BinaryLogInterface)

    void logEvent(int id, const QList<QVariant> &args) override;
    //! Writes what is queued, even nothing, and rotates where the file is full.
    void writeBundle();
    //! Writes what is queued; where nothing is, the file is left alone and no signal comes.
    void writeQueued();
    //! Deletes all files up to index logtail, drops queued records, starts an empty current file.
    void clearLogfiles();

    [[nodiscard]] int getLogtail() const { return logtail; }
    //! Keeps files up to index \a n and deletes those above; below 1 it is ignored.
    void setLogtail(int n);

Q_SIGNALS:
    //! The current file has grown. Comes before logsRotated() of the same write.
    void bundleWritten();
    //! The file set has changed.
    void logsRotated();

protected:
    void timerEvent(QTimerEvent *event) override;

    // The steps of one record; each appends to the bundle.
    virtual void beginRecord();
    virtual void endRecord();
    virtual void writeLogNr();
    //! The current time, all zero when the clock cannot be read.
    virtual void writeTimestamp();
    virtual void writeEventData(int id, const QList<QVariant> &args);

    virtual void rotateLogfiles();
    virtual void openLogfile();
    virtual void closeLogfile();

    //! Appends a time stamp to the record; seconds count from 1970-01-01 UTC.
    void appendTimestamp(qint64 seconds, qint32 microseconds);

private:
    [[nodiscard]] std::error_code appendBundle();
    [[nodiscard]] std::error_code returnToFolder();
    void reportStoring(std::error_code failure);
    [[nodiscard]] std::error_code openCurrentFile();
    void openCurrentFileOrDie();
    void continueCurrentFile();
    void readLastLogNr();

    QByteArray bundle; //!< whole records not yet written
    uint maxFileSize;
    int logtail;
    uint maxBundleSize;
    int recordsInBundle = 0;
    int flushInterval;
    LogFiles files;
    CurrentFile currentFile;
    FolderLock lock;
    qint64 recordBegin = 0;  //!< of the record under construction, in the bundle
    int flushTimerId = 0;    //!< 0 when no timer runs
    bool outage = false;     //!< whether the last bundle could not be stored
    quint64 recordsLost = 0; //!< in this outage
};

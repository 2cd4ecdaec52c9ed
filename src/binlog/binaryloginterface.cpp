// SPDX-License-Identifier: Apache-2.0
#include "binlog/binaryloginterface.h"

#include "logformat/encoding.h"
#include "logformat/logformat.h"
#include "messages/boundedmessages.h"

#include <QFile>
#include <QFileInfo>
#include <QtDebug>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <limits>

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace
{

constexpr char unhandledType[] = "Unhandled type";

bool ensureDirectory(const QDir &dir)
{
    if (dir.exists()) {
        return true;
    }
    const QFileInfo missing(dir.absolutePath());
    (void)missing.dir().mkdir(missing.fileName()); // whether it is there now is what counts
    const int reason = errno;
    const bool isThere = dir.exists();
    errno = reason;
    return isThere;
}

//! Whether it is a file, and not a pipe that would sooner or later block the writer.
bool isRegular(const QFile &file)
{
    struct stat status {
    };
    return fstat(file.handle(), &status) == 0 && S_ISREG(status.st_mode);
}

bool isDeleted(const QFile &file)
{
    struct stat status {
    };
    return fstat(file.handle(), &status) == 0 && status.st_nlink == 0;
}

/*!
 * Moves a file to a name that is free. QFile::rename() would make up for a failed
 * rename by a copy: slow, not forced to storage before its source is deleted, and a
 * second set of the same records where the source cannot be deleted.
 */
bool moveFile(const QString &from, const QString &to)
{
    return !QFileInfo::exists(to)
        && std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

} // namespace

QDir BinaryLogInterface::defaultLogDir()
{
    return QDir(QStringLiteral("/srv/public/log"));
}

BinaryLogInterface::BinaryLogInterface(uint bundleLimit, int flushSeconds, int highestIndex,
                                       uint fileLimit, const QDir &directory)
    : maxFileSize(fileLimit)
    , logtail(highestIndex)
    , maxBundleSize(bundleLimit)
    , flushInterval(flushSeconds)
    , logDir(directory)
{
    if (!ensureDirectory(logDir)) {
        qFatal("%s does not exist and cannot be created.", qPrintable(logDir.path()));
    }
    // The first opening only finds the number: opening it for good may rotate
    // the file away.
    openCurrentFileOrDie();
    if (currentFile->size() > 0) {
        readLastLogNr();
    } else {
        continueAfterOlderFiles();
    }
    BinaryLogInterface::closeLogfile();
    BinaryLogInterface::openLogfile();
}

BinaryLogInterface::~BinaryLogInterface() = default;

void BinaryLogInterface::logEvent(int id, const QList<QVariant> &args)
{
    if (!device) {
        return;
    }
    beginRecord();
    writeLogNr();
    writeTimestamp();
    writeEventData(id, args);
    endRecord();
}

void BinaryLogInterface::beginRecord()
{
    recordBegin = bundle.size();
    if (flushTimerId == 0) {
        flushTimerId
            = startTimer(1000 * flushInterval, Qt::PreciseTimer); // a coarse one fires early
    }
}

void BinaryLogInterface::writeLogNr()
{
    LogFormat::appendLogNr(bundle, logNr);
    ++logNr;
}

void BinaryLogInterface::writeTimestamp()
{
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        now = {};
    }
    appendTimestamp(now.tv_sec, qint32(now.tv_usec));
}

void BinaryLogInterface::appendTimestamp(qint64 seconds, qint32 microseconds)
{
    LogFormat::appendTimestamp(bundle, seconds, microseconds);
}

void BinaryLogInterface::writeEventData(int id, const QList<QVariant> &args)
{
    LogFormat::appendEventId(bundle, id);
    for (const QVariant &value : args) {
        // A message can hold millions of them, and a warning takes longer than a value.
        if (!LogFormat::appendValue(bundle, value)
            && !BoundedMessages::leaveOut(QtWarningMsg, QLatin1String(unhandledType))) {
            qWarning("%s", unhandledType);
        }
    }
}

void BinaryLogInterface::endRecord()
{
    LogFormat::appendTail(bundle, recordBegin);
    ++recordsInBundle;
    if (uint(bundle.size()) > maxBundleSize) {
        writeBundle();
    }
}

void BinaryLogInterface::writeBundle()
{
    if (!device) {
        return;
    }
    const bool appended = returnToDirectory() && mendFile() && appendBundle();
    const bool stored = appended && fsync(currentFile->handle()) == 0;
    const int reason = errno;
    if (!appended) {
        recordsLost += quint64(recordsInBundle);
    }
    reportStoring(stored, reason);
    recordsInBundle = 0;
    bundle.clear();
    Q_EMIT bundleWritten();

    // A file that takes nothing in at present is not rotated either.
    if (appended && maxFileSize != 0 && currentFile->size() >= qint64(maxFileSize)) {
        closeLogfile();
        openLogfile();
    }
}

void BinaryLogInterface::writeQueued()
{
    if (!bundle.isEmpty()) {
        writeBundle();
    }
}

bool BinaryLogInterface::appendBundle()
{
    const qint64 begin = currentFile->size();
    if (device->pos() != begin) {
        (void)device->seek(begin); // somebody has emptied the file
    }
    if (device->write(bundle) == bundle.size()) {
        return currentFile->flush();
    }
    // Records are found from the end of the file: half of one would hide all before it.
    const int reason = errno;
    tornAt = begin;
    (void)cutOffTornRecord();
    errno = reason;
    return false;
}

bool BinaryLogInterface::cutOffTornRecord()
{
    if (tornAt < 0) {
        return true;
    }
    // Only ever cut: somebody may have emptied the file, and resizing would fill it with zeros.
    const bool isTorn = currentFile->size() > tornAt; // not where nothing at all was written
    if ((isTorn && !currentFile->resize(tornAt)) || !currentFile->seek(currentFile->size())) {
        return false;
    }
    tornAt = -1;
    return true;
}

//! Cuts off what could not be cut off at once.
bool BinaryLogInterface::mendFile()
{
    if (tornAt < 0) {
        return true;
    }
    if (!cutOffTornRecord()) {
        return false;
    }
    Q_EMIT logsRotated(); // what was read in the file meanwhile is void
    return true;
}

//! Makes the directory and the current file anew when they were deleted under the daemon.
bool BinaryLogInterface::returnToDirectory()
{
    if (!isDeleted(*currentFile)) {
        return true;
    }
    tornAt = -1; // deleted with the file
    if (!ensureDirectory(logDir) || !openCurrentFile()) {
        return false;
    }
    continueCurrentFile();
    Q_EMIT logsRotated();
    return true;
}

void BinaryLogInterface::reportStoring(bool stored, int reason)
{
    if (stored == !outage || bundle.isEmpty()) {
        return; // nothing new, or nothing tried
    }
    outage = !stored;
    if (outage) {
        qWarning("The log cannot be stored: %s", qPrintable(qt_error_string(reason)));
    } else {
        qWarning("The log is stored again; records lost meanwhile: %llu", recordsLost);
        recordsLost = 0;
    }
}

void BinaryLogInterface::timerEvent(QTimerEvent * /*event*/)
{
    writeBundle();
    killTimer(flushTimerId);
    flushTimerId = 0;
}

void BinaryLogInterface::openLogfile()
{
    const QFileInfo present(filePath(0));
    if (tornAt < 0 && present.exists() && present.size() >= qint64(maxFileSize)) {
        // During construction no subclass's rotation exists yet, and none is meant.
        rotateLogfiles(); // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall)
    }
    (void)ensureDirectory(logDir); // it may have been deleted meanwhile
    openCurrentFileOrDie();
    continueCurrentFile();
}

bool BinaryLogInterface::openCurrentFile()
{
    auto file = std::make_unique<QFile>(filePath(0));
    // Unbuffered: a bundle of any size is one write, and a failed one leaves nothing behind.
    if (!file->open(QIODevice::ReadWrite | QIODevice::Unbuffered) || !isRegular(*file)) {
        return false;
    }
    currentFile = std::move(file);
    device = currentFile.get();
    return true;
}

void BinaryLogInterface::openCurrentFileOrDie()
{
    if (!openCurrentFile()) {
        qFatal("failed to open log file");
    }
}

void BinaryLogInterface::continueCurrentFile()
{
    if (cutOffTornRecord() && currentFile->size() > 0) {
        const quint64 next = logNr;
        readLastLogNr();
        logNr = std::max(logNr, next); // the numbers of lost records stay lost
        currentFile->seek(currentFile->size());
    }
}

void BinaryLogInterface::readLastLogNr()
{
    logNr = LogFormat::lastLogNr(*currentFile) + 1;
    qDebug() << "existing logfile, starting with log nr:" << logNr;
}

//! With an empty current file, a rotation just happened: the newest record is in an older file.
void BinaryLogInterface::continueAfterOlderFiles()
{
    const QList<int> older = existingFiles(1, std::numeric_limits<int>::max());
    for (auto index = older.crbegin(); index != older.crend(); ++index) {
        QFile file(filePath(*index));
        // Opening a pipe would wait for a writer that never comes.
        if (QFileInfo(file).isFile() && file.open(QIODevice::ReadOnly) && file.size() > 0) {
            logNr = LogFormat::lastLogNr(file) + 1;
            return;
        }
    }
}

void BinaryLogInterface::closeLogfile()
{
    device->close();
}

void BinaryLogInterface::rotateLogfiles()
{
    // Only files that exist have work in them: logtail may be astronomical.
    // A failed removal or renaming leaves that file where it is.
    removeFiles(logtail, logtail);
    for (const int index : existingFiles(0, logtail - 1)) {
        (void)moveFile(filePath(index), filePath(index + 1));
    }
    Q_EMIT logsRotated();
}

void BinaryLogInterface::clearLogfiles()
{
    closeLogfile();
    removeFiles(0, logtail);
    recordsInBundle = 0;
    bundle.clear();
    openLogfile();
    Q_EMIT logsRotated();
}

void BinaryLogInterface::setLogtail(int n)
{
    if (n < 1) {
        return;
    }
    const int before = logtail;
    logtail = n;
    if (before > n) {
        removeFiles(n + 1, before);
    }
    Q_EMIT logsRotated();
}

QString BinaryLogInterface::filePath(int index) const
{
    return logDir.absoluteFilePath(LogFormat::fileName(index));
}

//! The indexes between two bounds, both included, that have a file; the highest first.
QList<int> BinaryLogInterface::existingFiles(int lowest, int highest) const
{
    QList<int> indexes;
    const QStringList names
        = logDir.entryList(QDir::Files | QDir::Dirs | QDir::Hidden | QDir::System, QDir::Unsorted);
    for (const QString &name : names) {
        const int index = LogFormat::fileIndex(name);
        if (index >= lowest && index <= highest) {
            indexes.append(index);
        }
    }
    std::sort(indexes.begin(), indexes.end(), std::greater<>());
    return indexes;
}

void BinaryLogInterface::removeFiles(int lowest, int highest)
{
    for (const int index : existingFiles(lowest, highest)) {
        (void)QFile::remove(filePath(index));
    }
}

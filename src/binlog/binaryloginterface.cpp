// SPDX-License-Identifier: Apache-2.0
#include "binlog/binaryloginterface.h"

#include "logformat/encoding.h"
#include "logformat/logformat.h"
#include "messages/boundedmessages.h"

#include <QFileInfo>
#include <QtDebug>

#include <algorithm>

#include <sys/time.h>

namespace
{

constexpr char unhandledType[] = "Unhandled type";

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
    , files(directory)
    , lock(directory)
{
    if (files.ensureFolder()) {
        qFatal("%s does not exist and cannot be created.", qPrintable(directory.path()));
    }
    // The first opening only finds the number: opening it for good may rotate
    // the file away.
    openCurrentFileOrDie();
    if (currentFile.size() > 0) {
        readLastLogNr();
    } else {
        logNr = files.lastLogNr() + 1; // a rotation just happened, or there is no record
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
    std::error_code failure = appendBundle();
    const bool appended = !failure;
    if (appended) {
        failure = currentFile.sync();
    } else {
        recordsLost += quint64(recordsInBundle);
    }
    reportStoring(failure);
    recordsInBundle = 0;
    bundle.clear();
    Q_EMIT bundleWritten();

    // A file that takes nothing in at present is not rotated either.
    if (appended && maxFileSize != 0 && currentFile.size() >= qint64(maxFileSize)) {
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

std::error_code BinaryLogInterface::appendBundle()
{
    if (const std::error_code error = returnToFolder()) {
        return error;
    }
    if (currentFile.isTorn()) {
        if (const std::error_code error = currentFile.mend()) {
            return error;
        }
        Q_EMIT logsRotated(); // what was read in the file meanwhile is void
    }
    return currentFile.append(bundle);
}

//! Makes the folder and the current file anew when they were deleted under the daemon.
std::error_code BinaryLogInterface::returnToFolder()
{
    if (!currentFile.isDeleted()) {
        return {};
    }
    std::error_code error = files.ensureFolder();
    if (!error) {
        error = openCurrentFile();
    }
    if (!error) {
        continueCurrentFile();
        Q_EMIT logsRotated();
    }
    return error;
}

void BinaryLogInterface::reportStoring(std::error_code failure)
{
    if (outage == bool(failure) || bundle.isEmpty()) {
        return; // nothing new, or nothing tried
    }
    outage = bool(failure);
    if (outage) {
        qWarning("The log cannot be stored: %s", qPrintable(qt_error_string(failure.value())));
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
    const QFileInfo present(files.path(0));
    if (!currentFile.isTorn() && present.exists() && present.size() >= qint64(maxFileSize)) {
        // During construction no subclass's rotation exists yet, and none is meant.
        rotateLogfiles(); // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall)
    }
    (void)files.ensureFolder(); // it may have been deleted meanwhile
    openCurrentFileOrDie();
    continueCurrentFile();
}

std::error_code BinaryLogInterface::openCurrentFile()
{
    const std::error_code error = currentFile.open(files.path(0));
    device = currentFile.device();
    if (!error) {
        lock.hold(); // not before: it blocks an unmounting no more than the open file does
    }
    return error;
}

void BinaryLogInterface::openCurrentFileOrDie()
{
    if (openCurrentFile()) {
        qFatal("failed to open log file");
    }
}

void BinaryLogInterface::continueCurrentFile()
{
    if (!currentFile.mend() && currentFile.size() > 0) {
        const quint64 next = logNr;
        readLastLogNr();
        logNr = std::max(logNr, next); // the numbers of lost records stay lost
    }
}

void BinaryLogInterface::readLastLogNr()
{
    logNr = currentFile.lastLogNr() + 1;
    qDebug() << "existing logfile, starting with log nr:" << logNr;
}

void BinaryLogInterface::closeLogfile()
{
    currentFile.close();
}

void BinaryLogInterface::rotateLogfiles()
{
    files.rotate(logtail);
    Q_EMIT logsRotated();
}

void BinaryLogInterface::clearLogfiles()
{
    closeLogfile();
    files.remove(0, logtail);
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
        files.remove(n + 1, before);
    }
    Q_EMIT logsRotated();
}

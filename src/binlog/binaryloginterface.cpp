// SPDX-License-Identifier: Apache-2.0
#include "binlog/binaryloginterface.h"

#include "binlog/logformat.h"

#include <QFile>
#include <QFileInfo>
#include <QtDebug>

#include <algorithm>
#include <functional>
#include <limits>

#include <sys/time.h>
#include <unistd.h>

namespace
{

void ensureDirectory(const QDir &dir)
{
    if (dir.exists()) {
        return;
    }
    const QFileInfo missing(dir.absolutePath());
    (void)missing.dir().mkdir(missing.fileName()); // whether it is there now is what counts
    if (!dir.exists()) {
        qFatal("%s does not exist and cannot be created.", qPrintable(dir.path()));
    }
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
    ensureDirectory(logDir);
    // The first opening only finds the number: opening it for good may rotate
    // the file away.
    openCurrentFile();
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
    recordLength = 0;
    if (flushTimerId == 0) {
        flushTimerId
            = startTimer(1000 * flushInterval, Qt::PreciseTimer); // a coarse one fires early
    }
}

void BinaryLogInterface::writeLogNr()
{
    appendNumber<quint64>(logNr);
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
    appendNumber<qint64>(qAbs(seconds));
    appendNumber<qint32>(microseconds);
    appendNumber<qint32>(0);
}

void BinaryLogInterface::writeEventData(int id, const QList<QVariant> &args)
{
    appendNumber<qint32>(id);
    for (const QVariant &value : args) {
        writeValue(value);
    }
}

void BinaryLogInterface::endRecord()
{
    appendNumber<char>(LogFormat::endMark);
    LogFormat::append<quint16>(bundle, recordLength);
    ++recordsInBundle;
    if (uint(bundle.size()) > maxBundleSize) {
        writeBundle();
    }
}

template <typename Number>
void BinaryLogInterface::appendNumber(Number value)
{
    LogFormat::append<Number>(bundle, value);
    recordLength = quint16(recordLength + sizeof(Number));
}

void BinaryLogInterface::writeValue(const QVariant &value)
{
    const auto sizeBefore = bundle.size();
    LogFormat::appendValue(bundle, value);
    recordLength = quint16(recordLength + (bundle.size() - sizeBefore));
}

void BinaryLogInterface::writeBundle()
{
    if (!device) {
        return;
    }
    recordsInBundle = 0;
    device->write(bundle);
    bundle.clear();
    currentFile->flush();
    fsync(currentFile->handle());
    Q_EMIT bundleWritten();

    if (maxFileSize != 0 && currentFile->size() >= qint64(maxFileSize)) {
        closeLogfile();
        openLogfile();
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
    if (present.exists() && present.size() >= qint64(maxFileSize)) {
        // During construction no subclass's rotation exists yet, and none is meant.
        rotateLogfiles(); // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall)
    }
    openCurrentFile();
    if (currentFile->size() > 0) {
        readLastLogNr();
        currentFile->seek(currentFile->size());
    }
}

void BinaryLogInterface::openCurrentFile()
{
    currentFile = std::make_unique<QFile>(filePath(0));
    device = currentFile.get();
    // Unbuffered: a bundle of any size is one write, and a failed one leaves nothing behind.
    if (!currentFile->open(QIODevice::ReadWrite | QIODevice::Unbuffered)) {
        qFatal("failed to open log file");
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
        (void)QFile::rename(filePath(index), filePath(index + 1));
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

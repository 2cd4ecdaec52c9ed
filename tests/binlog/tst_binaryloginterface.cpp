// SPDX-License-Identifier: Apache-2.0

// The writer: records, bundles, numbering, rotation, clearing.

#include "binlog/binaryloginterface.h"
#include "support/goldenrecords.h"
#include "support/literals.h"
#include "support/lockedfolder.h"
#include "support/recordbytes.h"
#include "support/workedrecord.h"
#include "trouble.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimerEvent>
#include <QtEndian>

#include <cerrno>
#include <limits>
#include <memory>

#include <sys/stat.h>
#include <sys/time.h>

namespace
{

constexpr uint bundleLimit = 2560;
constexpr uint fileLimit = 102400;
constexpr int flushSeconds = 30;

//! A writer whose clock stands still.
class FixedClockLog : public BinaryLogInterface
{
public:
    using BinaryLogInterface::BinaryLogInterface;

    [[nodiscard]] quint64 nextNumber() const { return logNr; }
    void detach() { device = nullptr; }

    qint64 seconds = 1700000000;
    qint32 microseconds = 250000;

protected:
    void writeTimestamp() override { appendTimestamp(seconds, microseconds); }
};

} // namespace

class BinaryLogInterfaceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void smallestRecord();
    void goldenRecord_data();
    void goldenRecord();
    void documentedRecord();
    void timeBefore1970IsStoredAsAbsoluteValue();
    void clockIsTheSystemClock();
    void recordLengthIsKeptModulo65536();

    void bundleIsWrittenOnceItIsLargerThanTheLimit();
    void everyBundleIsOneWriteForcedToStorage();
    void timerWritesTheBundleAndStops();
    void writingAnEmptyBundleStillTells();
    void writingWhatIsQueuedWritesNoEmptyBundle();
    void withoutDeviceNothingHappens();
    void destructionDropsTheBundle();

    void numberingContinues_data();
    void numberingContinues();
    void emptyCurrentFileContinuesAfterTheNewestOlderFile_data();
    void emptyCurrentFileContinuesAfterTheNewestOlderFile();
    void pipeAmongOlderFilesIsSkipped();
    void fullFileIsRotatedAtStart();

    void rotationMovesEveryFile();
    void rotationFollowsTheLastBundle();
    void filesBeyondLogtailStayAtRotation();
    void zeroFileLimitDoesNotRotateAfterAWrite();
    void failedRenamesAreIgnored();

    void bundleThatIsNotWrittenIsLostAsAWhole_data();
    void bundleThatIsNotWrittenIsLostAsAWhole();
    void failedFsyncIsReportedAndLosesNothing();
    void emptyBundleEndsNoOutage();
    void tornRecordIsCutOffOnceItCanBe();
    void deletedFolderIsMadeAnew();
    void fullFileIsNotRotatedWhileItIsGone();

    void setLogtail_data();
    void setLogtail();
    void astronomicalLogtailReturnsAtOnce();
    void clearing();
    void clearingLeavesTheFlushTimerRunning();

    void folderStaysLocked();
    void lockOfAnotherStopsNothing();

    void missingDirectoryIsCreated();
    void fatalMessages_data();
    void fatalMessages();

private:
    [[nodiscard]] QString path(int index) const;
    [[nodiscard]] QByteArray content(int index) const;
    void put(int index, const QByteArray &bytes) const;
    [[nodiscard]] QList<int> indexes() const;
    [[nodiscard]] std::unique_ptr<FixedClockLog> makeLog(int logtail = 10,
                                                         uint maxFileSize = fileLimit) const;
    static void fireTimer(BinaryLogInterface &log);
    static void logSmall(BinaryLogInterface &log, int count);

    std::unique_ptr<QTemporaryDir> folder;
};

void BinaryLogInterfaceTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(".?"_s));
#endif
    folder = std::make_unique<QTemporaryDir>();
    trouble = {};
}

QString BinaryLogInterfaceTest::path(int index) const
{
    return folder->filePath("zib%1.log"_s.arg(index));
}

QByteArray BinaryLogInterfaceTest::content(int index) const
{
    QFile file(path(index));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no file");
}

void BinaryLogInterfaceTest::put(int index, const QByteArray &bytes) const
{
    QFile file(path(index));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), qint64(bytes.size()));
}

QList<int> BinaryLogInterfaceTest::indexes() const
{
    QList<int> found;
    for (int i = 0; i <= 20; ++i) {
        if (QFile::exists(path(i))) {
            found.append(i);
        }
    }
    return found;
}

std::unique_ptr<FixedClockLog> BinaryLogInterfaceTest::makeLog(int logtail, uint maxFileSize) const
{
    return std::make_unique<FixedClockLog>(bundleLimit, flushSeconds, logtail, maxFileSize,
                                           QDir(folder->path()));
}

//! Thirty seconds pass at once.
void BinaryLogInterfaceTest::fireTimer(BinaryLogInterface &log)
{
    QTimerEvent due(0);
    QCoreApplication::sendEvent(&log, &due);
}

//! Events of 33 bytes: a head, an empty path, the end.
void BinaryLogInterfaceTest::logSmall(BinaryLogInterface &log, int count)
{
    for (int i = 0; i < count; ++i) {
        log.logEvent(1, {QString()});
    }
}

void BinaryLogInterfaceTest::smallestRecord()
{
    const auto log = makeLog();
    log->logEvent(1001, {"/a"_s});
    log->writeBundle();
    const QByteArray record = content(0);
    QCOMPARE(record.size(), 35);
    QCOMPARE(record.mid(20, 4), QByteArray(4, '\0'));
    QCOMPARE(record.mid(28, 2).toHex(), QByteArray("0200"));
    QCOMPARE(record.mid(30, 2), QByteArray("/a"));
    QCOMPARE(record.at(32), '\x0A');
    QCOMPARE(record.mid(33).toHex(), QByteArray("2100"));

    RecordBytes::Fields expected;
    expected.path = "/a";
    QCOMPARE(record.toHex(), RecordBytes::record(expected).toHex());
}

void BinaryLogInterfaceTest::goldenRecord_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("isReported");
    const auto rows = goldenRecords();
    for (const GoldenRecord &golden : rows) {
        QTest::newRow(golden.name)
            << QVariantList{golden.value} << golden.bytes << golden.isReported;
    }
}

void BinaryLogInterfaceTest::goldenRecord()
{
    QFETCH(QVariantList, values);
    QFETCH(QByteArray, bytes);
    QFETCH(bool, isReported);
    if (isReported) {
        QTest::ignoreMessage(QtWarningMsg, "Unhandled type");
    }
    const auto log = makeLog();
    values.prepend("/power/supply"_s);
    log->logEvent(1001, values);
    log->writeBundle();

    RecordBytes::Fields expected;
    expected.values = bytes;
    QCOMPARE(content(0).toHex(), RecordBytes::record(expected).toHex());
}

void BinaryLogInterfaceTest::documentedRecord()
{
    put(0, RecordBytes::record(41));
    QTest::ignoreMessage(QtDebugMsg, "existing logfile, starting with log nr: 42");
    QTest::ignoreMessage(QtDebugMsg, "existing logfile, starting with log nr: 42");
    const auto log = makeLog();
    log->logEvent(1001, {"/power/supply"_s, true, 12, 230.5, "Netz"_s});
    log->writeBundle();
    const QByteArray record = content(0).mid(RecordBytes::record(41).size());
    QCOMPARE(workedRecord(QStringLiteral(SEL_DOCS)).toHex(' '), record.toHex(' '));
}

void BinaryLogInterfaceTest::timeBefore1970IsStoredAsAbsoluteValue()
{
    const auto log = makeLog();
    log->seconds = -5;
    logSmall(*log, 1);
    log->writeBundle();
    QCOMPARE(content(0).mid(8, 8), RecordBytes::number(5, 8));
}

void BinaryLogInterfaceTest::clockIsTheSystemClock()
{
    timeval before{};
    gettimeofday(&before, nullptr);
    BinaryLogInterface log(bundleLimit, flushSeconds, 10, fileLimit, QDir(folder->path()));
    logSmall(log, 1);
    log.writeBundle();
    timeval after{};
    gettimeofday(&after, nullptr);

    const QByteArray record = content(0);
    const auto seconds = qFromLittleEndian<qint64>(record.constData() + 8);
    const auto fraction = qFromLittleEndian<qint32>(record.constData() + 16);
    const auto microseconds
        = [](const timeval &time) { return qlonglong(time.tv_sec) * 1000000 + time.tv_usec; };
    const qlonglong stored = seconds * 1000000 + fraction;
    QVERIFY(microseconds(before) <= stored && stored <= microseconds(after));
    QVERIFY(fraction < 1000000);
}

void BinaryLogInterfaceTest::recordLengthIsKeptModulo65536()
{
    const auto log = makeLog();
    log->logEvent(1, {QString(), QString(65536, QLatin1Char('x'))});
    const QByteArray record = content(0);
    const int length = 28 + 2 + 2 + 65536 + 1;
    QCOMPARE(record.size(), length + 2);
    QCOMPARE(record.right(2), RecordBytes::number(quint64(length % 65536), 2));
}

void BinaryLogInterfaceTest::bundleIsWrittenOnceItIsLargerThanTheLimit()
{
    const auto log = makeLog();
    const QSignalSpy written(log.get(), &BinaryLogInterface::bundleWritten);
    logSmall(*log, 77); // 2541 bytes
    QCOMPARE(written.count(), 0);
    // A record that makes the bundle exactly 2560 bytes would take 19, fewer than any
    // has; so the limit itself is met with a writer of another limit below.
    QCOMPARE(content(0).size(), 0);
    logSmall(*log, 1);
    QCOMPARE(written.count(), 1);
    QCOMPARE(content(0).size(), 78 * 33);

    QTemporaryDir other;
    FixedClockLog exact(66, flushSeconds, 10, fileLimit, QDir(other.path()));
    const QSignalSpy exactWritten(&exact, &BinaryLogInterface::bundleWritten);
    logSmall(exact, 2);
    QCOMPARE(exactWritten.count(), 0); // 66 bytes are not more than 66
    logSmall(exact, 1);
    QCOMPARE(exactWritten.count(), 1);
}

void BinaryLogInterfaceTest::everyBundleIsOneWriteForcedToStorage()
{
    const auto log = makeLog();
    syncedSizes.clear();
    writtenSizes.clear();
    logSmall(*log, 2 * 78);
    const QList<qint64> written = writtenSizes;
    QCOMPARE(syncedSizes, (QList<qint64>{2574, 5148})); // 78 records each, written before
    QCOMPARE(written, (QList<qint64>{2574, 2574}));     // and at once
}

void BinaryLogInterfaceTest::timerWritesTheBundleAndStops()
{
    const auto log = makeLog();
    const QSignalSpy written(log.get(), &BinaryLogInterface::bundleWritten);
    logSmall(*log, 1);
    QCOMPARE(content(0).size(), 0);
    fireTimer(*log);
    QCOMPARE(written.count(), 1);
    QCOMPARE(content(0).size(), 33);
    // The next record arms a new one, which a second round shows.
    logSmall(*log, 1);
    fireTimer(*log);
    QCOMPARE(written.count(), 2);
    QCOMPARE(content(0).size(), 66);
}

void BinaryLogInterfaceTest::writingAnEmptyBundleStillTells()
{
    const auto log = makeLog();
    const QSignalSpy written(log.get(), &BinaryLogInterface::bundleWritten);
    log->writeBundle();
    QCOMPARE(written.count(), 1);
    QCOMPARE(content(0).size(), 0);
}

void BinaryLogInterfaceTest::writingWhatIsQueuedWritesNoEmptyBundle()
{
    const auto log = makeLog();
    const QSignalSpy written(log.get(), &BinaryLogInterface::bundleWritten);
    syncedSizes.clear();
    log->writeQueued();
    QCOMPARE(written.count(), 0);
    QCOMPARE(syncedSizes, QList<qint64>());
    logSmall(*log, 2);
    log->writeQueued();
    log->writeQueued();
    QCOMPARE(written.count(), 1);
    QCOMPARE(syncedSizes, QList<qint64>{66});
    QCOMPARE(content(0).size(), 66);
}

void BinaryLogInterfaceTest::withoutDeviceNothingHappens()
{
    const auto log = makeLog();
    const QSignalSpy written(log.get(), &BinaryLogInterface::bundleWritten);
    log->detach();
    logSmall(*log, 200);
    log->writeBundle();
    QCOMPARE(written.count(), 0);
    QCOMPARE(log->nextNumber(), quint64(1));
}

void BinaryLogInterfaceTest::destructionDropsTheBundle()
{
    logSmall(*makeLog(), 3);
    QCOMPARE(content(0), QByteArray());
}

void BinaryLogInterfaceTest::numberingContinues_data()
{
    using RecordBytes::record;
    QTest::addColumn<QByteArray>("present");
    QTest::addColumn<quint64>("next");
    QTest::newRow("after record 41") << record(41) << quint64(42);
    QTest::newRow("after the last of several") << record(41) + record(99) << quint64(100);
    QTest::newRow("beyond 32 bits") << record(4294967295) << quint64(4294967296);
    QTest::newRow("of a single byte from 1") << QByteArray("x") << quint64(1);
}

void BinaryLogInterfaceTest::numberingContinues()
{
    QFETCH(QByteArray, present);
    QFETCH(quint64, next);
    put(0, present);
    const QByteArray message
        = "existing logfile, starting with log nr: " + QByteArray::number(next);
    QTest::ignoreMessage(QtDebugMsg, message.constData()); // when looking for the number
    QTest::ignoreMessage(QtDebugMsg, message.constData()); // when opening for good
    const auto log = makeLog();
    logSmall(*log, 1);
    log->writeBundle();
    QCOMPARE(content(0).left(present.size()), present);
    QCOMPARE(content(0).mid(present.size(), 8), RecordBytes::number(next, 8));
}

void BinaryLogInterfaceTest::emptyCurrentFileContinuesAfterTheNewestOlderFile_data()
{
    QTest::addColumn<QList<int>>("emptyFiles");
    QTest::addColumn<QList<int>>("fullFiles"); // file i ends with record 1000 - i
    QTest::addColumn<quint64>("next");
    QTest::newRow("no file at all") << QList<int>{} << QList<int>{} << quint64(1);
    QTest::newRow("empty files alone") << QList<int>{0, 1, 2} << QList<int>{} << quint64(1);
    QTest::newRow("file 1") << QList<int>{0} << QList<int>{1, 2} << quint64(1000);
    QTest::newRow("file 0 is missing") << QList<int>{} << QList<int>{1, 2} << quint64(1000);
    QTest::newRow("file 2 where 1 is empty")
        << QList<int>{0, 1} << QList<int>{2, 3} << quint64(999);
    QTest::newRow("10 comes after 9") << QList<int>{0} << QList<int>{10, 9} << quint64(992);
    QTest::newRow("a file beyond logtail") << QList<int>{0} << QList<int>{17} << quint64(984);
}

void BinaryLogInterfaceTest::emptyCurrentFileContinuesAfterTheNewestOlderFile()
{
    QFETCH(QList<int>, emptyFiles);
    QFETCH(QList<int>, fullFiles);
    QFETCH(quint64, next);
    for (const int index : qAsConst(emptyFiles)) {
        put(index, {});
    }
    for (const int index : qAsConst(fullFiles)) {
        put(index, RecordBytes::record(quint64(1000 - index)));
    }
    QCOMPARE(makeLog()->nextNumber(), next);
}

void BinaryLogInterfaceTest::pipeAmongOlderFilesIsSkipped()
{
    QCOMPARE(mkfifo(qPrintable(path(1)), S_IRUSR | S_IWUSR), 0);
    put(2, RecordBytes::record(8));
    QCOMPARE(makeLog()->nextNumber(), quint64(9));
}

void BinaryLogInterfaceTest::fullFileIsRotatedAtStart()
{
    QByteArray full;
    quint64 number = 0;
    while (full.size() < int(fileLimit)) {
        full += RecordBytes::record(++number);
    }
    put(0, full);
    const QByteArray message
        = "existing logfile, starting with log nr: " + QByteArray::number(number + 1);
    QTest::ignoreMessage(QtDebugMsg, message.constData());
    const auto log = makeLog();
    QCOMPARE(content(1), full);
    QCOMPARE(content(0), QByteArray());
    QCOMPARE(log->nextNumber(), number + 1);
}

void BinaryLogInterfaceTest::rotationMovesEveryFile()
{
    for (const int index : {1, 2, 4, 9, 10}) {
        put(index, "file " + QByteArray::number(index));
    }
    const auto log = makeLog(10, 33);
    const QSignalSpy rotated(log.get(), &BinaryLogInterface::logsRotated);
    logSmall(*log, 1);
    log->writeBundle();
    QCOMPARE(rotated.count(), 1);
    QCOMPARE(indexes(), (QList<int>{0, 1, 2, 3, 5, 10}));
    QCOMPARE(content(0), QByteArray());
    QCOMPARE(content(1).size(), 33);
    QCOMPARE(content(2), QByteArray("file 1"));
    QCOMPARE(content(3), QByteArray("file 2"));
    QCOMPARE(content(5), QByteArray("file 4"));
    QCOMPARE(content(10), QByteArray("file 9"));
}

void BinaryLogInterfaceTest::rotationFollowsTheLastBundle()
{
    const auto log = makeLog(10, 3 * 33);
    QStringList order;
    connect(log.get(), &BinaryLogInterface::bundleWritten, [&] { order.append("written"_s); });
    connect(log.get(), &BinaryLogInterface::logsRotated, [&] { order.append("rotated"_s); });
    logSmall(*log, 2);
    log->writeBundle();
    QCOMPARE(content(0).size(), 2 * 33); // below the limit
    logSmall(*log, 1);
    log->writeBundle();
    QCOMPARE(order, (QStringList{"written"_s, "written"_s, "rotated"_s}));
    QCOMPARE(content(1).size(), 3 * 33); // exactly the limit
    logSmall(*log, 1);
    log->writeBundle();
    QCOMPARE(content(0).left(8), RecordBytes::number(4, 8));
}

void BinaryLogInterfaceTest::filesBeyondLogtailStayAtRotation()
{
    put(3, "old");
    put(7, "older");
    const auto log = makeLog(3, 33);
    logSmall(*log, 1);
    log->writeBundle();
    QCOMPARE(indexes(), (QList<int>{0, 1, 7}));
}

void BinaryLogInterfaceTest::zeroFileLimitDoesNotRotateAfterAWrite()
{
    const auto log = makeLog(10, 0);
    const auto before = indexes();
    logSmall(*log, 100);
    log->writeBundle();
    QCOMPARE(indexes(), before);
    QCOMPARE(content(0).size(), 100 * 33);
}

void BinaryLogInterfaceTest::failedRenamesAreIgnored()
{
    // A folder in the place of the oldest file cannot be removed, so nothing can be
    // renamed to it; the files before it move as far as they can.
    QVERIFY(QDir(folder->path()).mkpath("zib2.log/occupied"_s));
    const auto log = makeLog(2, 33);
    logSmall(*log, 1);
    log->writeBundle();
    QCOMPARE(content(1).left(8), RecordBytes::number(1, 8));
    logSmall(*log, 1);
    log->writeBundle();
    logSmall(*log, 1);
    log->writeBundle();
    QCOMPARE(content(1).left(8), RecordBytes::number(1, 8));
    QCOMPARE(content(0).size(), 2 * 33); // goes on behind what could not be moved
    QCOMPARE(log->nextNumber(), quint64(4));
}

void BinaryLogInterfaceTest::bundleThatIsNotWrittenIsLostAsAWhole_data()
{
    QTest::addColumn<int>("writeError");
    QTest::addColumn<int>("space");
    QTest::addColumn<int>("reason");
    QTest::newRow("a write that fails") << EIO << -1 << EIO;
    QTest::newRow("a disk that is full") << 0 << 0 << ENOSPC;
    QTest::newRow("a write that ends in a record") << 0 << 1000 << ENOSPC;
    QTest::newRow("a write that ends between two records") << 0 << 33 << ENOSPC;
    QTest::newRow("a write that ends a byte early") << 0 << 78 * 33 - 1 << ENOSPC;
}

void BinaryLogInterfaceTest::bundleThatIsNotWrittenIsLostAsAWhole()
{
    QFETCH(int, writeError);
    QFETCH(int, space);
    QFETCH(int, reason);
    const auto log = makeLog();
    const QSignalSpy rotated(log.get(), &BinaryLogInterface::logsRotated);
    logSmall(*log, 78);
    const QByteArray before = content(0);

    trouble.writeError = writeError;
    trouble.space = space;
    const QByteArray failure = "The log cannot be stored: " + qt_error_string(reason).toUtf8();
    QTest::ignoreMessage(QtWarningMsg, failure.constData());
    logSmall(*log, 3 * 78);
    QCOMPARE(content(0), before);

    trouble = {};
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 234");
    logSmall(*log, 78);
    QCOMPARE(content(0).left(before.size()), before);
    QCOMPARE(content(0).size(), 2 * 78 * 33);
    QCOMPARE(content(0).mid(before.size(), 8), RecordBytes::number(4 * 78 + 1, 8));
    QCOMPARE(rotated.count(), 0); // whoever reads along saw whole records all the time
}

void BinaryLogInterfaceTest::failedFsyncIsReportedAndLosesNothing()
{
    const auto log = makeLog(10, 3 * 78 * 33);
    trouble.fsyncError = EIO;
    const QByteArray failure = "The log cannot be stored: " + qt_error_string(EIO).toUtf8();
    QTest::ignoreMessage(QtWarningMsg, failure.constData());
    logSmall(*log, 3 * 78);
    QCOMPARE(content(1).size(), 3 * 78 * 33); // rotation goes on
    trouble = {};
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 0");
    logSmall(*log, 78);
    QCOMPARE(content(0).left(8), RecordBytes::number(3 * 78 + 1, 8));
}

void BinaryLogInterfaceTest::emptyBundleEndsNoOutage()
{
    const auto log = makeLog();
    trouble.writeError = EIO;
    const QByteArray failure = "The log cannot be stored: " + qt_error_string(EIO).toUtf8();
    QTest::ignoreMessage(QtWarningMsg, failure.constData());
    logSmall(*log, 78);
    log->writeBundle(); // nothing to write does not fail
    logSmall(*log, 78); // not reported a second time
    trouble = {};
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 156");
    logSmall(*log, 78);
}

void BinaryLogInterfaceTest::tornRecordIsCutOffOnceItCanBe()
{
    const auto log = makeLog(10, 2 * 78 * 33);
    const QSignalSpy rotated(log.get(), &BinaryLogInterface::logsRotated);
    logSmall(*log, 78);
    const QByteArray before = content(0);
    trouble.space = 78 * 33 - 1; // half a record, and a file that is all but full
    trouble.truncateError = EIO;
    const QByteArray failure = "The log cannot be stored: " + qt_error_string(ENOSPC).toUtf8();
    QTest::ignoreMessage(QtWarningMsg, failure.constData());
    logSmall(*log, 78);
    trouble.space = -1;
    logSmall(*log, 78); // nothing goes behind half a record
    QCOMPARE(content(0).size(), 2 * 78 * 33 - 1);
    QCOMPARE(rotated.count(), 0);

    trouble = {};
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 156");
    logSmall(*log, 78);
    QCOMPARE(rotated.count(), 2); // for what was cut off, and then for the full file
    QCOMPARE(content(1).size(), 2 * 78 * 33);
    QCOMPARE(content(1).left(before.size()), before);
    QCOMPARE(content(1).mid(before.size(), 8), RecordBytes::number(3 * 78 + 1, 8));
}

void BinaryLogInterfaceTest::deletedFolderIsMadeAnew()
{
    const auto log = makeLog();
    const QSignalSpy rotated(log.get(), &BinaryLogInterface::logsRotated);
    logSmall(*log, 78);
    QVERIFY(QDir(folder->path()).removeRecursively());
    logSmall(*log, 78);
    QCOMPARE(rotated.count(), 1);
    QCOMPARE(content(0).size(), 78 * 33);
    QCOMPARE(content(0).left(8), RecordBytes::number(79, 8));
}

//! Its rotation would end the process, as no file can be opened in its place.
void BinaryLogInterfaceTest::fullFileIsNotRotatedWhileItIsGone()
{
    QVERIFY(QDir(folder->path()).mkpath("zib1.log/occupied"_s));
    const auto log = makeLog(1, 78 * 33);
    logSmall(*log, 78); // cannot be rotated away
    QCOMPARE(content(0).size(), 78 * 33);
    QVERIFY(QDir(folder->path()).removeRecursively());
    QFile obstacle(folder->path());
    QVERIFY(obstacle.open(QIODevice::WriteOnly));

    const QByteArray failure = "The log cannot be stored: " + qt_error_string(EEXIST).toUtf8();
    QTest::ignoreMessage(QtWarningMsg, failure.constData());
    logSmall(*log, 78);
    QVERIFY(obstacle.remove());
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 78");
    logSmall(*log, 78);
    QCOMPARE(content(1).left(8), RecordBytes::number(2 * 78 + 1, 8));
}

void BinaryLogInterfaceTest::setLogtail_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("logtail");
    QTest::addColumn<QList<int>>("left");
    QTest::addColumn<int>("signalsSent");
    const QList<int> all{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    QTest::newRow("3 deletes files 4 to 10") << 3 << 3 << QList<int>{0, 1, 2, 3, 11} << 1;
    QTest::newRow("1 is the least") << 1 << 1 << QList<int>{0, 1, 11} << 1;
    QTest::newRow("0 changes nothing") << 0 << 10 << all << 0;
    QTest::newRow("a negative number changes nothing") << -5 << 10 << all << 0;
    QTest::newRow("the same value tells all the same") << 10 << 10 << all << 1;
    QTest::newRow("more keeps all") << 12 << 12 << all << 1;
}

void BinaryLogInterfaceTest::setLogtail()
{
    QFETCH(int, value);
    QFETCH(int, logtail);
    QFETCH(QList<int>, left);
    QFETCH(int, signalsSent);
    const auto log = makeLog();
    for (int i = 1; i <= 11; ++i) {
        put(i, "x");
    }
    const QSignalSpy rotated(log.get(), &BinaryLogInterface::logsRotated);
    log->setLogtail(value);
    QCOMPARE(log->getLogtail(), logtail);
    QCOMPARE(indexes(), left);
    QCOMPARE(rotated.count(), signalsSent);
}

void BinaryLogInterfaceTest::astronomicalLogtailReturnsAtOnce()
{
    // Two thousand million removals or renames would run into the test's time limit.
    const auto log = makeLog(10, 33);
    log->setLogtail(std::numeric_limits<int>::max());
    put(2147483646, "oldest but one");
    put(2147483647, "oldest");
    put(5, "5");
    logSmall(*log, 1);
    log->writeBundle();
    QCOMPARE(content(2147483647), QByteArray("oldest but one"));
    QVERIFY(!QFile::exists(path(2147483646)));
    QCOMPARE(content(6), QByteArray("5"));
    log->setLogtail(1);
    QCOMPARE(QDir(folder->path()).entryList(QDir::Files).size(), 2);
    log->setLogtail(std::numeric_limits<int>::max());
    log->clearLogfiles();
    QCOMPARE(QDir(folder->path()).entryList(QDir::Files), QStringList{"zib0.log"_s});
}

void BinaryLogInterfaceTest::clearing()
{
    const auto log = makeLog(3);
    for (const int index : {1, 2, 3, 4}) {
        put(index, "x");
    }
    logSmall(*log, 100); // 78 written, 22 queued
    const QSignalSpy rotated(log.get(), &BinaryLogInterface::logsRotated);
    const QSignalSpy written(log.get(), &BinaryLogInterface::bundleWritten);
    log->clearLogfiles();
    QCOMPARE(rotated.count(), 1);
    QCOMPARE(written.count(), 0);
    QCOMPARE(indexes(), (QList<int>{0, 4})); // beyond logtail is not its business
    QCOMPARE(content(0), QByteArray());
    logSmall(*log, 1);
    log->writeBundle();
    QCOMPARE(content(0).size(), 33); // the queued ones are gone
    QCOMPARE(content(0).left(8), RecordBytes::number(101, 8));
}

void BinaryLogInterfaceTest::clearingLeavesTheFlushTimerRunning()
{
    const auto log = makeLog();
    const auto timers = [&log] {
        QList<int> ids;
        const auto running = QAbstractEventDispatcher::instance()->registeredTimers(log.get());
        for (const QAbstractEventDispatcher::TimerInfo &timer : running) {
            ids.append(timer.timerId);
        }
        return ids;
    };
    QCOMPARE(timers(), QList<int>());
    logSmall(*log, 1);
    const QList<int> armed = timers();
    QCOMPARE(armed.size(), 1);
    log->clearLogfiles();
    QCOMPARE(timers(), armed);
    logSmall(*log, 1); // does not arm another one
    QCOMPARE(timers(), armed);
    fireTimer(*log);
    QCOMPARE(timers(), QList<int>());
    QCOMPARE(content(0).size(), 33);
}

void BinaryLogInterfaceTest::folderStaysLocked()
{
    auto log = makeLog(10, 78 * 33);
    QVERIFY(isLocked(folder->path()));
    logSmall(*log, 78);
    QCOMPARE(indexes(), (QList<int>{0, 1})); // rotated
    QVERIFY(isLocked(folder->path()));
    log->clearLogfiles();
    QVERIFY(isLocked(folder->path()));
    QVERIFY(QDir(folder->path()).removeRecursively());
    logSmall(*log, 78);
    QVERIFY(isLocked(folder->path()));
    log.reset();
    QVERIFY(!isLocked(folder->path()));
}

void BinaryLogInterfaceTest::lockOfAnotherStopsNothing()
{
    auto other = std::make_unique<LockedFolder>(folder->path());
    QVERIFY(other->lock());
    const auto log = makeLog();
    logSmall(*log, 78);
    QCOMPARE(content(0).size(), 78 * 33);
    log->clearLogfiles();
    QVERIFY(other->lock());
    other.reset();
    QVERIFY(!isLocked(folder->path()));
    log->clearLogfiles(); // the file is opened anew: an occasion to take it
    QVERIFY(isLocked(folder->path()));
}

void BinaryLogInterfaceTest::missingDirectoryIsCreated()
{
    const QDir missing(folder->filePath("log"_s));
    const BinaryLogInterface log(bundleLimit, flushSeconds, 10, fileLimit, missing);
    QVERIFY(QFile::exists(missing.filePath("zib0.log"_s)));
}

void BinaryLogInterfaceTest::fatalMessages_data()
{
    QTest::addColumn<QString>("obstacle"); // a folder to make first
    QTest::addColumn<QString>("directory");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("only one level is created")
        << QString() << "missing/log"_s
        << QByteArray("/missing/log does not exist and cannot be created.");
    QTest::newRow("file 0 cannot be opened")
        << "zib0.log"_s << QString() << QByteArray("failed to open log file");
}

//! An abort ends the process, so the case runs in a child: this program with arguments.
void BinaryLogInterfaceTest::fatalMessages()
{
    QFETCH(QString, obstacle);
    QFETCH(QString, directory);
    QFETCH(QByteArray, message);
    if (!obstacle.isEmpty()) {
        QVERIFY(QDir(folder->path()).mkpath(obstacle));
    }
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(),
                {"--open-log"_s, folder->filePath(directory)});
    QVERIFY(child.waitForFinished());
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);
    const QByteArray printed = child.readAllStandardError();
    QVERIFY2(printed.contains(message), printed.constData());
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == "--open-log"_s) {
        const BinaryLogInterface log(bundleLimit, flushSeconds, 10, fileLimit,
                                     QDir(arguments.value(2)));
        return 0;
    }
    BinaryLogInterfaceTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_binaryloginterface.moc"

// SPDX-License-Identifier: Apache-2.0

// The writer on storage that fails: what is lost is whole bundles, and it is said once.

#include "binlog/binaryloginterface.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "trouble.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <cerrno>
#include <ctime>
#include <memory>

#include <sys/stat.h>
#include <sys/time.h>

namespace
{

bool clockFails = false;
constexpr qint64 recordSize = 33; // a head, an empty path, the end

} // namespace

//! Stands in front of the C library's.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int gettimeofday(timeval *now, void * /*zone*/) noexcept
{
    if (clockFails) {
        errno = EFAULT;
        return -1;
    }
    timespec time{};
    (void)clock_gettime(CLOCK_REALTIME, &time);
    now->tv_sec = time.tv_sec;
    now->tv_usec = decltype(now->tv_usec)(time.tv_nsec / 1000);
    return 0;
}

class OutageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void bundleThatDoesNotFitIsLostWhole_data();
    void bundleThatDoesNotFitIsLostWhole();
    void emptyBundleEndsNoOutage();
    void bundleThatIsNotSyncedIsReported();
    void tornRecordIsCutOffBeforeAnythingElse();
    void fileShorterThanItsTearIsNotLengthened_data();
    void fileShorterThanItsTearIsNotLengthened();
    void deletedDirectoryIsMadeAgain();
    void directoryThatCannotBeMadeAgainIsAnOutage();
    void pipeInPlaceOfTheFileIsAnOutage();
    void emptiedFileIsContinuedAtItsEnd();
    void clockThatCannotBeReadGivesNoTime();

private:
    void open(uint fileLimit);
    void store(int records);
    [[nodiscard]] QByteArray content() const;
    [[nodiscard]] QList<quint64> numbers() const;

    std::unique_ptr<QTemporaryDir> folder;
    std::unique_ptr<BinaryLogInterface> log;
};

void OutageTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(".?"_s));
#endif
    folder = std::make_unique<QTemporaryDir>();
    open(102400);
}

void OutageTest::cleanup()
{
    trouble = {};
    clockFails = false;
    log.reset();
    folder.reset();
}

void OutageTest::open(uint fileLimit)
{
    constexpr uint bundleLimit = 2560;
    log = std::make_unique<BinaryLogInterface>(bundleLimit, 30, 10, fileLimit,
                                               QDir(folder->filePath("log"_s)));
}

//! One bundle.
void OutageTest::store(int records)
{
    for (int i = 0; i < records; ++i) {
        log->logEvent(1, {QString()});
    }
    log->writeBundle();
}

QByteArray OutageTest::content() const
{
    QFile file(folder->filePath("log/zib0.log"_s));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no file");
}

//! The log numbers in the file, which must hold nothing but whole records.
QList<quint64> OutageTest::numbers() const
{
    const QByteArray file = content();
    QList<quint64> found;
    if (file.size() % recordSize == 0) {
        for (int at = 0; at < int(file.size()); at += int(recordSize)) {
            found.append(qFromLittleEndian<quint64>(file.constData() + at));
        }
    }
    return found;
}

void OutageTest::bundleThatDoesNotFitIsLostWhole_data()
{
    QTest::addColumn<qint64>("space");
    QTest::newRow("nothing of it fits") << qint64(0);
    QTest::newRow("one record and a half fit") << qint64(50);
    QTest::newRow("all but its last byte fits") << 3 * recordSize - 1;
}

void OutageTest::bundleThatDoesNotFitIsLostWhole()
{
    QFETCH(qint64, space);
    store(3);
    trouble.space = space;
    QTest::ignoreMessage(QtWarningMsg, "The log cannot be stored: No space left on device");
    store(3);
    QCOMPARE(numbers(), (QList<quint64>{1, 2, 3}));
    trouble.space = 0;
    store(2); // and nothing is said about it
    QCOMPARE(numbers(), (QList<quint64>{1, 2, 3}));

    trouble.space = -1;
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 5");
    store(1);
    store(1);
    QCOMPARE(numbers(), (QList<quint64>{1, 2, 3, 9, 10}));

    trouble.space = 0;
    QTest::ignoreMessage(QtWarningMsg, "The log cannot be stored: No space left on device");
    store(1);
    trouble.space = -1;
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 1");
    store(1);
    QCOMPARE(numbers(), (QList<quint64>{1, 2, 3, 9, 10, 12}));
}

void OutageTest::emptyBundleEndsNoOutage()
{
    trouble.space = 0;
    QTest::ignoreMessage(QtWarningMsg, "The log cannot be stored: No space left on device");
    store(1);
    trouble.space = -1;
    store(0); // would say that the log is stored again, and fail
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 1");
    store(1);
}

void OutageTest::bundleThatIsNotSyncedIsReported()
{
    trouble.fsyncError = EIO;
    QTest::ignoreMessage(QtWarningMsg, "The log cannot be stored: Input/output error");
    store(1);
    store(1);
    trouble.fsyncError = 0;
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 0");
    store(1);
    QCOMPARE(numbers(), (QList<quint64>{1, 2, 3}));
}

void OutageTest::tornRecordIsCutOffBeforeAnythingElse()
{
    open(140);
    store(3);
    trouble.space = 50;
    trouble.truncateError = EIO;
    QTest::ignoreMessage(QtWarningMsg, "The log cannot be stored: No space left on device");
    store(3);
    const QByteArray torn = content();
    QCOMPARE(torn.size(), 149);
    trouble.space = -1;
    store(1);
    // Nothing is put behind half a record, and the file is not rotated away with it.
    QCOMPARE(content(), torn);
    QVERIFY(!QFile::exists(folder->filePath("log/zib1.log"_s)));

    trouble.truncateError = 0;
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 4");
    store(1);
    QCOMPARE(numbers(), (QList<quint64>{1, 2, 3, 8}));
}

void OutageTest::fileShorterThanItsTearIsNotLengthened_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<bool>("cutFails");
    QTest::addColumn<QList<quint64>>("stored");
    using Numbers = QList<quint64>;
    QTest::newRow("one that was emptied begins anew") << qint64(0) << false << Numbers{7};
    QTest::newRow("one that lost a record goes on behind the others")
        << 2 * recordSize << false << Numbers{1, 2, 7};
    QTest::newRow("one that lost the torn one alone goes on where it was")
        << 3 * recordSize << false << Numbers{1, 2, 3, 7};
    QTest::newRow("there is nothing left to cut, so that a failing cut does not matter")
        << qint64(0) << true << Numbers{7};
}

void OutageTest::fileShorterThanItsTearIsNotLengthened()
{
    QFETCH(qint64, size);
    QFETCH(bool, cutFails);
    QFETCH(QList<quint64>, stored);
    store(3);
    trouble.space = 50;
    trouble.truncateError = EIO;
    QTest::ignoreMessage(QtWarningMsg, "The log cannot be stored: No space left on device");
    store(3);
    trouble = {};
    QCOMPARE(content().size(), 149);
    QVERIFY(QFile::resize(folder->filePath("log/zib0.log"_s), size)); // by somebody else

    trouble.truncateError = cutFails ? EIO : 0;
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 3");
    const QSignalSpy rotated(log.get(), &BinaryLogInterface::logsRotated);
    store(1);
    QCOMPARE(numbers(), stored);
    QCOMPARE(content().size(), stored.size() * recordSize);
    QCOMPARE(rotated.count(), 1);
}

void OutageTest::deletedDirectoryIsMadeAgain()
{
    store(3);
    const QSignalSpy rotated(log.get(), &BinaryLogInterface::logsRotated);
    QVERIFY(QDir(folder->filePath("log"_s)).removeRecursively());
    store(1);
    QCOMPARE(rotated.count(), 1);
    store(1);
    QCOMPARE(rotated.count(), 1);
    QCOMPARE(numbers(), (QList<quint64>{4, 5}));
}

void OutageTest::directoryThatCannotBeMadeAgainIsAnOutage()
{
    store(3);
    QVERIFY(QDir(folder->path()).removeRecursively());
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^The log cannot be stored: "_s));
    store(2);
    QVERIFY(!QFile::exists(folder->path())); // only one level is ever made

    QVERIFY(QDir("/"_s).mkpath(folder->path()));
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 2");
    store(1);
    QCOMPARE(numbers(), QList<quint64>{6});
}

//! Once a pipe is full, whoever writes waits for a reader that never comes.
void OutageTest::pipeInPlaceOfTheFileIsAnOutage()
{
    store(1);
    const QString path = folder->filePath("log/zib0.log"_s);
    QVERIFY(QFile::remove(path));
    QCOMPARE(mkfifo(qPrintable(path), S_IRUSR | S_IWUSR), 0);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^The log cannot be stored"_s));
    store(1);
    QVERIFY(QFile::remove(path));
    QTest::ignoreMessage(QtWarningMsg, "The log is stored again; records lost meanwhile: 1");
    store(1);
    QCOMPARE(numbers(), QList<quint64>{3});
}

void OutageTest::emptiedFileIsContinuedAtItsEnd()
{
    store(3);
    QVERIFY(QFile::resize(folder->filePath("log/zib0.log"_s), 0));
    store(2);
    QCOMPARE(numbers(), (QList<quint64>{4, 5}));
    QCOMPARE(content().size(), 2 * recordSize);
}

void OutageTest::clockThatCannotBeReadGivesNoTime()
{
    clockFails = true;
    store(1);
    QCOMPARE(content().mid(8, 16), QByteArray(16, '\0'));
    clockFails = false;
    store(1);
    QVERIFY(content().mid(int(recordSize) + 8, 8) != QByteArray(8, '\0'));
}

QTEST_GUILESS_MAIN(OutageTest)
#include "tst_outage.moc"

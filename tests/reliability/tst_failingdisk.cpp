// SPDX-License-Identifier: Apache-2.0

// The storage under the log fails: calls come back with an error, writes come back
// short, the folder disappears. The daemon keeps running and answering, and goes on
// storing once it can.

#include "reliability/eventsource.h"
#include "support/faultydisk.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/syslogsocket.h"
#include "support/testbus.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <cerrno>
#include <functional>
#include <memory>

namespace
{

const QString logFolder = QStringLiteral("/srv/public/log");
const QString publicFolder = QStringLiteral("/srv/public");

using Change = std::function<void(Faults &)>;

void removeLogFolder()
{
    if (!QDir(logFolder).removeRecursively()) {
        qFatal("cannot remove the log folder");
    }
}

} // namespace

Q_DECLARE_METATYPE(Change)

class FailingDiskTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void storingResumes_data();
    void storingResumes();
    void failingFsyncLosesNothing_data();
    void failingFsyncLosesNothing();
    void shortWritesThatGoOnLoseNothing();
    void tornPartIsCutOffOnceItCanBe();
    void tornPartOutlivesAClearingThatFails_data();
    void tornPartOutlivesAClearingThatFails();
    void clearingTakesTheTornPartAlong();
    void emptiedTornFileBeginsAnew();
    void deletedFolderIsMadeAnew();
    void folderCannotBeMadeForAWhile_data();
    void folderCannotBeMadeForAWhile();
    void fileThatCannotBeRenamedGrows_data();
    void fileThatCannotBeRenamedGrows();
    void fileThatCannotBeDeletedIsKept();
    void numbersNeverGoBack();
    void restartAfterAnOutage();
    void pageThatCannotBeReadHidesNoOther_data();
    void pageThatCannotBeReadHidesNoOther();
    void lastPageThatCannotBeReadStopsNothing();
    void fileThatCannotBeOpenedAnewIsFatal_data();
    void fileThatCannotBeOpenedAnewIsFatal();

private:
    void startWithSomeRecords(EventSource &source);
    [[nodiscard]] quint64 lookAtTheLog(const EventSource &source);

    TestBus bus;
    std::unique_ptr<FaultyDisk> storage;
    Faults *disk = nullptr; //!< of that storage
    std::unique_ptr<Device> device;
};

void FailingDiskTest::init()
{
    storage = std::make_unique<FaultyDisk>();
    disk = storage->operator->();
    device = std::make_unique<Device>();
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    device->config.values.insert("SystemeventLogtail"_s, "100"_s);
}

void FailingDiskTest::cleanup()
{
    device.reset();
    storage.reset();
}

void FailingDiskTest::startWithSomeRecords(EventSource &source)
{
    QVERIFY(device->start());
    source.send(200);
    QVERIFY(source.sendUntilStored());
    QCOMPARE(storageReports(*device), QStringList());
}

//! Every number but the returned count of lost ones can be read.
quint64 FailingDiskTest::lookAtTheLog(const EventSource &source)
{
    const StoredEvents stored = storedEvents();
    [&] {
        QCOMPARE(stored.damage, QString());
        QCOMPARE(stored.numbers.constLast(), source.sent());
        QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), source.sent());
        QCOMPARE(device->json().count("\"eventnr\":"_s), int(stored.numbers.size()));
    }();
    return lostBefore(source.sent(), stored);
}

void FailingDiskTest::storingResumes_data()
{
    QTest::addColumn<Change>("breakIt");
    QTest::addColumn<Change>("repairIt");
    QTest::addColumn<int>("reason");
    const auto write = [](int error) -> Change {
        return [error](Faults &faults) { faults.writeError = error; };
    };
    const auto readOnly = [](int error) -> Change {
        return [error](Faults &faults) {
            faults.writeError = error;
            faults.fsyncError = error;
            faults.truncateError = error;
            faults.renameError = error;
            faults.unlinkError = error;
            faults.mkdirError = error;
        };
    };
    const auto space
        = [](int bytes) -> Change { return [bytes](Faults &faults) { faults.space = bytes; }; };
    QTest::newRow("write fails with EIO") << write(EIO) << write(0) << EIO;
    QTest::newRow("write fails with EROFS") << write(EROFS) << write(0) << EROFS;
    QTest::newRow("write fails with EDQUOT") << write(EDQUOT) << write(0) << EDQUOT;
    QTest::newRow("everything that changes fails with EROFS")
        << readOnly(EROFS) << readOnly(0) << EROFS;
    QTest::newRow("there is space for a byte more") << space(1) << space(-1) << ENOSPC;
    QTest::newRow("there is space for all of a record but its last byte")
        << space(64) << space(-1) << ENOSPC;
    QTest::newRow("there is space for a whole record") << space(65) << space(-1) << ENOSPC;
    QTest::newRow("there is space for a bundle and a half") << space(4000) << space(-1) << ENOSPC;
}

void FailingDiskTest::storingResumes()
{
    QFETCH(Change, breakIt);
    QFETCH(Change, repairIt);
    QFETCH(int, reason);
    const SyslogSocket syslog;
    EventSource source(*device);
    startWithSomeRecords(source);
    QStringList reports;
    quint64 lostBeforeThis = 0;
    for (int outage = 0; outage < 2; ++outage) {
        breakIt(*disk);
        source.send(1000);
        reports.append(failureReport(reason));
        QCOMPARE(storageReports(*device), reports);
        QVERIFY(answersReaders(*device));
        QCOMPARE(storedEvents().damage, QString());

        repairIt(*disk);
        QVERIFY(source.sendUntilStored());
        const quint64 lost = lookAtTheLog(source);
        QVERIFY(lost > lostBeforeThis);
        reports.append(recoveryReport(lost - lostBeforeThis));
        QCOMPARE(storageReports(*device), reports);
        lostBeforeThis = lost;
    }
    const QList<QByteArray> messages = syslog.received();
    QCOMPARE(messages.size(), reports.size());
    for (int i = 0; i < int(reports.size()); ++i) {
        QVERIFY2(messages[i].endsWith(reports[i].toUtf8()), messages[i].constData());
    }
}

void FailingDiskTest::failingFsyncLosesNothing_data()
{
    QTest::addColumn<int>("error");
    QTest::newRow("EIO") << EIO;
    QTest::newRow("EROFS") << EROFS;
    QTest::newRow("ENOSPC") << ENOSPC;
}

void FailingDiskTest::failingFsyncLosesNothing()
{
    QFETCH(int, error);
    EventSource source(*device);
    startWithSomeRecords(source);
    disk->fsyncError = error;
    source.send(2000);
    QCOMPARE(storageReports(*device), QStringList{failureReport(error)});
    QVERIFY(QFile::exists(Device::logPath(1))); // rotation goes on
    disk->fsyncError = 0;
    QVERIFY(source.sendUntilReported());
    QCOMPARE(lookAtTheLog(source), quint64(0));
    QCOMPARE(storageReports(*device), (QStringList{failureReport(error), recoveryReport(0)}));
}

void FailingDiskTest::shortWritesThatGoOnLoseNothing()
{
    EventSource source(*device);
    startWithSomeRecords(source);
    disk->mostAtOnce = 100;
    source.send(2000);
    QVERIFY(source.sendUntilStored());
    QCOMPARE(lookAtTheLog(source), quint64(0));
    QCOMPARE(storageReports(*device), QStringList());
    QVERIFY(disk->writes > 2000 * 65 / 100); // many a bundle took many
}

void FailingDiskTest::tornPartIsCutOffOnceItCanBe()
{
    EventSource source(*device);
    startWithSomeRecords(source);
    const QByteArray whole = Device::logFile(0);
    disk->truncateError = EIO;
    disk->space = 1000;
    source.send(1000);
    QVERIFY(answersReaders(*device)); // with something, as its last record is half a one
    const QByteArray torn = Device::logFile(0);
    QCOMPARE(torn.size(), whole.size() + 1000);
    disk->space = -1;
    source.send(1000);
    QCOMPARE(Device::logFile(0), torn); // nothing goes behind it
    QCOMPARE(storageReports(*device), QStringList{failureReport(ENOSPC)});

    disk->truncateError = 0;
    QVERIFY(source.sendUntilStored());
    QVERIFY(Device::logFile(0).startsWith(whole));
    const quint64 lost = lookAtTheLog(source);
    QVERIFY(lost > 1900);
    QCOMPARE(storageReports(*device), (QStringList{failureReport(ENOSPC), recoveryReport(lost)}));
}

void FailingDiskTest::tornPartOutlivesAClearingThatFails_data()
{
    QTest::addColumn<int>("events");
    QTest::newRow("in a file that is not full") << 100;
    // 39 bundles of 40 records are 1000 bytes less than the limit.
    QTest::newRow("that makes a file full") << 39 * 40;
}

void FailingDiskTest::tornPartOutlivesAClearingThatFails()
{
    QFETCH(int, events);
    EventSource source(*device);
    QVERIFY(device->start());
    source.send(quint64(events));
    const QByteArray whole = Device::logFile(0);
    disk->truncateError = EIO;
    disk->unlinkError = EIO;
    disk->space = 1200;
    source.send(200);
    QCOMPARE(device->call("clearLogfiles"_s).type(), QDBusMessage::ReplyMessage);
    disk->space = -1;
    source.send(200);
    QVERIFY(answersReaders(*device));
    QCOMPARE(storageReports(*device), QStringList{failureReport(ENOSPC)});
    QVERIFY(!QFile::exists(Device::logPath(1)));

    disk->truncateError = 0;
    disk->unlinkError = 0;
    QVERIFY(source.sendUntilReported());
    QVERIFY(lookAtTheLog(source) > 0);
    QVERIFY(Device::logFile(0).startsWith(whole) || Device::logFile(1).startsWith(whole));
}

void FailingDiskTest::clearingTakesTheTornPartAlong()
{
    EventSource source(*device);
    startWithSomeRecords(source);
    disk->truncateError = EIO;
    disk->space = 1000;
    source.send(200);
    QCOMPARE(device->call("clearLogfiles"_s).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(Device::logFile(0), QByteArray());
    const quint64 clearedAt = source.sent();
    disk->space = -1;
    QVERIFY(source.sendUntilStored());
    const StoredEvents stored = storedEvents();
    QCOMPARE(stored.damage, QString());
    QCOMPARE(stored.numbers.constFirst(), clearedAt + 1);
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), clearedAt + 1);
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), source.sent());
}

void FailingDiskTest::emptiedTornFileBeginsAnew()
{
    EventSource source(*device);
    startWithSomeRecords(source);
    disk->truncateError = EIO;
    disk->space = 1000;
    source.send(200);
    QVERIFY(QFile::resize(Device::logPath(0), 0)); // by somebody else, where it works
    const quint64 emptiedAt = source.sent();
    disk->space = -1;
    disk->truncateError = 0;
    QVERIFY(source.sendUntilReported());
    const StoredEvents stored = storedEvents();
    QCOMPARE(stored.damage, QString());
    QVERIFY(stored.numbers.constFirst() > emptiedAt - 50); // those in memory were not lost
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), stored.numbers.constFirst());
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), source.sent());
}

void FailingDiskTest::deletedFolderIsMadeAnew()
{
    EventSource source(*device);
    startWithSomeRecords(source);
    const quint64 deletedAt = source.sent();
    removeLogFolder();
    QVERIFY(answersReaders(*device));
    QVERIFY(source.sendUntilStored());
    const StoredEvents stored = storedEvents();
    QCOMPARE(stored.damage, QString());
    QCOMPARE(stored.numbers.constFirst(), deletedAt + 1);
    QCOMPARE(quint64(stored.numbers.size()), source.sent() - deletedAt);
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), deletedAt + 1);
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), source.sent());
    QCOMPARE(storageReports(*device), QStringList());
}

void FailingDiskTest::folderCannotBeMadeForAWhile_data()
{
    QTest::addColumn<Change>("breakIt");
    QTest::addColumn<Change>("repairIt");
    QTest::addColumn<int>("reason");
    const Change deleteParent = [](Faults &) { QDir(publicFolder).removeRecursively(); };
    const Change makeParent = [](Faults &) { QDir("/srv"_s).mkdir("public"_s); };
    const Change refuseFolder = [](Faults &faults) {
        faults.mkdirError = EROFS;
        removeLogFolder();
    };
    const Change allowFolder = [](Faults &faults) { faults.mkdirError = 0; };
    const Change refuseFile = [](Faults &faults) {
        faults.openError = ENOSPC;
        removeLogFolder();
    };
    const Change allowFile = [](Faults &faults) { faults.openError = 0; };
    QTest::newRow("as its parent was deleted too") << deleteParent << makeParent << ENOENT;
    QTest::newRow("as mkdir fails") << refuseFolder << allowFolder << EROFS;
    QTest::newRow("as no file can be made in it") << refuseFile << allowFile << ENOSPC;
}

void FailingDiskTest::folderCannotBeMadeForAWhile()
{
    QFETCH(Change, breakIt);
    QFETCH(Change, repairIt);
    QFETCH(int, reason);
    EventSource source(*device);
    startWithSomeRecords(source);
    const quint64 deletedAt = source.sent();
    breakIt(*disk);
    source.send(2000);
    QVERIFY(answersReaders(*device));
    QVERIFY(device->setProperty("logtail"_s, 5));
    QVERIFY(answersReaders(*device));
    QCOMPARE(storageReports(*device), QStringList{failureReport(reason)});

    repairIt(*disk);
    QVERIFY(source.sendUntilStored());
    const StoredEvents stored = storedEvents();
    QCOMPARE(stored.damage, QString());
    QCOMPARE(stored.numbers.constLast(), source.sent());
    const quint64 lost = source.sent() - deletedAt - quint64(stored.numbers.size());
    QVERIFY(lost > 1900);
    QCOMPARE(storageReports(*device), (QStringList{failureReport(reason), recoveryReport(lost)}));
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), source.sent());
}

void FailingDiskTest::fileThatCannotBeRenamedGrows_data()
{
    QTest::addColumn<int>("unlinkError");
    QTest::newRow("while it could be deleted") << 0;
    QTest::newRow("nor deleted") << EIO;
}

void FailingDiskTest::fileThatCannotBeRenamedGrows()
{
    QFETCH(int, unlinkError);
    EventSource source(*device);
    startWithSomeRecords(source);
    disk->renameError = EIO;
    disk->unlinkError = unlinkError;
    source.send(3000);
    QCOMPARE(QDir(logFolder).entryList(QDir::Files), QStringList{"zib0.log"_s}); // no copies
    QVERIFY(QFile(Device::logPath(0)).size() > qint64(3000) * 65);
    disk->renameError = 0;
    disk->unlinkError = 0;
    QVERIFY(source.sendUntilStored());
    QVERIFY(QFile(Device::logPath(1)).size() > qint64(3000) * 65);
    QCOMPARE(lookAtTheLog(source), quint64(0));
    QCOMPARE(storageReports(*device), QStringList());
}

void FailingDiskTest::fileThatCannotBeDeletedIsKept()
{
    device->config.values.insert("SystemeventLogtail"_s, "2"_s);
    EventSource source(*device);
    startWithSomeRecords(source);
    disk->unlinkError = EIO;
    source.send(8000);
    QCOMPARE(device->call("clearLogfiles"_s).type(), QDBusMessage::ReplyMessage);
    QVERIFY(device->setProperty("logtail"_s, 1));
    source.send(1000);
    QVERIFY(source.sendUntilStored());
    const StoredEvents kept = storedEvents();
    QCOMPARE(kept.damage, QString());
    QCOMPARE(kept.numbers.constFirst(), quint64(1));
    // Nothing is missing but what clearing dropped in memory.
    QVERIFY(lostBefore(source.sent(), kept) <= 40);
    QCOMPARE(storageReports(*device), QStringList());

    disk->unlinkError = 0;
    QCOMPARE(device->call("clearLogfiles"_s).type(), QDBusMessage::ReplyMessage);
    const quint64 clearedAt = source.sent();
    QVERIFY(source.sendUntilStored());
    QCOMPARE(Device::logFile(0).left(8).toHex(), RecordBytes::number(clearedAt + 1, 8).toHex());
}

//! The last record in the file is older than the last one that has a number.
void FailingDiskTest::numbersNeverGoBack()
{
    EventSource source(*device);
    startWithSomeRecords(source);
    disk->renameError = EIO;
    disk->unlinkError = EIO;
    source.send(2000); // more than a file's limit: every bundle tries to rotate
    disk->writeError = EIO;
    source.send(500);
    QCOMPARE(device->call("clearLogfiles"_s).type(), QDBusMessage::ReplyMessage); // opens it anew
    source.send(500);
    disk->writeError = 0;
    QVERIFY(source.sendUntilStored()); // events carry their numbers as text
    QVERIFY(lookAtTheLog(source) >= 900);
    disk->renameError = 0;
    disk->unlinkError = 0;
    QVERIFY(source.sendUntilStored());
    QVERIFY(QFile::exists(Device::logPath(1)));
    QVERIFY(lookAtTheLog(source) >= 900);
}

void FailingDiskTest::restartAfterAnOutage()
{
    EventSource source(*device);
    startWithSomeRecords(source);
    disk->space = 700;
    source.send(1000);
    const StoredEvents before = storedEvents();
    QCOMPARE(before.damage, QString());
    device->stop();
    disk->space = -1;
    QVERIFY(device->start());
    source.continueAt(before.numbers.constLast() + 1); // the lost numbers are given again
    QVERIFY(source.sendUntilStored());
    QCOMPARE(lookAtTheLog(source), quint64(0));
    QCOMPARE(storageReports(*device), QStringList());
}

void FailingDiskTest::pageThatCannotBeReadHidesNoOther_data()
{
    QTest::addColumn<bool>("interrupted");
    QTest::newRow("while other reads go through at once") << false;
    QTest::newRow("while signals interrupt every other read") << true;
}

void FailingDiskTest::pageThatCannotBeReadHidesNoOther()
{
    QFETCH(bool, interrupted);
    constexpr int page = 4096;
    EventSource source(*device);
    startWithSomeRecords(source);
    source.send(1000);
    QVERIFY(source.sendUntilStored());
    const QStringList before = device->json().mid(1).chopped(1).split(",\n"_s);
    QCOMPARE(quint64(before.size()), source.sent());

    disk->reads.spoil("/srv/public/log/zib0.log", 4LL * page, 5LL * page);
    disk->reads.interrupted = interrupted;
    device->stop();
    QVERIFY(device->start());
    const QStringList after = device->result("jsonLogfile"_s, {quint64(1), source.sent(), "en"_s})
                                  .toString()
                                  .mid(1)
                                  .chopped(1)
                                  .split(",\n"_s);
    QCOMPARE(after.size(), before.size());
    QVERIFY(disk->reads.failures > 0);
    // A record of 65 bytes that begins before the page's end is lost at most.
    const int firstBehind = 5 * page / 65 + 1;
    QCOMPARE(after.mid(firstBehind), before.mid(firstBehind));
    QVERIFY(after.mid(0, firstBehind) != before.mid(0, firstBehind));
    QVERIFY(source.sendUntilStored());
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), source.sent());
    QCOMPARE(storageReports(*device), QStringList());
}

//! Where numbering goes on is in that page: it starts anew.
void FailingDiskTest::lastPageThatCannotBeReadStopsNothing()
{
    constexpr int page = 4096;
    EventSource source(*device);
    startWithSomeRecords(source);
    const QByteArray before = Device::logFile(0);
    device->stop();
    const auto last = before.size() / page * page;
    disk->reads.spoil("/srv/public/log/zib0.log", last, last + page);
    QVERIFY(device->start());
    QVERIFY(answersReaders(*device));
    QVERIFY(disk->reads.failures > 0);
    source.continueAt(1);
    QVERIFY(source.sendUntilStored());
    QVERIFY(answersReaders(*device));
    QCOMPARE(storageReports(*device), QStringList());
    const QByteArray after = Device::logFile(0);
    QVERIFY(after.startsWith(before));
    QCOMPARE(after.mid(before.size(), 8), RecordBytes::number(1, 8));
}

void FailingDiskTest::fileThatCannotBeOpenedAnewIsFatal_data()
{
    QTest::addColumn<bool>("clears");
    QTest::newRow("after a rotation") << false;
    QTest::newRow("after clearing") << true;
}

void FailingDiskTest::fileThatCannotBeOpenedAnewIsFatal()
{
    QFETCH(bool, clears);
    EventSource source(*device);
    startWithSomeRecords(source);
    disk->openError = EIO;
    if (clears) {
        device->callNoReply("clearLogfiles"_s, {});
    } else {
        for (int i = 0; i < 4000; ++i) { // of 36 bytes each
            device->change("/x"_s, Device::fillerId, {});
        }
    }
    QCOMPARE(device->waitForEnd(), "abort"_s);
    QVERIFY(device->output().endsWith("failed to open log file\n"_s));
}

QTEST_GUILESS_MAIN(FailingDiskTest)
#include "tst_failingdisk.moc"

// SPDX-License-Identifier: Apache-2.0

// The disk under the log is full, and later is not. A small file system in memory takes
// the place of the disk; a bundle that does not fit comes back short in mid-record.
//
// SEL_EVENTS_WHILE_FULL: how many events come while memory is watched, 100000 by default.

#include "reliability/eventsource.h"
#include "reliability/processfigures.h"
#include "support/environment.h"
#include "support/literals.h"
#include "support/syslogsocket.h"
#include "support/testbus.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include <sys/mount.h>

namespace
{

const QString logFolder = QStringLiteral("/srv/public/log");
const QString publicFolder = QStringLiteral("/srv/public");

bool mountMemory(const QString &folder, int kib, unsigned long flags = 0)
{
    return mount("tmpfs", qPrintable(folder), "tmpfs", flags, qPrintable("size=%1k"_s.arg(kib)))
        == 0;
}

//! A file system in memory of a size of one's own.
class SmallDisk
{
public:
    SmallDisk(QString mountPoint, int kib)
        : folder(std::move(mountPoint))
    {
        if (!QDir("/"_s).mkpath(folder) || !mountMemory(folder, kib)) {
            qFatal("cannot mount: %s", std::strerror(errno));
        }
    }
    ~SmallDisk() { umount2(qPrintable(folder), MNT_DETACH); }
    Q_DISABLE_COPY_MOVE(SmallDisk)

    void grow(int kib) const
    {
        if (!mountMemory(folder, kib, MS_REMOUNT)) {
            qFatal("cannot remount: %s", std::strerror(errno));
        }
    }
    //! Takes all the space that is left for a file of somebody else's.
    void fill() const
    {
        QFile file(ballast());
        const QByteArray page(4096, 'x');
        if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
            qFatal("cannot fill the disk");
        }
        while (file.write(page) == page.size()) { // until it does not fit
        }
    }
    void makeSpace() const { QFile::remove(ballast()); }

private:
    [[nodiscard]] QString ballast() const { return folder + "/ballast"_s; }

    QString folder;
};

} // namespace

class FullDiskTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void storingResumesOnceThereIsSpace_data();
    void storingResumesOnceThereIsSpace();
    void everyOutageIsReportedOnce();
    void everyRecordBeforeTheOutageIsKept_data();
    void everyRecordBeforeTheOutageIsKept();
    void smallerLogtailMakesSpace();
    void clearingMakesSpace();
    void restartInAnOutage();
    void memoryStaysBounded();

private:
    [[nodiscard]] bool startDaemon(const QString &logtail = QStringLiteral("100"));

    TestBus bus;
    std::unique_ptr<Device> device;
    std::unique_ptr<SmallDisk> disk;
};

void FullDiskTest::init()
{
    device = std::make_unique<Device>();
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
}

void FullDiskTest::cleanup()
{
    device.reset();
    disk.reset();
}

bool FullDiskTest::startDaemon(const QString &logtail)
{
    device->config.values.insert("SystemeventLogtail"_s, logtail);
    return device->start();
}

void FullDiskTest::storingResumesOnceThereIsSpace_data()
{
    QTest::addColumn<QString>("mountPoint");
    QTest::addColumn<int>("size");
    QTest::newRow("a log folder of 16 KiB") << logFolder << 16;
    QTest::newRow("a log folder that is full after a rotation") << logFolder << 112;
    QTest::newRow("a folder of 64 KiB around it") << publicFolder << 64;
}

void FullDiskTest::storingResumesOnceThereIsSpace()
{
    QFETCH(QString, mountPoint);
    QFETCH(int, size);
    const SyslogSocket syslog;
    disk = std::make_unique<SmallDisk>(mountPoint, size);
    QVERIFY(startDaemon());
    EventSource source(*device);
    source.send(quint64(size) * 1024 / 64 + 1000); // a thousand more than fit
    QCOMPARE(storageReports(*device), QStringList{failureReport(ENOSPC)});
    QVERIFY(answersReaders(*device));
    const StoredEvents before = storedEvents();
    QCOMPARE(before.damage, QString());
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), before.numbers.constLast());

    disk->grow(1024);
    QVERIFY(source.sendUntilStored());
    const StoredEvents after = storedEvents();
    QCOMPARE(after.damage, QString());
    QCOMPARE(after.numbers.mid(0, before.numbers.size()), before.numbers);
    QCOMPARE(after.numbers.constLast(), source.sent());
    const quint64 lost = lostBefore(source.sent(), after);
    QVERIFY(lost > 900);
    const QStringList reports{failureReport(ENOSPC), recoveryReport(lost)};
    QCOMPARE(storageReports(*device), reports);
    const QList<QByteArray> messages = syslog.received();
    QCOMPARE(messages.size(), reports.size());
    for (int i = 0; i < int(reports.size()); ++i) {
        QVERIFY2(messages[i].endsWith(reports[i].toUtf8()), messages[i].constData());
    }
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), source.sent());
    QCOMPARE(device->json().count("\"eventnr\":"_s), int(after.numbers.size()));
}

void FullDiskTest::everyOutageIsReportedOnce()
{
    disk = std::make_unique<SmallDisk>(publicFolder, 1024);
    QVERIFY(startDaemon());
    EventSource source(*device);
    QStringList reports;
    quint64 lostBeforeThis = 0;
    for (int outage = 0; outage < 5; ++outage) {
        source.send(200);
        disk->fill();
        source.send(1000);
        reports.append(failureReport(ENOSPC));
        QCOMPARE(storageReports(*device), reports);
        disk->makeSpace();
        QVERIFY(source.sendUntilStored());
        const StoredEvents stored = storedEvents();
        QCOMPARE(stored.damage, QString());
        const quint64 lost = lostBefore(source.sent(), stored);
        QVERIFY(lost > lostBeforeThis);
        reports.append(recoveryReport(lost - lostBeforeThis));
        QCOMPARE(storageReports(*device), reports);
        lostBeforeThis = lost;
    }
}

//! The records before vary, and so does the place in a record at which the page ends.
void FullDiskTest::everyRecordBeforeTheOutageIsKept_data()
{
    QTest::addColumn<int>("events");
    for (const int events : {1, 100, 200, 333, 500}) {
        QTest::addRow("%d and the rest of a bundle", events) << events;
    }
}

void FullDiskTest::everyRecordBeforeTheOutageIsKept()
{
    QFETCH(int, events);
    disk = std::make_unique<SmallDisk>(publicFolder, 256);
    QVERIFY(startDaemon());
    EventSource source(*device);
    source.send(quint64(events));
    QVERIFY(source.sendUntilStored());
    const quint64 kept = source.sent();
    disk->fill();
    source.send(500);
    QCOMPARE(storageReports(*device), QStringList{failureReport(ENOSPC)});
    const StoredEvents stored = storedEvents();
    QCOMPARE(stored.damage, QString());
    QVERIFY(quint64(stored.numbers.size()) >= kept);
    QCOMPARE(lostBefore(stored.numbers.constLast(), stored), quint64(0));
    QCOMPARE(device->json().count("\"eventnr\":"_s), int(stored.numbers.size()));
}

void FullDiskTest::smallerLogtailMakesSpace()
{
    disk = std::make_unique<SmallDisk>(logFolder, 256);
    QVERIFY(startDaemon());
    EventSource source(*device);
    source.send(5000);
    QCOMPARE(storageReports(*device), QStringList{failureReport(ENOSPC)});
    QVERIFY(QFile::exists(Device::logPath(2)));
    // Whoever reads has the files open, and open files keep their space.
    QVERIFY(device->result("getMaxLogNr"_s).toULongLong() > 0);
    QVERIFY(device->setProperty("logtail"_s, 1));
    QCOMPARE(device->property("logtail"_s).toInt(), 1);
    QVERIFY(!QFile::exists(Device::logPath(2)));
    QVERIFY(source.sendUntilStored());
    QCOMPARE(storageReports(*device).size(), 2);
    const StoredEvents stored = storedEvents();
    QCOMPARE(stored.damage, QString());
    QCOMPARE(stored.numbers.constLast(), source.sent());
}

void FullDiskTest::clearingMakesSpace()
{
    disk = std::make_unique<SmallDisk>(logFolder, 64);
    QVERIFY(startDaemon());
    EventSource source(*device);
    source.send(3000);
    const StoredEvents before = storedEvents();
    QCOMPARE(before.damage, QString());
    // Whoever reads has the files open, and open files keep their space.
    QVERIFY(device->result("getMaxLogNr"_s).toULongLong() > 0);
    QCOMPARE(device->call("clearLogfiles"_s).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(Device::logFile(0), QByteArray());
    const quint64 clearedAt = source.sent();
    QVERIFY(source.sendUntilStored());
    const StoredEvents after = storedEvents();
    QCOMPARE(after.damage, QString());
    QCOMPARE(after.numbers.constFirst(), clearedAt + 1); // those in memory went with the files
    QCOMPARE(after.numbers.constLast(), source.sent());
    // What was cleared away in memory is not lost by the outage.
    const QStringList reports = storageReports(*device);
    QCOMPARE(reports.size(), 2);
    const quint64 lost = reports[1].section(QLatin1Char(' '), -1).toULongLong();
    QVERIFY(lost > 0 && lost <= clearedAt - quint64(before.numbers.size()));
    QVERIFY(clearedAt - quint64(before.numbers.size()) - lost <= 40); // one bundle at most
}

void FullDiskTest::restartInAnOutage()
{
    disk = std::make_unique<SmallDisk>(logFolder, 32);
    QVERIFY(startDaemon());
    {
        EventSource source(*device);
        source.send(2000);
    }
    const StoredEvents before = storedEvents();
    device->stop();
    QVERIFY(device->start());
    EventSource source(*device);
    source.continueAt(before.numbers.constLast() + 1); // the lost numbers are given again
    source.send(1000);
    QCOMPARE(storageReports(*device), QStringList{failureReport(ENOSPC)});
    QVERIFY(answersReaders(*device));
    disk->grow(1024);
    QVERIFY(source.sendUntilStored());
    const StoredEvents after = storedEvents();
    QCOMPARE(after.damage, QString());
    QCOMPARE(after.numbers.mid(0, before.numbers.size()), before.numbers);
    QCOMPARE(storageReports(*device).constLast(), recoveryReport(lostBefore(source.sent(), after)));
}

void FullDiskTest::memoryStaysBounded()
{
    const auto events = numberFromEnvironment<quint64>("SEL_EVENTS_WHILE_FULL", 100000);
    disk = std::make_unique<SmallDisk>(logFolder, 64);
    QVERIFY(startDaemon());
    EventSource source(*device);
    source.send(3000);
    QCOMPARE(storageReports(*device), QStringList{failureReport(ENOSPC)});
    const qint64 before = memoryOf(device->processId(), "VmRSS");
    source.send(events);
    const qint64 after = memoryOf(device->processId(), "VmRSS");
    qInfo("%llu events while full: %lld KiB before, %lld KiB after",
          static_cast<unsigned long long>(events), static_cast<long long>(before),
          static_cast<long long>(after));
    QVERIFY(before > 0 && after > 0);
#ifndef __SANITIZE_ADDRESS__ // which keeps freed memory for a while
    QVERIFY2(after - before < 2048, "memory grows with the events of an outage");
#endif
    QCOMPARE(storageReports(*device), QStringList{failureReport(ENOSPC)});

    disk->grow(1024);
    QVERIFY(source.sendUntilStored());
    const StoredEvents stored = storedEvents();
    QCOMPARE(stored.damage, QString());
    QCOMPARE(storageReports(*device).constLast(),
             recoveryReport(lostBefore(source.sent(), stored)));
}

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QTemporaryDir probe;
    if (!mountMemory(probe.path(), 64)) {
        std::fprintf(stderr, "skipped: no file system can be mounted: %s\n", std::strerror(errno));
        return 77;
    }
    umount2(qPrintable(probe.path()), MNT_DETACH);
    FullDiskTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_fulldisk.moc"

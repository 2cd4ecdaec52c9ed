// SPDX-License-Identifier: Apache-2.0

// The log lies on an ext4 file system, in an image of 8 MiB: full, where a write comes
// back short; and turned read-only by the kernel, as it does after an error of its own.
// Needs root and loop devices.

#include "reliability/eventsource.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstdio>
#include <memory>

#include <sys/mount.h>
#include <unistd.h>

namespace
{

const QString logFolder = QStringLiteral("/srv/public/log");
constexpr qint64 blockSize = 4096;
constexpr qint64 imageSize = 2048 * blockSize;
constexpr qint64 probeSize = 4000; // leaves some of its block

bool run(const QString &program, const QStringList &arguments)
{
    return !runClient(program, arguments).isNull();
}

//! An ext4 file system of blocks of 4 KiB in a file.
class Ext4Image
{
public:
    Ext4Image()
    {
        QFile file(image());
        isMade = file.open(QIODevice::WriteOnly) && file.resize(imageSize)
            && run("mkfs.ext4"_s,
                   {"-q"_s, "-b"_s, QString::number(blockSize), "-m"_s, "0"_s, "-E"_s,
                    "lazy_itable_init=0,lazy_journal_init=0,nodiscard"_s, image()});
    }
    ~Ext4Image()
    {
        if (isMounted) {
            unmount();
        }
    }
    Q_DISABLE_COPY_MOVE(Ext4Image)

    [[nodiscard]] bool mount(const QString &mountPoint)
    {
        isMounted = isMade && QDir("/"_s).mkpath(mountPoint)
            && run("mount"_s, {"-o"_s, "loop,nodelalloc,errors=remount-ro"_s, image(), mountPoint});
        folder = mountPoint;
        return isMounted;
    }
    //! Nobody may have a file open on it.
    void unmount()
    {
        if (!run("umount"_s, {folder})) {
            (void)umount2(qPrintable(folder), MNT_DETACH);
        }
        isMounted = false;
    }
    //! Takes all the space for files of somebody else's.
    void fill() const
    {
        QFile probe(probePath());
        QFile file(ballast());
        if (!probe.open(QIODevice::WriteOnly) || !probe.resize(0)
            || probe.write(QByteArray(int(probeSize), 'x')) != probeSize
            || !file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
            qFatal("cannot fill the disk");
        }
        probe.close();
        // Deleted blocks are free only once the journal is written.
        bool hasGrown = true;
        while (hasGrown) {
            hasGrown = false;
            syncfs(file.handle());
            while (file.write(QByteArray(int(blockSize), 'x')) > 0) { // until it does not fit
                hasGrown = true;
            }
        }
    }
    void makeSpace() const { QFile::remove(ballast()); }
    //! How much of a write of 2600 bytes the full disk takes: the rest of a block.
    [[nodiscard]] qint64 takes() const
    {
        QFile file(probePath());
        const bool isOpen
            = file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered);
        return isOpen ? file.write(QByteArray(2600, 'x')) : -2;
    }
    //! Has the kernel find an error in it.
    [[nodiscard]] bool meetError() const
    {
        const QString device
            = QString::fromLatin1(runClient("findmnt"_s, {"-no"_s, "SOURCE"_s, folder})).trimmed();
        QFile trigger(
            "/sys/fs/ext4/%1/trigger_fs_error"_s.arg(device.section(QLatin1Char('/'), -1)));
        return trigger.open(QIODevice::WriteOnly | QIODevice::Unbuffered)
            && trigger.write("test") == 4;
    }

private:
    [[nodiscard]] QString image() const { return place.filePath("image"_s); }
    [[nodiscard]] QString ballast() const { return folder + "/ballast"_s; }
    [[nodiscard]] QString probePath() const { return folder + "/probe"_s; }

    QTemporaryDir place;
    QString folder;
    bool isMade = false;
    bool isMounted = false;
};

} // namespace

class FullDiskExt4Test : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void shortWriteLeavesNoTornRecord_data();
    void shortWriteLeavesNoTornRecord();
    void readOnlyDiskIsSurvived();

private:
    TestBus bus;
    std::unique_ptr<Device> device;
    std::unique_ptr<Ext4Image> disk;
};

void FullDiskExt4Test::init()
{
    device = std::make_unique<Device>();
    disk = std::make_unique<Ext4Image>();
    QVERIFY(disk->mount(logFolder));
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    device->config.values.insert("SystemeventLogtail"_s, "100"_s);
}

void FullDiskExt4Test::cleanup()
{
    device.reset();
    disk.reset();
}

void FullDiskExt4Test::shortWriteLeavesNoTornRecord_data()
{
    QTest::addColumn<int>("events");
    QTest::newRow("in the first file") << 100;
    QTest::newRow("after a rotation") << 2000;
}

void FullDiskExt4Test::shortWriteLeavesNoTornRecord()
{
    QFETCH(int, events);
    QVERIFY(device->start());
    EventSource source(*device);
    source.send(quint64(events));
    QVERIFY(source.sendUntilStored());
    QStringList reports;
    quint64 lostBeforeThis = 0;
    int shortWrites = 0;
    for (int outage = 0; outage < 3; ++outage) {
        qint64 taken = 0;
        for (int attempt = 0; attempt < 10 && taken != blockSize - probeSize; ++attempt) {
            disk->fill(); // again, where something became free after it
            taken = disk->takes();
        }
        // The file system may still find a block that it had set aside.
        shortWrites += taken == blockSize - probeSize ? 1 : 0;
        source.send(1000);
        reports.append(failureReport(ENOSPC));
        QCOMPARE(storageReports(*device), reports);
        QVERIFY(answersReaders(*device));
        QCOMPARE(storedEvents().damage, QString());

        disk->makeSpace();
        QVERIFY(source.sendUntilReported());
        const StoredEvents stored = storedEvents();
        QCOMPARE(stored.damage, QString());
        QCOMPARE(stored.numbers.constLast(), source.sent());
        QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), source.sent());
        const quint64 lost = lostBefore(source.sent(), stored);
        QVERIFY(lost > lostBeforeThis);
        reports.append(recoveryReport(lost - lostBeforeThis));
        QCOMPARE(storageReports(*device), reports);
        lostBeforeThis = lost;
    }
    qInfo("short writes seen beside the daemon's: in %d of 3 outages", shortWrites);
    QVERIFY(shortWrites > 0);
}

//! The kernel gives it back only to a new mount, so this outage lasts until a restart.
void FullDiskExt4Test::readOnlyDiskIsSurvived()
{
    QVERIFY(device->start());
    EventSource source(*device);
    source.send(300);
    QVERIFY(source.sendUntilStored());
    const StoredEvents before = storedEvents();
    if (!disk->meetError()) {
        QSKIP("the kernel offers no trigger_fs_error");
    }
    source.send(5000);
    const QStringList reports = storageReports(*device);
    QCOMPARE(reports.size(), 1);
    QVERIFY2(reports[0] == failureReport(EROFS) || reports[0] == failureReport(EIO),
             qPrintable(reports[0]));
    QVERIFY(answersReaders(*device));
    QVERIFY(device->setProperty("logtail"_s, 3));
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), before.numbers.constLast());
    QCOMPARE(device->json().count("\"eventnr\":"_s), int(before.numbers.size()));
    // It cannot even delete here, and without a file to go on with it ends.
    device->callNoReply("clearLogfiles"_s, {});
    QCOMPARE(device->waitForEnd(), "abort"_s);
    QVERIFY(device->output().endsWith("failed to open log file\n"_s));

    disk->unmount();
    QVERIFY(disk->mount(logFolder));
    QCOMPARE(storedEvents().numbers, before.numbers);
    QVERIFY(device->start());
    source.continueAt(before.numbers.constLast() + 1);
    QVERIFY(source.sendUntilStored());
    const StoredEvents after = storedEvents();
    QCOMPARE(after.damage, QString());
    QCOMPARE(lostBefore(source.sent(), after), quint64(0));
}

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    {
        const QTemporaryDir place;
        Ext4Image probe;
        if (geteuid() != 0 || !probe.mount(place.path())) {
            std::fputs("skipped: no ext4 image can be mounted (root, loop devices, mkfs.ext4)\n",
                       stderr);
            return 77;
        }
    }
    FullDiskExt4Test test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_fulldiskext4.moc"

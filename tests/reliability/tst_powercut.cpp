// SPDX-License-Identifier: Apache-2.0

// Power cuts: the log lies on a small ext4 of its own, which is cut off at random moments
// while events stream in; what is left is mounted again. Every bundle whose fsync had
// returned is read back, byte for byte, the daemon always starts, and the numbers go on.
//
// A cut is either the file system's own shutdown, with or without its journal written
// out, or a copy of the image as it stands while the daemon is stopped, which is mounted
// in place of the first one. Every few cuts begin with a new file system, with blocks of
// 4,096 or of 1,024 bytes.
//
// With the repair before each start that holds of every cut, also where the log has been
// damaged besides, and the power was cut in the middle of the repair first.
//
// Needs root, mkfs.ext4, e2fsck and a loop device. SEL_POWER_CUTS sets how many cuts (20),
// SEL_SEED the random moments.

#include "reliability/suddenend.h"

#include "support/environment.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace
{

constexpr quint32 cutsPerFileSystem = 10;
constexpr qint64 imageSize = 16777216;
const char mountPoint[] = "/srv/public";

//! What the kernel calls EXT4_IOC_SHUTDOWN; not every libc has it.
constexpr unsigned long shutdownRequest = _IOR('X', 125, quint32);
enum ShutdownManner : quint32 { WritesJournal = 1, DropsJournal = 2 };

//! A tool's exit status, -1 when it does not run.
int run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    return process.waitForFinished() && process.exitStatus() == QProcess::NormalExit
        ? process.exitCode()
        : -1;
}

//! Devices that the host makes later do not show here.
void makeLoopDevices()
{
    constexpr unsigned loopMajor = 7;
    for (unsigned i = 0; i < 64; ++i) {
        const QString path = "/dev/loop%1"_s.arg(i);
        (void)mknod(qPrintable(path), S_IFBLK | 0600, makedev(loopMajor, i));
    }
}

} // namespace

//! A file system in a file, mounted where the daemon keeps its log.
class CutDisk
{
public:
    CutDisk() { makeLoopDevices(); }
    ~CutDisk() { (void)umount2(mountPoint, MNT_DETACH); }
    Q_DISABLE_COPY_MOVE(CutDisk)

    //! An empty one.
    [[nodiscard]] bool make(int blockSize);
    [[nodiscard]] bool mount() const;
    [[nodiscard]] bool unmount() const { return umount(mountPoint) == 0; }
    //! Whether e2fsck finds it sound, or makes it so by itself.
    [[nodiscard]] bool check() const;

    [[nodiscard]] bool shutDown(ShutdownManner manner) const;
    //! Keeps a copy of what has reached the disk; it takes the disk's place by useCopy().
    [[nodiscard]] bool copy() const;
    [[nodiscard]] bool useCopy() const;

private:
    [[nodiscard]] QString image() const { return folder.filePath("image"_s); }
    [[nodiscard]] QString imageCopy() const { return folder.filePath("copy"_s); }
    [[nodiscard]] QByteArray imageBytes() const;

    QTemporaryDir folder;
};

bool CutDisk::make(int blockSize)
{
    QFile file(image());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || !file.resize(imageSize)) {
        return false;
    }
    return run("mkfs.ext4"_s, {"-q"_s, "-F"_s, "-b"_s, QString::number(blockSize), image()}) == 0;
}

bool CutDisk::mount() const
{
    QDir().mkpath(QString::fromLatin1(mountPoint));
    return run("mount"_s,
               {"-t"_s, "ext4"_s, "-o"_s, "loop"_s, image(), QString::fromLatin1(mountPoint)})
        == 0;
}

bool CutDisk::check() const
{
    const int status = run("e2fsck"_s, {"-p"_s, image()});
    return status == 0 || status == 1;
}

bool CutDisk::shutDown(ShutdownManner manner) const
{
    const int handle = open(mountPoint, O_RDONLY | O_CLOEXEC);
    const quint32 flags = manner;
    const bool done = ioctl(handle, shutdownRequest, &flags) == 0;
    close(handle);
    return done;
}

QByteArray CutDisk::imageBytes() const
{
    QFile file(image());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool CutDisk::copy() const
{
    // A cut is one moment: the same twice, or something was written meanwhile.
    QByteArray content = imageBytes();
    constexpr int enough = 1000;
    for (int i = 0; i < enough; ++i) {
        const QByteArray again = imageBytes();
        if (again == content) {
            QFile file(imageCopy());
            return file.open(QIODevice::WriteOnly) && file.write(content) == imageSize;
        }
        content = again;
    }
    return false;
}

bool CutDisk::useCopy() const
{
    return QFile::remove(image()) && QFile::rename(imageCopy(), image());
}

class PowerCutTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingSyncedIsLost();
    void repairedBeforeEachStart();

private:
    [[nodiscard]] QString cut(Dice &dice);
    [[nodiscard]] QString cutInRepair(Dice &dice);
    [[nodiscard]] QString cutAndRepair(Dice &dice);
    [[nodiscard]] QString cutOff(Dice &dice);
    [[nodiscard]] QString endFileSystem();
    [[nodiscard]] QString newFileSystem(Dice &dice);
    [[nodiscard]] QString shutDown(Dice &dice, ShutdownManner manner);
    [[nodiscard]] QString copyAway(Dice &dice);

    TestBus bus;
    std::unique_ptr<SuddenEnd> daemon;
    std::unique_ptr<CutDisk> disk;
    int byJournal = 0;
    int byDropping = 0;
    int byCopy = 0;
    int tornByJournal = 0;
    int tornByDropping = 0;
    int tornByCopy = 0;
    int fileSystems = 0;
    quint64 synced = 0; //!< bytes of this life, when the cut came
};

QString PowerCutTest::endFileSystem()
{
    QString flaw;
    if (daemon->hasTornTail()) {
        daemon->kill();
        (void)daemon->device.waitForEnd();
    } else {
        flaw = daemon->checkNumbering();
    }
    return disk->unmount() ? flaw : "the file system is still in use; "_s + flaw;
}

QString PowerCutTest::newFileSystem(Dice &dice)
{
    if (fileSystems > 0) {
        QString flaw = endFileSystem();
        if (!flaw.isEmpty()) {
            return flaw;
        }
    }
    ++fileSystems;
    daemon->startAnew();
    return disk->make(dice.chance(50) ? 1024 : 4096) && disk->mount() && daemon->device.start()
        ? QString()
        : "no new file system, or the daemon does not start on it"_s;
}

QString PowerCutTest::shutDown(Dice &dice, ShutdownManner manner)
{
    ++(manner == WritesJournal ? byJournal : byDropping);
    bool done = false;
    QString flaw = daemon->endUnderLoad(dice, [&] {
        // What an fsync says after that, nobody on a device would hear.
        synced = daemon->bytesSynced();
        done = disk->shutDown(manner);
        daemon->kill();
    });
    return done && disk->unmount() ? flaw : "the file system was not cut off; "_s + flaw;
}

QString PowerCutTest::copyAway(Dice &dice)
{
    ++byCopy;
    bool done = false;
    QString flaw = daemon->endUnderLoad(dice, [&] {
        daemon->pause();
        synced = daemon->bytesSynced();
        done = disk->copy();
        daemon->kill();
    });
    return done && disk->unmount() && disk->useCopy() ? flaw : "no copy was made; "_s + flaw;
}

//! Until the disk is mounted again and its files have been compared.
QString PowerCutTest::cutOff(Dice &dice)
{
    const int manner = dice.below(3);
    QString flaw
        = manner == 0 ? copyAway(dice) : shutDown(dice, manner == 1 ? WritesJournal : DropsJournal);
    if (dice.chance(30) && !disk->check()) {
        flaw += "e2fsck finds what it does not mend by itself; "_s;
    }
    if (!flaw.isEmpty() || !disk->mount()) {
        return flaw + "and mounting ended the test"_s;
    }
    flaw = daemon->checkFiles(synced);
    int &torn = manner == 0 ? tornByCopy : manner == 1 ? tornByJournal : tornByDropping;
    torn += daemon->hasTornTail() ? 1 : 0;
    return flaw;
}

QString PowerCutTest::cut(Dice &dice)
{
    const QString flaw = cutOff(dice);
    return flaw + daemon->checkReading();
}

QString PowerCutTest::cutInRepair(Dice &dice)
{
    const int manner = dice.below(3);
    bool done = false;
    QString flaw = daemon->endInRepair(dice, [&](qint64 process) {
        const auto signal = [process](int number) {
            if (process > 0) {
                (void)::kill(pid_t(process), number);
            }
        };
        if (manner == 0) {
            signal(SIGSTOP);
            done = disk->copy();
        } else {
            done = disk->shutDown(manner == 1 ? WritesJournal : DropsJournal);
        }
        signal(SIGKILL);
    });
    if (!done || !disk->unmount() || (manner == 0 && !disk->useCopy())) {
        return "the file system was not cut off; "_s + flaw;
    }
    if (!disk->check() || !disk->mount()) {
        return "the file system is not sound; "_s + flaw;
    }
    return flaw + daemon->checkEndedRepair();
}

QString PowerCutTest::cutAndRepair(Dice &dice)
{
    QString flaw = cutOff(dice);
    if (flaw.isEmpty() && dice.chance(70) && !daemon->damage(dice)) {
        return "the log cannot be damaged"_s;
    }
    for (int repeats = 1 + dice.below(2); repeats > 0 && flaw.isEmpty() && daemon->needsRepair();
         --repeats) {
        flaw = cutInRepair(dice);
    }
    flaw += daemon->repair();
    return flaw + daemon->checkReading();
}

void PowerCutTest::nothingSyncedIsLost()
{
    const quint32 seed = numberFromEnvironment("SEL_SEED", QRandomGenerator::global()->generate());
    const quint32 cuts = numberFromEnvironment("SEL_POWER_CUTS", 20);
    daemon = std::make_unique<SuddenEnd>(seed);
    disk = std::make_unique<CutDisk>();
    for (quint32 round = 0; round < cuts; ++round) {
        Dice dice(seed, round);
        const bool isNew = round % cutsPerFileSystem == 0 || daemon->hasTornTail();
        QString flaw = isNew ? newFileSystem(dice) : QString();
        QVERIFY2(flaw.isEmpty(), qPrintable("cut %1: %2"_s.arg(round).arg(flaw)));
        flaw = cut(dice);
        QVERIFY2(flaw.isEmpty(), qPrintable("cut %1: %2"_s.arg(round).arg(flaw)));
    }
    const QString flaw = endFileSystem();
    QVERIFY2(flaw.isEmpty(), qPrintable(flaw));

    const SuddenEnd::Counts &counts = daemon->counts();
    qInfo("%llu cuts on %d file systems: %d shut down with the journal written, %d without, %d "
          "copies",
          counts.ends, fileSystems, byJournal, byDropping, byCopy);
    qInfo("%llu events sent; %llu bytes synced before a cut, all there after it; %llu records "
          "read back; %llu cuts lost bytes that were written and not synced",
          counts.events, counts.bytesDurable, counts.recordsChecked, counts.endsWithLoss);
    qInfo("%llu torn tails, %llu of them with zeros: %d after a shutdown with the journal "
          "written, %d without, %d in copies",
          counts.tornTails, counts.tailsWithZeros, tornByJournal, tornByDropping, tornByCopy);
    QCOMPARE(counts.ends, quint64(cuts));
    QVERIFY(counts.bytesDurable > 0);
}

void PowerCutTest::repairedBeforeEachStart()
{
    const quint32 seed = numberFromEnvironment("SEL_SEED", QRandomGenerator::global()->generate());
    const quint32 cuts = numberFromEnvironment("SEL_POWER_CUTS", 20);
    fileSystems = 0;
    disk.reset();
    daemon.reset();
    daemon = std::make_unique<SuddenEnd>(seed, SuddenEnd::Start::Repaired);
    disk = std::make_unique<CutDisk>();
    for (quint32 round = 0; round < cuts; ++round) {
        Dice dice(seed, round);
        QString flaw = round % cutsPerFileSystem == 0 ? newFileSystem(dice) : QString();
        QVERIFY2(flaw.isEmpty(), qPrintable("cut %1: %2"_s.arg(round).arg(flaw)));
        flaw = cutAndRepair(dice);
        QVERIFY2(flaw.isEmpty(), qPrintable("cut %1: %2"_s.arg(round).arg(flaw)));
    }
    const QString flaw = endFileSystem();
    QVERIFY2(flaw.isEmpty(), qPrintable(flaw));

    const SuddenEnd::Counts &counts = daemon->counts();
    qInfo("%llu cuts, all read back whole: %llu repairs had something to do, and %llu besides "
          "were cut off in the middle; %llu records read back",
          counts.ends, counts.repairs, counts.repairsEnded, counts.recordsChecked);
    QCOMPARE(counts.ends, quint64(cuts));
    QVERIFY(counts.repairs > 0 && counts.repairsEnded > 0);
}

int main(int argc, char **argv)
{
    {
        CutDisk disk;
        if (geteuid() != 0 || !disk.make(4096) || !disk.check() || !disk.mount()
            || !disk.unmount()) {
            puts("skipped: it takes root, mkfs.ext4, e2fsck and a loop device");
            return 77;
        }
    }
    QCoreApplication app(argc, argv);
    PowerCutTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_powercut.moc"

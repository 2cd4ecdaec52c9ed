// SPDX-License-Identifier: Apache-2.0

// A repair, stopped before each of its steps and with each of them failing: the daemon never
// finds less than before, another run ends in the same bytes, and no byte is lost.

#include "archive/repair.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QTest>
#include <QtEndian>

#include <cerrno>
#include <limits>
#include <map>
#include <set>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Archive::Repair;
using Archive::RepairAction;
using Archive::RepairDisk;
using Archive::RepairObstacle;
using Archive::RepairResult;
using Files = std::map<QString, QByteArray>;

constexpr int never = std::numeric_limits<int>::max();

//! Ends before a step, as a power cut does, or has it fail, as a full disk does.
class BadDisk : public RepairDisk
{
public:
    explicit BadDisk(int badStep = never, int errorNumber = 0)
        : bad(badStep)
        , failure(errorNumber)
    {
    }

    [[nodiscard]] int stepCount() const { return steps; }

    int makeFolder(int parent, const char *name) override
    {
        return step([&] { return RepairDisk::makeFolder(parent, name); });
    }
    int create(int folder, const char *name, Archive::Descriptor &file) override
    {
        return step([&] { return RepairDisk::create(folder, name, file); });
    }
    int open(int folder, const char *name, Archive::Descriptor &file) override
    {
        return step([&] { return RepairDisk::open(folder, name, file); });
    }
    int write(int file, std::string_view bytes) override
    {
        if (steps + 1 == bad) {
            (void)RepairDisk::write(file, bytes.substr(0, bytes.size() / 2));
        }
        return step([&] { return RepairDisk::write(file, bytes); });
    }
    int setAttributes(int file, const struct stat &like) override
    {
        return step([&] { return RepairDisk::setAttributes(file, like); });
    }
    int sync(int /*descriptor*/) override
    {
        return step([] { return 0; }); // no test needs to wait for the disk
    }
    int link(int folder, const char *name, int newFolder, const char *newName) override
    {
        return step([&] { return RepairDisk::link(folder, name, newFolder, newName); });
    }
    int rename(int folder, const char *name, int newFolder, const char *newName) override
    {
        return step([&] { return RepairDisk::rename(folder, name, newFolder, newName); });
    }
    int remove(int folder, const char *name) override
    {
        return step([&] { return RepairDisk::remove(folder, name); });
    }
    int truncate(int file, qint64 size) override
    {
        return step([&] { return RepairDisk::truncate(file, size); });
    }

private:
    template <typename Action>
    int step(const Action &action)
    {
        ++steps;
        const bool isStopped = failure == 0 && steps >= bad;
        return isStopped ? EINTR : steps == bad ? failure : action();
    }

    int bad;
    int failure;
    int steps = 0;
};

QByteArray records(quint64 first, quint64 last)
{
    QByteArray bytes;
    for (quint64 logNr = first; logNr <= last; ++logNr) {
        bytes += RecordBytes::record(logNr);
    }
    return bytes;
}

//! Records of which the third has a wrong length.
QByteArray brokenRecords(quint64 first, quint64 last)
{
    return records(first, first + 1) + RecordBytes::record(first + 2).chopped(2) + "xx"
        + records(first + 3, last);
}

//! What a walk from trailer to trailer finds in log files.
std::set<QByteArray> readable(const Files &files)
{
    std::set<QByteArray> found;
    for (const auto &[name, bytes] : files) {
        int end = name.startsWith("zib"_s) ? int(bytes.size()) : 0;
        while (end >= 2) {
            const int begin = end - 2 - qFromLittleEndian<quint16>(bytes.constData() + end - 2);
            if (begin >= 0 && bytes.mid(begin + 30, 6) == "/power") {
                found.insert(bytes.mid(begin, end - begin));
            }
            end = begin;
        }
    }
    return found;
}

bool isWithin(const std::set<QByteArray> &part, const std::set<QByteArray> &whole)
{
    return std::includes(whole.begin(), whole.end(), part.begin(), part.end());
}

Files contentOf(const LogFolder &folder)
{
    Files files;
    for (const QString &below : {QString(), "damaged/"_s}) {
        const QDir dir(folder.path(below.isEmpty() ? "."_s : "damaged"_s));
        for (const QString &name : dir.entryList(QDir::Files)) {
            QFile file(dir.filePath(name));
            if (file.open(QIODevice::ReadOnly)) {
                files[below + name] = file.readAll();
            }
        }
    }
    return files;
}

RepairResult repair(const LogFolder &folder, RepairDisk &disk, Archive::RepairLimits limits = {})
{
    Archive::Folder archive(folder.dir().path());
    if (!archive.open(Archive::Writers::None)) {
        qFatal("cannot open the folder");
    }
    return Repair(archive, disk, limits).run();
}

RepairResult plan(const LogFolder &folder, Archive::RepairLimits limits = {})
{
    Archive::Folder archive(folder.dir().path());
    RepairDisk disk;
    if (!archive.open(Archive::Writers::None)) {
        qFatal("cannot open the folder");
    }
    return Repair(archive, disk, limits).plan();
}

} // namespace

class RepairTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stopped_data() { folders(); }
    void stopped();
    void failing_data() { folders(); }
    void failing();
    void planIsWhatIsDone_data() { folders(); }
    void planIsWhatIsDone();
    void healthyFolderIsNotTouched();
    void attributesStay();
    void tornEndIsCutOffAndKept();
    void wrongLastNumberIsNotGoneOnWith();
    void numbersBeyondAllBoundsAreLeft();
    void numberThatIsThereTwiceIsNoDamage();
    void damageLeftInAMendedFileIsTold();
    void fullQuarantineLeavesOlderFiles();
    void linksAreLeft();
    void nothingInDamagedIsChanged();
    void lockIsHeldOnce();

private:
    static void folders();
};

void RepairTest::folders()
{
    QTest::addColumn<QList<QByteArray>>("files"); // newest first
    QTest::addColumn<QList<QByteArray>>("mended");
    QTest::addColumn<quint64>("next");
    const QByteArray old = records(1, 9);
    QTest::newRow("a torn end of the current file is cut off")
        << QList<QByteArray>{records(10, 20) + records(21, 21).left(30), old}
        << QList<QByteArray>{records(10, 20), old} << quint64(21);
    QTest::newRow("a torn end that goes on with zeros")
        << QList<QByteArray>{records(10, 20) + records(21, 21).left(30) + QByteArray(101, '\0'),
                             old}
        << QList<QByteArray>{records(10, 20), old} << quint64(21);
    QTest::newRow("a damaged record in the current file is taken out")
        << QList<QByteArray>{brokenRecords(10, 20), old}
        << QList<QByteArray>{records(10, 11) + records(13, 20), old} << quint64(21);
    QTest::newRow("damage in front of all records of the current file")
        << QList<QByteArray>{QByteArray(50, 'x') + records(10, 20), old}
        << QList<QByteArray>{records(10, 20), old} << quint64(21);
    QTest::newRow("damage in the middle and at the end")
        << QList<QByteArray>{brokenRecords(10, 20) + "torn", old}
        << QList<QByteArray>{records(10, 11) + records(13, 20), old} << quint64(21);
    QTest::newRow("an older file is mended")
        << QList<QByteArray>{records(10, 20), brokenRecords(1, 9)}
        << QList<QByteArray>{records(10, 20), records(1, 2) + records(4, 9)} << quint64(21);
    QTest::newRow("all files are mended")
        << QList<QByteArray>{brokenRecords(20, 30) + "x", brokenRecords(10, 19),
                             "x" + brokenRecords(1, 9)}
        << QList<QByteArray>{records(20, 21) + records(23, 30), records(10, 11) + records(13, 19),
                             records(1, 2) + records(4, 9)}
        << quint64(31);
    QTest::newRow("of a current file of zeros nothing stays, and the older one has the number")
        << QList<QByteArray>{QByteArray(4096, '\0'), old} << QList<QByteArray>{"", old}
        << quint64(10);
    QTest::newRow("the newest file ends with a record, though the current one is empty")
        << QList<QByteArray>{"", old + QByteArray(50, 'x')} << QList<QByteArray>{"", old}
        << quint64(10);
}

void RepairTest::stopped()
{
    QFETCH(QList<QByteArray>, files);
    QFETCH(QList<QByteArray>, mended);
    int steps = never;
    for (int stop = 1; stop <= steps; ++stop) {
        const LogFolder folder;
        for (int i = 0; i < int(files.size()); ++i) {
            folder.put(i, files[i]);
        }
        const Files original = contentOf(folder);
        BadDisk stopping(stop);
        (void)repair(folder, stopping);
        const std::set<QByteArray> now = readable(contentOf(folder));
        QVERIFY(isWithin(readable(original), now));

        BadDisk again;
        QVERIFY(repair(folder, again).isWell());
        const Files after = contentOf(folder);
        for (int i = 0; i < int(files.size()); ++i) {
            QCOMPARE(after.at(LogFolder::name(i)), mended[i]);
        }
        QCOMPARE(after.count("damaged/tmp"_s), size_t(0));
        QVERIFY(isWithin(now, readable(after)));

        BadDisk third;
        const RepairResult nothing = repair(folder, third);
        QVERIFY(nothing.wasHealthy());
        QCOMPARE(third.stepCount(), 0);
        QVERIFY(contentOf(folder) == after);
        steps = steps == never && stopping.stepCount() < stop ? stop : steps;
    }
    QVERIFY(steps > 8 && steps < 100);
}

void RepairTest::failing()
{
    QFETCH(QList<QByteArray>, files);
    QFETCH(QList<QByteArray>, mended);
    for (const int reason : {ENOSPC, EIO}) {
        int steps = never;
        for (int bad = 1; bad <= steps; ++bad) {
            const LogFolder folder;
            for (int i = 0; i < int(files.size()); ++i) {
                folder.put(i, files[i]);
            }
            const Files original = contentOf(folder);
            BadDisk failing(bad, reason);
            const RepairResult result = repair(folder, failing);
            QVERIFY(isWithin(readable(original), readable(contentOf(folder))));
            QCOMPARE(contentOf(folder).count("damaged/tmp"_s), size_t(0));
            const bool wasBad = failing.stepCount() >= bad;
            QCOMPARE(result.isWell(), !wasBad);
            QCOMPARE(result.nextAfter, plan(folder).nextBefore);
            BadDisk again;
            QVERIFY(repair(folder, again).isWell());
            for (int i = 0; i < int(files.size()); ++i) {
                QCOMPARE(folder.content(i), mended[i]);
            }
            steps = wasBad ? steps : bad;
        }
    }
}

void RepairTest::planIsWhatIsDone()
{
    QFETCH(QList<QByteArray>, files);
    QFETCH(quint64, next);
    const LogFolder folder;
    for (int i = 0; i < int(files.size()); ++i) {
        folder.put(i, files[i]);
    }
    const Files original = contentOf(folder);
    const RepairResult planned = plan(folder);
    QVERIFY(contentOf(folder) == original);
    QVERIFY(!planned.wasHealthy());
    RepairDisk disk;
    const RepairResult done = repair(folder, disk);
    QCOMPARE(done.steps.size(), planned.steps.size());
    QCOMPARE(done.nextAfter, next);
    QCOMPARE(planned.nextAfter, next);
    QCOMPARE(planned.readBefore, quint64(readable(original).size()));
    QCOMPARE(planned.readAfter, quint64(readable(contentOf(folder)).size()));
    for (size_t i = 0; i < done.steps.size(); ++i) {
        QCOMPARE(done.steps[i].action, planned.steps[i].action);
        QCOMPARE(done.steps[i].keptAs, planned.steps[i].keptAs);
        // What was taken out is there, byte for byte.
        const QByteArray before = original.at(LogFolder::name(done.steps[i].file));
        const QByteArray kept = contentOf(folder).at(done.steps[i].keptAs);
        const bool isCut = done.steps[i].action == RepairAction::CutEnd;
        QCOMPARE(isCut ? folder.content(done.steps[i].file) + kept : kept, before);
    }
}

void RepairTest::healthyFolderIsNotTouched()
{
    const LogFolder folder;
    folder.put(1, records(1, 9));
    folder.put(0, records(10, 12) + records(20, 25)); // numbers that were never stored
    BadDisk disk;
    const RepairResult result = repair(folder, disk);
    QVERIFY(result.wasHealthy() && result.isWell());
    QCOMPARE(result.readBefore, quint64(18));
    QCOMPARE(result.nextBefore, quint64(26));
    QCOMPARE(result.nextAfter, quint64(26));
    QCOMPARE(disk.stepCount(), 0);
    QVERIFY(!QFileInfo::exists(folder.path("damaged"_s)));
}

void RepairTest::attributesStay()
{
    const LogFolder folder;
    folder.put(0, brokenRecords(1, 9));
    const QByteArray path = QFile::encodeName(folder.path("zib0.log"_s));
    QCOMPARE(chmod(path.constData(), 0640), 0);
    folder.setAge("zib0.log"_s, 1000);
    struct stat before {
    };
    QCOMPARE(stat(path.constData(), &before), 0);
    RepairDisk disk;
    QVERIFY(repair(folder, disk).isWell());
    struct stat after {
    };
    QCOMPARE(stat(path.constData(), &after), 0);
    QVERIFY(after.st_ino != before.st_ino);
    QCOMPARE(after.st_mode, before.st_mode);
    QCOMPARE(after.st_uid, before.st_uid);
    QCOMPARE(after.st_gid, before.st_gid);
    QCOMPARE(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    QCOMPARE(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

void RepairTest::tornEndIsCutOffAndKept()
{
    const LogFolder folder;
    folder.put(0, records(1, 5) + "torn");
    folder.setAge("zib0.log"_s, 1000);
    const QDateTime before = QFileInfo(folder.path("zib0.log"_s)).lastModified();
    RepairDisk disk;
    const RepairResult result = repair(folder, disk);
    QCOMPARE(result.steps.size(), size_t(1));
    QCOMPARE(result.steps[0].action, RepairAction::CutEnd);
    QCOMPARE(result.steps[0].damagedAt, qint64(records(1, 5).size()));
    QVERIFY(result.steps[0].keptAs.startsWith("damaged/zib0.log-%1-"_s.arg(records(1, 5).size())));
    QCOMPARE(contentOf(folder).at(result.steps[0].keptAs), QByteArray("torn"));
    QCOMPARE(QFileInfo(folder.path("zib0.log"_s)).lastModified(), before);
}

void RepairTest::wrongLastNumberIsNotGoneOnWith()
{
    for (const quint64 wrong : {quint64(5) + (1 << 21), quint64(3)}) {
        const LogFolder folder;
        folder.put(0, records(1, 5) + records(wrong, wrong));
        RepairDisk disk;
        const RepairResult result = repair(folder, disk);
        QCOMPARE(result.nextBefore, wrong + 1);
        QCOMPARE(result.nextAfter, quint64(6));
        QCOMPARE(folder.content(0), records(1, 5));
    }
}

void RepairTest::numbersBeyondAllBoundsAreLeft()
{
    const quint64 bound = quint64(1) << 53;
    const LogFolder folder;
    folder.put(1, records(bound - 9, bound + 9));
    folder.put(0, records(bound + 10, bound + 15));
    const Files original = contentOf(folder);
    BadDisk disk;
    const RepairResult result = repair(folder, disk);
    QVERIFY(!result.isWell());
    QCOMPARE(disk.stepCount(), 0);
    QCOMPARE(result.steps.at(0).obstacle, RepairObstacle::Unsure);
    QCOMPARE(result.nextAfter, bound + 16);
    QVERIFY(contentOf(folder) == original);
}

void RepairTest::numberThatIsThereTwiceIsNoDamage()
{
    for (const QByteArray &end : {records(5, 5), records(5, 6), records(5, 5) + records(5, 5)}) {
        const LogFolder folder;
        folder.put(0, records(1, 5) + end);
        BadDisk disk;
        const RepairResult result = repair(folder, disk);
        QVERIFY(result.wasHealthy());
        QCOMPARE(disk.stepCount(), 0);
        QCOMPARE(result.nextAfter, result.nextBefore);
    }
}

void RepairTest::damageLeftInAMendedFileIsTold()
{
    QByteArray badPath = RecordBytes::record(3);
    badPath[30] = char(badPath[30] ^ 0x80);
    const LogFolder folder;
    folder.put(0, records(1, 2) + badPath + records(4, 9) + records(10, 10).left(30));
    BadDisk disk;
    const RepairResult first = repair(folder, disk);
    QCOMPARE(first.steps.size(), size_t(1));
    QCOMPARE(first.steps[0].action, RepairAction::CutEnd);
    QCOMPARE(first.steps[0].obstacle, RepairObstacle::Record);
    QVERIFY(!first.isWell());
    QCOMPARE(folder.content(0), records(1, 2) + badPath + records(4, 9));

    BadDisk again;
    const RepairResult second = repair(folder, again);
    QCOMPARE(again.stepCount(), 0);
    QCOMPARE(second.steps[0].action, RepairAction::Leave);
    QCOMPARE(second.steps[0].obstacle, RepairObstacle::Record);
    QVERIFY(!second.isWell());
}

void RepairTest::fullQuarantineLeavesOlderFiles()
{
    const LogFolder folder;
    for (int i = 0; i < 4; ++i) {
        folder.put(i, brokenRecords(quint64(100 - 10 * i), quint64(109 - 10 * i)));
    }
    const Files original = contentOf(folder);
    const RepairResult planned = plan(folder, {2, 1 << 20});
    RepairDisk disk;
    const RepairResult result = repair(folder, disk, {2, 1 << 20});
    QVERIFY(!result.isWell());
    QCOMPARE(result.steps.size(), size_t(4));
    for (size_t i = 0; i < 4; ++i) {
        const bool fits = i < 2;
        QCOMPARE(result.steps[i].action, fits ? RepairAction::Rewrite : RepairAction::Leave);
        QCOMPARE(result.steps[i].obstacle, fits ? RepairObstacle::None : RepairObstacle::Kept);
        QCOMPARE(planned.steps[i].action, result.steps[i].action);
    }
    QCOMPARE(folder.content(2), original.at("zib2.log"_s));
    QCOMPARE(repair(folder, disk, {2, 1 << 20}).steps.size(), size_t(2));
    const qint64 both = qint64(2 * brokenRecords(100, 109).size());
    QVERIFY(!repair(folder, disk, {16, both}).isWell());
    QVERIFY(!repair(folder, disk, {16, 2 * both - 1}).isWell());
    QVERIFY(repair(folder, disk, {16, 2 * both}).isWell());
}

void RepairTest::linksAreLeft()
{
    const LogFolder folder;
    folder.put("elsewhere"_s, brokenRecords(1, 9));
    QVERIFY(QFile::link(folder.path("elsewhere"_s), folder.path("zib0.log"_s)));
    folder.put(1, brokenRecords(1, 9));
    QCOMPARE(::link(QFile::encodeName(folder.path("zib1.log"_s)).constData(),
                    QFile::encodeName(folder.path("second"_s)).constData()),
             0);
    const Files original = contentOf(folder);
    BadDisk disk;
    const RepairResult result = repair(folder, disk);
    QCOMPARE(disk.stepCount(), 0);
    QCOMPARE(result.steps.size(), size_t(2));
    QCOMPARE(result.steps[0].obstacle, RepairObstacle::NotOwn);
    QCOMPARE(result.steps[1].obstacle, RepairObstacle::NotOwn);
    QVERIFY(contentOf(folder) == original);
}

void RepairTest::nothingInDamagedIsChanged()
{
    const LogFolder folder;
    folder.put(0, records(1, 5) + "torn");
    RepairDisk disk;
    const QString kept = repair(folder, disk).steps.at(0).keptAs;
    // The same damage once more, but what was kept has been changed since.
    folder.put(0, records(1, 5) + "torn");
    folder.put(kept, "TORN");
    const RepairResult result = repair(folder, disk);
    QCOMPARE(result.steps.at(0).obstacle, RepairObstacle::Kept);
    QCOMPARE(contentOf(folder).at(kept), QByteArray("TORN"));
    folder.put(kept, "torn");
    QVERIFY(repair(folder, disk, {1, 4}).isWell()); // it is kept already
}

void RepairTest::lockIsHeldOnce()
{
    const LogFolder folder;
    const Archive::FolderLock lock(folder.dir().path());
    QVERIFY(lock.isHeld());
    QCOMPARE(Archive::FolderLock(folder.dir().path()).error(), EWOULDBLOCK);
    QCOMPARE(Archive::FolderLock(folder.path("missing"_s)).error(), ENOENT);
}

QTEST_GUILESS_MAIN(RepairTest)
#include "tst_repair.moc"

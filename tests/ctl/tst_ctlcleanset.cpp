// SPDX-License-Identifier: Apache-2.0

// What "salvage -O" writes: a set of log files that is healthy, holds every whole record
// byte for byte, and appears all at once or not at all.

#include "binlog/binaryloginterface.h"
#include "catalog/systemeventcatalogue.h"
#include "ctl/cleanset.h"
#include "ctl/ctlprocess.h"
#include "reader/systemeventlogfilereader.h"
#include "support/literals.h"
#include "support/logfolder.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTest>
#include <QtEndian>

#include <csignal>
#include <memory>

// Neither drifts alone.
static_assert(CleanSet::fullFileSize == BinaryLogInterface::defaultFileSize);
static_assert(CleanSet::bundleSize == BinaryLogInterface::defaultBundleSize);

namespace
{

CtlRun salvageTo(const QString &target, const LogFolder &folder)
{
    return runCtl(
        {"salvage"_s, "-C"_s, testCatalogue(), "-D"_s, folder.dir().path(), "-O"_s, target});
}

//! All bytes of a folder's log files, the oldest file first.
QByteArray content(const QString &folder)
{
    QByteArray bytes;
    const QStringList names = QDir(folder).entryList(QDir::Files);
    for (auto i = names.size() - 1; i >= 0; --i) {
        QFile file(folder + "/zib%1.log"_s.arg(i));
        if (!file.open(QIODevice::ReadOnly)) {
            return "not a set of log files: " + names.join(QLatin1Char(' ')).toUtf8();
        }
        bytes += file.readAll();
    }
    return bytes;
}

//! The numbers with which a folder's files begin, the oldest file first.
QList<int> firstNumbers(const QString &folder)
{
    QList<int> numbers;
    for (auto i = QDir(folder).entryList(QDir::Files).size() - 1; i >= 0; --i) {
        QFile file(folder + "/zib%1.log"_s.arg(i));
        const QByteArray begin = file.open(QIODevice::ReadOnly) ? file.read(8) : QByteArray();
        numbers.append(begin.size() < 8 ? -1 : int(qFromLittleEndian<quint64>(begin.constData())));
    }
    return numbers;
}

//! The numbers up to the highest one of which the daemon's own reader shows the record.
QList<int> shownNumbers(const QDir &folder, int highest)
{
    SystemeventCatalogue catalogue;
    if (!catalogue.load(testCatalogue())) {
        return {};
    }
    SystemeventLogfileReader reader(folder, &catalogue);
    QList<int> numbers;
    for (int i = 1; i <= highest; ++i) {
        if (reader.jsonEntry(quint64(i), "en"_s).contains(".%1\""_s.arg(i))) {
            numbers.append(i);
        }
    }
    return numbers;
}

} // namespace

class CtlCleanSetTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void recordsAreKept();
    void counts_data();
    void counts();
    void selection_data();
    void selection();
    void filesAreOfTheDaemonsSize();
    void filesAreTheDaemons();
    void orderIsByNumber_data();
    void orderIsByNumber();
    void longRecords_data();
    void longRecords();
    void refusals();
    void occupied_data();
    void occupied();
    void wrongUsage();
    void interrupted();
    void fullDisk();

private:
    [[nodiscard]] QString target() const { return parent->filePath("set"_s); }

    std::unique_ptr<QTemporaryDir> parent;
};

void CtlCleanSetTest::init()
{
    parent = std::make_unique<QTemporaryDir>();
}

void CtlCleanSetTest::recordsAreKept()
{
    LogFolder folder;
    folder.put(1, messages(1, 20) + QByteArray(70, '\0') + messages(22, 40));
    folder.put(0, messages(41, 60) + message(61, "torn").left(30));
    const CtlRun run = salvageTo(target(), folder);
    QCOMPARE(run.status, 3);
    QCOMPARE(run.errors, QByteArray());
    QVERIFY2(run.out.startsWith("59 whole records written to "), run.out.constData());
    QCOMPARE(content(target()), messages(1, 20) + messages(22, 60));
    const CtlRun check = runCtl({"verify"_s, "-D"_s, target(), "-C"_s, testCatalogue()});
    QVERIFY2(check.status == 0, check.out.constData());
}

void CtlCleanSetTest::counts_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("records");
    QTest::addColumn<QByteArray>("files");

    const auto withoutEndMark = [](quint64 logNr) {
        QByteArray bytes = messages(logNr, logNr);
        bytes[bytes.size() - 3] = 'x';
        return bytes;
    };
    QTest::newRow("one record is one") << messages(1, 1) << QByteArray("1 whole record written to ")
                                       << QByteArray(", in 1 file\n");
    QTest::newRow("so is one that is left out")
        << messages(1, 1) + withoutEndMark(2) + messages(3, 3)
        << QByteArray("2 whole records written to ")
        << QByteArray(", in 1 file; 1 likely or damaged one left out\n");
    QTest::newRow("two are ones") << messages(1, 1) + withoutEndMark(2) + withoutEndMark(3)
            + messages(4, 4, 70000)
                                  << QByteArray("2 whole records written to ")
                                  << QByteArray(
                                         ", in 2 files; 2 likely or damaged ones left out\n");
}

void CtlCleanSetTest::counts()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, records);
    QFETCH(QByteArray, files);
    LogFolder folder;
    folder.put(0, content);
    const CtlRun run = salvageTo(target(), folder);
    QCOMPARE(run.out, records + target().toUtf8() + files);
}

void CtlCleanSetTest::selection_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("wanted");
    QTest::addColumn<int>("status");

    QTest::newRow("by number") << QStringList{"--number"_s, "3..5"_s} << messages(3, 5) << 0;
    QTest::newRow("by text") << QStringList{"-g"_s, "\\.[17]$"_s} << messages(1, 1) + messages(7, 7)
                             << 3;
    QTest::newRow("the last ones")
        << QStringList{"-n"_s, "7"_s} << messages(5, 8) + messages(10, 12) << 3;
    QTest::newRow("more than there are")
        << QStringList{"-n"_s, "99"_s} << messages(1, 8) + messages(10, 12) << 3;
    QTest::newRow("the last ones of some")
        << QStringList{"-n"_s, "2"_s, "--number"_s, "..5"_s} << messages(4, 5) << 0;
    QTest::newRow("nothing") << QStringList{"--number"_s, "99"_s} << QByteArray() << 1;
    QTest::newRow("no order but theirs") << QStringList{"-r"_s} << QByteArray() << 2;
}

void CtlCleanSetTest::selection()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, wanted);
    QFETCH(int, status);
    LogFolder folder;
    folder.put(1, messages(1, 6));
    folder.put(0, messages(7, 8) + QByteArray(70, '\0') + messages(10, 12));
    const CtlRun run = runCtl(QStringList{"salvage"_s, "-C"_s, testCatalogue(), "-D"_s,
                                          folder.dir().path(), "-O"_s, target()}
                              + options);
    QCOMPARE(run.status, status);
    QCOMPARE(content(target()), wanted);
}

void CtlCleanSetTest::filesAreOfTheDaemonsSize()
{
    LogFolder folder;
    folder.put(0, messages(1, 5000));
    QCOMPARE(salvageTo(target(), folder).status, 0);
    QCOMPARE(content(target()), messages(1, 5000));
    const QDir set(target());
    const auto count = set.entryList(QDir::Files).size();
    QVERIFY(count > 3);
    for (int i = 1; i < count; ++i) {
        const QFileInfo file(set.filePath("zib%1.log"_s.arg(i)));
        QVERIFY(file.size() >= 102400 && file.size() < 102400 + 2560 + 100);
        const QFileInfo newer(set.filePath("zib%1.log"_s.arg(i - 1)));
        QVERIFY(file.lastModified() < newer.lastModified());
    }
}

void CtlCleanSetTest::filesAreTheDaemons()
{
    LogFolder folder;
    {
        BinaryLogInterface log(
            BinaryLogInterface::defaultBundleSize, BinaryLogInterface::defaultFlushInterval,
            BinaryLogInterface::defaultLogtail, BinaryLogInterface::defaultFileSize, folder.dir());
        for (int i = 0; i < 3000; ++i) { // 80 bytes each: some bundles fill to the byte
            log.logEvent(9, {"/power/supply"_s, QString(32, QLatin1Char('.'))});
        }
        log.writeQueued();
    }
    QCOMPARE(salvageTo(target(), folder).status, 0);
    const QStringList names = folder.dir().entryList(QDir::Files);
    QCOMPARE(names.size(), 3);
    QCOMPARE(QDir(target()).entryList(QDir::Files), names);
    for (int i = 0; i < names.size(); ++i) {
        QFile file(QDir(target()).filePath(LogFolder::name(i)));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY2(file.readAll() == folder.content(i), qPrintable(file.fileName()));
    }
}

void CtlCleanSetTest::orderIsByNumber_data()
{
    QTest::addColumn<QList<QByteArray>>("files"); // the oldest first
    QTest::addColumn<QByteArray>("wanted");

    using Files = QList<QByteArray>;
    QTest::newRow("swapped files find their places")
        << Files{messages(101, 200), messages(1, 100)} << messages(1, 200);
    QTest::newRow("swapped pages find their places")
        << Files{messages(1, 50) + messages(101, 150) + messages(51, 100) + messages(151, 200)}
        << messages(1, 200);
    QTest::newRow("numbers that began again come behind")
        << Files{messages(1, 200), messages(1, 100)} << messages(1, 200) + messages(1, 100);
    QTest::newRow("and go on there")
        << Files{messages(100, 200), messages(1, 300)} << messages(100, 200) + messages(1, 300);
    QTest::newRow("a page that is there twice is kept twice")
        << Files{messages(1, 100) + messages(51, 60) + messages(101, 200)}
        << messages(51, 60) + messages(1, 200);
}

void CtlCleanSetTest::orderIsByNumber()
{
    QFETCH(QList<QByteArray>, files);
    QFETCH(QByteArray, wanted);
    LogFolder folder;
    for (int i = 0; i < files.size(); ++i) {
        folder.put(int(files.size()) - 1 - i, files.at(i));
    }
    (void)salvageTo(target(), folder);
    QVERIFY(content(target()) == wanted);
    const CtlRun check = runCtl({"verify"_s, "-D"_s, target(), "-C"_s, testCatalogue()});
    QVERIFY2(check.status == 0, check.out.constData());
}

void CtlCleanSetTest::longRecords_data()
{
    QTest::addColumn<int>("textSize");
    QTest::addColumn<QList<int>>("longOnes");
    QTest::addColumn<QList<int>>("wanted"); // with which files begin
    QTest::addColumn<QList<int>>("hidden");

    using Numbers = QList<int>;
    QTest::newRow("nothing stands in front of them")
        << 70000 << Numbers{10, 30, 31, 55, 81} << Numbers{1, 10, 30, 31, 55, 81}
        << Numbers{10, 30, 31, 55, 81};
    QTest::newRow("the first record may be one")
        << 70000 << Numbers{1, 2} << Numbers{1, 2} << Numbers{1, 2};
    QTest::newRow("one that fills a file stands alone")
        << 200000 << Numbers{10} << Numbers{1, 10, 11} << Numbers{10};
    QTest::newRow("they begin where the stored length begins again")
        << 65490 << Numbers{10} << Numbers{1, 10} << Numbers{10};
    QTest::newRow("a shorter one hides nothing") << 65489 << Numbers{10} << Numbers{1} << Numbers{};
}

void CtlCleanSetTest::longRecords()
{
    constexpr int count = 81;
    QFETCH(int, textSize);
    QFETCH(QList<int>, longOnes);
    QFETCH(QList<int>, wanted);
    QFETCH(QList<int>, hidden);
    QByteArray bytes;
    QList<int> shown;
    for (int i = 1; i <= count; ++i) {
        bytes += messages(quint64(i), quint64(i), longOnes.contains(i) ? textSize : 40);
        if (!hidden.contains(i)) {
            shown.append(i);
        }
    }
    LogFolder folder;
    folder.put(0, bytes);
    const CtlRun run = salvageTo(target(), folder);
    QVERIFY2(run.status == 0, run.errors.constData());
    QVERIFY(content(target()) == bytes);
    QCOMPARE(firstNumbers(target()), wanted);
    QCOMPARE(shownNumbers(QDir(target()), count), shown);
    const QList<int> before = shownNumbers(folder.dir(), count);
    QVERIFY(!before.isEmpty() || hidden.contains(count));
    for (const int number : before) {
        QVERIFY2(shown.contains(number), qPrintable(QString::number(number)));
    }
}

void CtlCleanSetTest::refusals()
{
    LogFolder folder;
    folder.put(0, messages(1, 3));
    LogFolder other;
    other.put(4, messages(7, 8));
    const CtlRun occupied = salvageTo(other.dir().path(), folder);
    QCOMPARE(occupied.status, 4);
    QVERIFY(occupied.errors.contains("there are log files already"));
    QCOMPARE(other.dir().entryList(QDir::Files), QStringList{"zib4.log"_s});

    const CtlRun missing = salvageTo(parent->filePath("not/there"_s), folder);
    QCOMPARE(missing.status, 4);
    QVERIFY(missing.errors.contains("No such file or directory; name another folder with -O"));

    // One that is there and holds nothing is taken.
    QVERIFY(QDir(parent->path()).mkdir("set"_s));
    QCOMPARE(salvageTo(target() + "/"_s, folder).status, 0);
    QCOMPARE(content(target()), messages(1, 3));
}

void CtlCleanSetTest::occupied_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("command"); // makes it

    QTest::newRow("a file is in the way") << "zib4.log"_s
                                          << "touch"_s;
    QTest::newRow("so is a folder") << "zib0.log"_s
                                    << "mkdir"_s;
    QTest::newRow("so is a pipe") << "zib0.log"_s
                                  << "mkfifo"_s;
    QTest::newRow("so is a link to nothing") << "zib12.log"_s
                                             << "ln -s /nowhere"_s;
    QTest::newRow("so is a name that only the reader takes") << "zib7"_s
                                                             << "touch"_s;
    QTest::newRow("the reader takes capitals for the same") << "ZIB0x.Log"_s
                                                            << "touch"_s;
}

void CtlCleanSetTest::occupied()
{
    QFETCH(QString, name);
    QFETCH(QString, command);
    LogFolder folder;
    folder.put(0, messages(1, 3));
    QVERIFY(QDir(parent->path()).mkdir("set"_s));
    const QString entry = QDir(target()).filePath(name);
    QCOMPARE(runShell(command + QLatin1Char(' ') + entry).status, 0);
    const CtlRun run = salvageTo(target(), folder);
    QCOMPARE(run.status, 4);
    QVERIFY2(run.errors.contains("there are log files already, such as " + name.toUtf8()),
             run.errors.constData());
    QCOMPARE(
        QDir(target()).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size(), 1);
}

void CtlCleanSetTest::wrongUsage()
{
    LogFolder folder;
    const QByteArray bytes = messages(1, 3);
    folder.put(0, bytes);
    const QString path = folder.dir().path();
    const QString link = parent->filePath("link"_s);
    QVERIFY(QFile::link(path, link));
    QVERIFY(folder.dir().mkdir("below"_s));
    for (const QString &into : {path, path + "/"_s, path + "/."_s, link, link + "/below"_s,
                                path + "/below"_s, path + "/new"_s}) {
        const CtlRun run = salvageTo(into, folder);
        QVERIFY2(run.status == 2, qPrintable(into));
        QVERIFY(run.errors.contains("lies in the folder that is read"));
    }
    QCOMPARE(folder.dir().entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             (QStringList{"below"_s, "zib0.log"_s}));
}

void CtlCleanSetTest::interrupted()
{
    LogFolder folder;
    for (int i = 0; i < 100; ++i) {
        folder.put(i, messages(quint64(100 - i) * 10000, quint64(100 - i) * 10000 + 1000, 200));
    }
    int hits = 0;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        QProcess process;
        process.start(
            ctlProgram(),
            {"salvage"_s, "-C"_s, testCatalogue(), "-D"_s, folder.dir().path(), "-O"_s, target()});
        // In the middle of the writing.
        QElapsedTimer timer;
        timer.start();
        const auto isWriting = [this] {
            const QDir set(target());
            const QStringList folders = set.entryList({"salvage.*"_s}, QDir::Dirs);
            return !folders.isEmpty()
                && QDir(set.filePath(folders.first())).entryList(QDir::Files).size() > 2;
        };
        while (!isWriting() && process.state() != QProcess::NotRunning && timer.elapsed() < 60000) {
            (void)process.waitForFinished(1);
        }
        if (process.state() != QProcess::NotRunning) {
            (void)::kill(pid_t(process.processId()), signal);
        }
        QVERIFY(process.waitForFinished(60000));
        if (process.exitStatus() == QProcess::CrashExit) {
            ++hits;
            QCOMPARE(process.exitCode(), signal);
            QCOMPARE(QDir(target()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                     QStringList());
        }
        QDir(target()).removeRecursively();
    }
    QVERIFY(hits > 0);
}

void CtlCleanSetTest::fullDisk()
{
    if (runShell("unshare -rm true"_s).status != 0) {
        QSKIP("it takes a mount namespace");
    }
    LogFolder folder;
    folder.put(0, messages(1, 5000));
    const CtlRun run
        = runShell("unshare -rm sh -c 'mount -t tmpfs -o size=200k none %1 && \"$CTL\" salvage -D "
                   "%2 -O %1/set; "
                   "echo $?; ls -A %1/set'"_s.arg(parent->path(), folder.dir().path()));
    QCOMPARE(run.out, QByteArray("4\n"));
    QVERIFY2(run.errors.contains("No space left on device; make space"), run.errors.constData());
}

QTEST_GUILESS_MAIN(CtlCleanSetTest)
#include "tst_ctlcleanset.moc"

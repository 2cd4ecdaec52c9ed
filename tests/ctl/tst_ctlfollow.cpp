// SPDX-License-Identifier: Apache-2.0

// "show" beside a writer: each record once, whatever becomes of the files meanwhile.
// SEL_FOLLOW_SECONDS sets for how long the writer writes where it rotates (3).

#include "binlog/binaryloginterface.h"
#include "ctl/ctlprocess.h"
#include "ctl/terminal.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

#include <memory>

using RecordBytes::Fields;
using RecordBytes::record;
using RecordBytes::sized;

namespace
{

QByteArray storedEvent(quint64 logNr, const QByteArray &text = "text")
{
    Fields fields;
    fields.logNr = logNr;
    fields.eventId = 9;
    fields.values = sized(text);
    return record(fields);
}

QByteArray numbered(quint64 from, quint64 to)
{
    QByteArray bytes;
    for (quint64 i = from; i <= to; ++i) {
        bytes += storedEvent(i, "number " + QByteArray::number(i));
    }
    return bytes;
}

QList<quint64> range(quint64 from, quint64 to)
{
    QList<quint64> numbers;
    for (quint64 i = from; i <= to; ++i) {
        numbers.append(i);
    }
    return numbers;
}

//! In milliseconds; longer than the folder goes without being looked at.
constexpr int slowly = 700;

//! A writer whose files are full after a few bundles.
std::unique_ptr<BinaryLogInterface> writer(const QDir &dir, int highestIndex = 10)
{
    constexpr uint fileLimit = 2000; // bytes
    return std::make_unique<BinaryLogInterface>(2560, 30, highestIndex, fileLimit, dir);
}

void writeEvents(BinaryLogInterface &log, int count)
{
    for (int i = 0; i < count; ++i) {
        log.logEvent(9, {"/power/supply"_s, "event"_s});
    }
    log.writeBundle();
}

//! "show -f", and the numbers that it has printed.
class Following
{
public:
    explicit Following(const QDir &dir, const QStringList &more = {})
    {
        process.start(
            ctlProgram(),
            QStringList{"-f"_s, "-o"_s, "json"_s, "-D"_s, dir.path(), "-C"_s, testCatalogue()}
                + more);
        // It says so when it has begun to follow.
        process.setReadChannel(QProcess::StandardError);
        while (!errors.contains('\n') && process.waitForReadyRead(patience)) {
            errors += process.readAllStandardError();
        }
        process.setReadChannel(QProcess::StandardOutput);
    }
    ~Following()
    {
        process.terminate();
        process.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(Following)

    //! What has been printed, once there is so much of it, or nothing comes any more.
    QList<quint64> numbers(int count, int limit = patience)
    {
        QElapsedTimer timer;
        timer.start();
        while (found.size() < count && timer.elapsed() < limit) {
            (void)process.waitForReadyRead(20);
            take();
        }
        return found;
    }
    void take()
    {
        while (process.canReadLine()) {
            const QByteArray line = process.readLine();
            if (line.startsWith("{\"number\":\"") && line.contains("\"state\":\"whole\"")) {
                found.append(line.mid(11, line.indexOf('"', 11) - 11).toULongLong());
            } else {
                others.append(line);
            }
        }
        errors += process.readAllStandardError();
    }

    static constexpr int patience = 60000; // milliseconds; only so that a hang ends

    QProcess process;
    QByteArray errors;
    QByteArray others; //!< what is no whole record

private:
    QList<quint64> found;
};

qint64 residentKiB(qint64 process)
{
    QFile file("/proc/%1/statm"_s.arg(process));
    return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ').value(1).toLongLong() * 4 : 0;
}

} // namespace

class CtlFollowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void withinASecond();
    void whatIsThereComesFirst();
    void newOnesAlone();
    void selection();
    void rotation();
    void fastRotation();
    void clearing();
    void deletedFolder();
    void restart();
    void tornEnd();
    void recordInPieces();
    void numbersThatBeginAgain();
    void fileWrittenWithoutAName();
    void fileWrittenAnew();
    void fileEmptied_data();
    void fileEmptied();
    void fileEmptiedAfterDamage();
    void folderMovedAndBack();
    void damage();
    void emptyFolder();
    void hint();
    void relativeTimes();
    void closedOutput();
    void onATerminal();
    void memory();
    void showWhileTheDaemonWrites();

private:
    [[nodiscard]] static qint64 duration()
    {
        bool isNumber = false;
        const int given = qEnvironmentVariableIntValue("SEL_FOLLOW_SECONDS", &isNumber);
        return qint64(1000) * (isNumber ? given : 3);
    }

    std::unique_ptr<LogFolder> folder;
};

void CtlFollowTest::init()
{
    folder = std::make_unique<LogFolder>();
}

void CtlFollowTest::withinASecond()
{
    const auto log = writer(folder->dir());
    Following following(folder->dir());
    int count = 0;
    for (int i = 0; i < 10; ++i) {
        writeEvents(*log, 7);
        count += 7;
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(following.numbers(count).size(), count);
        QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
    }
    QCOMPARE(following.numbers(count), range(1, quint64(count)));
}

void CtlFollowTest::whatIsThereComesFirst()
{
    folder->put(1, numbered(1, 5));
    folder->put(0, numbered(6, 8));
    Following following(folder->dir(), {"-n"_s, "4"_s});
    folder->append(0, numbered(9, 10));
    QCOMPARE(following.numbers(6), range(5, 10));
}

void CtlFollowTest::newOnesAlone()
{
    folder->put(0, numbered(1, 5));
    Following following(folder->dir(), {"-n"_s, "0"_s});
    folder->append(0, numbered(6, 7));
    QCOMPARE(following.numbers(2), range(6, 7));
}

void CtlFollowTest::selection()
{
    folder->put(0, numbered(1, 5));
    Following following(folder->dir(), {"-g"_s, "[27]$"_s});
    folder->append(0, numbered(6, 8));
    QCOMPARE(following.numbers(2), (QList<quint64>{2, 7}));
}

void CtlFollowTest::rotation()
{
    const auto log = writer(folder->dir());
    Following following(folder->dir());
    QElapsedTimer timer;
    timer.start();
    int count = 0;
    qint64 rotations = 0;
    QObject::connect(log.get(), &BinaryLogInterface::logsRotated, [&rotations] { ++rotations; });
    while (timer.elapsed() < duration()) {
        writeEvents(*log, 10);
        count += 10;
        (void)following.process.waitForReadyRead(5);
        following.take();
    }
    QCOMPARE(following.numbers(count), range(1, quint64(count)));
    qInfo("%d records, %lld rotations a second", count, rotations * 1000 / timer.elapsed());
}

//! Several between two looks at the folder, as of a process that was stopped for a while.
void CtlFollowTest::fastRotation()
{
    const auto log = writer(folder->dir(), 100);
    Following following(folder->dir());
    int count = 0;
    for (int i = 0; i < 5; ++i) {
        for (int bundle = 0; bundle < 60; ++bundle) {
            writeEvents(*log, 10);
        }
        count += 600;
        QCOMPARE(following.numbers(count).size(), count);
    }
    QCOMPARE(following.numbers(count), range(1, quint64(count)));
}

void CtlFollowTest::clearing()
{
    const auto log = writer(folder->dir());
    Following following(folder->dir());
    for (int i = 1; i <= 5; ++i) {
        writeEvents(*log, 100);
        QCOMPARE(following.numbers(100 * i).size(), 100 * i);
        log->clearLogfiles();
    }
    writeEvents(*log, 3);
    QCOMPARE(following.numbers(503), range(1, 503));
}

void CtlFollowTest::deletedFolder()
{
    auto log = writer(folder->dir());
    Following following(folder->dir());
    for (int i = 1; i <= 3; ++i) {
        writeEvents(*log, 60);
        QCOMPARE(following.numbers(60 * i).size(), 60 * i);
        QVERIFY(folder->dir().removeRecursively());
    }
    writeEvents(*log, 60);
    writeEvents(*log, 60);
    QCOMPARE(following.numbers(300), range(1, 300));
}

void CtlFollowTest::restart()
{
    Following following(folder->dir());
    for (int i = 1; i <= 5; ++i) {
        const auto log = writer(folder->dir());
        writeEvents(*log, 30);
        if (i % 2 == 0) {
            QCOMPARE(following.numbers(30 * i).size(), 30 * i);
        }
    }
    QCOMPARE(following.numbers(150), range(1, 150));
}

void CtlFollowTest::tornEnd()
{
    writeEvents(*writer(folder->dir()), 5);
    Following following(folder->dir());
    for (int i = 1; i <= 3; ++i) {
        // A write that a power cut has ended; the repair before a start cuts it off.
        folder->append(0, storedEvent(999, "torn").left(20 + 10 * i));
        QCOMPARE(following.numbers(1 + 5 * i, slowly).size(), 5 * i);
        QCOMPARE(runCtl({"repair"_s, "-D"_s, folder->dir().path(), "-q"_s}).status, 0);
        writeEvents(*writer(folder->dir()), 5);
        QCOMPARE(following.numbers(5 + 5 * i).size(), 5 + 5 * i);
    }
    QCOMPARE(following.numbers(20), range(1, 20));
    QCOMPARE(following.others, QByteArray());
}

void CtlFollowTest::recordInPieces()
{
    folder->put(0, numbered(1, 2));
    Following following(folder->dir());
    const QByteArray next = storedEvent(3) + storedEvent(4);
    for (int i = 0; i < next.size(); ++i) {
        folder->append(0, next.mid(i, 1));
        if (i == 20 || i == 50) {
            QCOMPARE(following.numbers(3, slowly), range(1, 2));
        }
    }
    QCOMPARE(following.numbers(4), range(1, 4));
    QCOMPARE(following.others, QByteArray());
}

void CtlFollowTest::numbersThatBeginAgain()
{
    folder->put(1, numbered(100, 110));
    folder->put(0, numbered(111, 120));
    Following following(folder->dir(), {"-n"_s, "1"_s});
    QCOMPARE(following.numbers(1), range(120, 120));
    // All is deleted, and the next start finds no number to go on with.
    for (const int file : {0, 1}) {
        QVERIFY(QFile::remove(folder->path(LogFolder::name(file))));
    }
    const auto log = writer(folder->dir());
    writeEvents(*log, 3);
    QCOMPARE(following.numbers(4), range(120, 120) + range(1, 3));
    // In the same file, as behind an end that could not be read.
    folder->append(0, numbered(1, 2));
    QCOMPARE(following.numbers(6), range(120, 120) + range(1, 3) + range(1, 2));
}

//! As by a writer whose file somebody has deleted, before it takes notice.
void CtlFollowTest::fileWrittenWithoutAName()
{
    folder->put(1, numbered(1, 5));
    folder->put(0, numbered(6, 10));
    Following following(folder->dir());
    QCOMPARE(following.numbers(10), range(1, 10));
    QFile file(folder->path("zib0.log"_s));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Append));
    QVERIFY(QFile::remove(file.fileName()));
    QCOMPARE(following.numbers(11, slowly), range(1, 10));
    QVERIFY(file.write(numbered(11, 12)) > 0 && file.flush());
    QCOMPARE(following.numbers(12), range(1, 12));
    folder->put(0, numbered(13, 14));
    QCOMPARE(following.numbers(14), range(1, 14));
}

//! As by a repair.
void CtlFollowTest::fileWrittenAnew()
{
    folder->put(1, numbered(1, 5));
    folder->put(0, numbered(6, 10) + QByteArray(30, '\0') + numbered(11, 12));
    Following following(folder->dir());
    QCOMPARE(following.numbers(12), range(1, 12));
    folder->put("new"_s, numbered(6, 12));
    QCOMPARE(::rename(qPrintable(folder->path("new"_s)), qPrintable(folder->path("zib0.log"_s))),
             0);
    folder->append(0, numbered(13, 14));
    QCOMPARE(following.numbers(14), range(1, 14));
    folder->append(0, numbered(15, 15));
    QCOMPARE(following.numbers(15), range(1, 15));
    // Without the last record that was shown, of which there was too little to mend.
    folder->put("new"_s, numbered(6, 14) + numbered(16, 17));
    QCOMPARE(::rename(qPrintable(folder->path("new"_s)), qPrintable(folder->path("zib0.log"_s))),
             0);
    QCOMPARE(following.numbers(17), range(1, 17));
}

void CtlFollowTest::fileEmptied_data()
{
    QTest::addColumn<QList<quint64>>("written");
    QTest::addColumn<QList<quint64>>("wanted");

    const auto row = [](const char *name, const QList<quint64> &written, quint64 from, quint64 to) {
        QTest::newRow(name) << written << range(from, to);
    };
    row("what is shorter than before is new", range(11, 13), 11, 13);
    row("what is as long as before is new", range(11, 15), 11, 15);
    row("what is longer than before is new", range(11, 20), 11, 20);
    row("what is one record is new", range(11, 11), 11, 11);
    row("numbers that begin again are new", range(1, 7), 1, 7);
    row("what was cut off and written on is new behind the cut", range(6, 8) + range(11, 14), 11,
        14);
    row("what is there again does not come twice", range(6, 12), 11, 12);
    row("nor where it lies elsewhere", range(8, 12), 11, 12);
}

//! And written again in the same file, at once.
void CtlFollowTest::fileEmptied()
{
    QFETCH(QList<quint64>, written);
    QFETCH(QList<quint64>, wanted);
    folder->put(1, numbered(5, 5));
    folder->put(0, numbered(6, 10));
    Following following(folder->dir());
    QCOMPARE(following.numbers(6), range(5, 10));
    QByteArray bytes;
    for (const quint64 number : written) {
        bytes += numbered(number, number);
    }
    folder->put(0, bytes);
    const int count = 6 + int(wanted.size());
    QCOMPARE(following.numbers(count, 5 * slowly), range(5, 10) + wanted);
    const quint64 next = wanted.last() + 1;
    folder->append(0, numbered(next, next + 1));
    QCOMPARE(following.numbers(count + 2, 5 * slowly),
             range(5, 10) + wanted + range(next, next + 1));
    QCOMPARE(following.others, QByteArray());
}

void CtlFollowTest::fileEmptiedAfterDamage()
{
    folder->put(0, numbered(1, 3));
    Following following(folder->dir());
    QCOMPARE(following.numbers(3), range(1, 3));
    folder->append(0, QByteArray(40, '\0') + numbered(6, 8));
    QCOMPARE(following.numbers(6), range(1, 3) + range(6, 8));
    folder->put(0, numbered(9, 20));
    QCOMPARE(following.numbers(18, 5 * slowly), range(1, 3) + range(6, 20));
    QCOMPARE(following.others.count('\n'), QByteArray::size_type(1));
}

void CtlFollowTest::folderMovedAndBack()
{
    folder->put(1, numbered(1, 5));
    folder->put(0, numbered(6, 10));
    Following following(folder->dir());
    QCOMPARE(following.numbers(10), range(1, 10));
    const QString path = folder->dir().path();
    QVERIFY(QDir().rename(path, path + ".aside"_s));
    QVERIFY(QDir().mkdir(path));
    for (const int file : {0, 1}) {
        QVERIFY(QFile::copy(path + ".aside/"_s + LogFolder::name(file),
                            folder->path(LogFolder::name(file))));
    }
    QVERIFY(QDir(path + ".aside"_s).removeRecursively());
    folder->append(0, numbered(11, 12));
    QCOMPARE(following.numbers(12), range(1, 12));
}

void CtlFollowTest::damage()
{
    folder->put(0, numbered(1, 3));
    Following following(folder->dir());
    QCOMPARE(following.numbers(3), range(1, 3));
    folder->append(0, QByteArray(40, '\0') + numbered(6, 8));
    QCOMPARE(following.numbers(6), range(1, 3) + range(6, 8));
    QVERIFY2(following.others.contains("\"state\":\"lost\",\"reason\":\"zeros\""),
             following.others.constData());
    QCOMPARE(following.others.count('\n'), QByteArray::size_type(1));
}

void CtlFollowTest::emptyFolder()
{
    Following following(folder->dir());
    folder->put(0, QByteArray());
    folder->append(0, numbered(1, 2));
    QCOMPARE(following.numbers(2), range(1, 2));
    const CtlRun missing = runCtl({"-f"_s, "-D"_s, "/nowhere"_s});
    QCOMPARE(missing.status, 4);
}

void CtlFollowTest::hint()
{
    folder->put(0, numbered(1, 2));
    Following following(folder->dir());
    folder->append(0, numbered(3, 4));
    QCOMPARE(following.numbers(4), range(1, 4));
    QCOMPARE(following.errors,
             QByteArray("systemeventctl: records reach the files up to 30 seconds after their "
                        "event; \"systemeventctl watch\" shows events at once\n"));
    const CtlRun quiet = runShell("\"$CTL\" -f -q -D "_s + folder->dir().path() + " -C "_s
                                  + testCatalogue() + " | head -n 1"_s);
    QCOMPARE(quiet.errors, QByteArray());
}

//! A time that is now, and so a little ago when it is printed; ahead of the start of the tool.
void CtlFollowTest::relativeTimes()
{
    folder->put(0, numbered(1, 1));
    Terminal terminal("exec \"$CTL\" -f --time relative -D "_s + folder->dir().path() + " -C "_s
                          + testCatalogue(),
                      80);
    terminal.waitFor("number 1");
    writeEvents(*writer(folder->dir()), 1);
    terminal.waitFor("/power/supply\r\n  event");
    terminal.type("\x03");
    const QByteArray shown = terminal.finish();
    QVERIFY2(shown.contains("s ago "), shown.constData());
    QVERIFY2(!shown.contains(" in "), shown.constData());
}

void CtlFollowTest::closedOutput()
{
    // Nothing new comes; it ends all the same.
    folder->put(0, numbered(1, 2));
    const CtlRun run
        = runShell("exec 3>&1; { \"$CTL\" -f -q -D "_s + folder->dir().path() + " -C "_s
                   + testCatalogue() + "; echo $? >&3; } | head -n 1 >/dev/null"_s);
    QCOMPARE(run.out, QByteArray("141\n"));
    QCOMPARE(run.errors, QByteArray());
}

void CtlFollowTest::onATerminal()
{
    folder->put(0, numbered(1, 2));
    Terminal terminal("PAGER='echo paged' exec \"$CTL\" -f -D "_s + folder->dir().path() + " -C "_s
                          + testCatalogue(),
                      80);
    terminal.waitFor("number 2");
    folder->append(0, numbered(3, 4));
    terminal.waitFor("number 4");
    terminal.type("\x03");
    const QByteArray shown = terminal.finish();
    QCOMPARE(terminal.status(), 130);
    QVERIFY(!shown.contains("paged"));
}

void CtlFollowTest::memory()
{
    // As many files and bundles as in an hour, and many more.
    const auto log = writer(folder->dir());
    Following following(folder->dir());
    qint64 before = 0;
    constexpr int rounds = 1500;
    for (int i = 1; i <= rounds; ++i) {
        writeEvents(*log, 20);
        (void)following.numbers(20 * i);
        if (i == rounds / 3) {
            before = residentKiB(following.process.processId());
        }
    }
    const qint64 grown = residentKiB(following.process.processId()) - before;
#ifndef __SANITIZE_ADDRESS__ // which keeps freed memory for a while
    QVERIFY2(before > 0 && grown < 256, qPrintable(QString::number(grown)));
#endif
    qInfo("grown by %lld KiB", grown);
    QCOMPARE(following.numbers(20 * rounds), range(1, quint64(20) * rounds));
}

void CtlFollowTest::showWhileTheDaemonWrites()
{
    const auto log = writer(folder->dir());
    writeEvents(*log, 100);
    QElapsedTimer timer;
    timer.start();
    int runs = 0;
    for (; timer.elapsed() < duration() || runs == 0; ++runs) {
        QProcess process;
        const QStringList order = runs % 2 == 0 ? QStringList() : QStringList{"-r"_s};
        process.start(
            ctlProgram(),
            QStringList{"-o"_s, "json"_s, "-D"_s, folder->dir().path(), "-C"_s, testCatalogue()}
                + order);
        while (!process.waitForFinished(1) && process.state() != QProcess::NotRunning) {
            writeEvents(*log, 10);
        }
        CtlRun run;
        run.out = process.readAllStandardOutput();
        QVERIFY2(process.exitCode() == 0, run.out.constData());
        QList<quint64> numbers;
        const QList<QJsonObject> objects = run.objects();
        for (const QJsonObject &object : objects) {
            numbers.append(object.value("number"_s).toString().toULongLong());
        }
        if (!order.isEmpty()) {
            std::reverse(numbers.begin(), numbers.end());
        }
        QVERIFY(numbers.size() > 50);
        QCOMPARE(numbers, range(numbers.first(), numbers.last()));
    }
    qInfo("%d runs", runs);
}

QTEST_GUILESS_MAIN(CtlFollowTest)
#include "tst_ctlfollow.moc"

// SPDX-License-Identifier: Apache-2.0

// What "verify" says of folders made by hand, and of one that is being written.
// SEL_VERIFY_SECONDS sets for how long that one is (5).

#include "binlog/binaryloginterface.h"
#include "ctl/ctlprocess.h"
#include "support/literals.h"
#include "support/logfolder.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QProcess>
#include <QTest>

namespace
{

QStringList verifyArguments(const LogFolder &folder, const QStringList &more)
{
    return QStringList{"verify"_s, "-D"_s, folder.dir().path(), "-C"_s, testCatalogue()} + more;
}

CtlRun verify(const LogFolder &folder, const QStringList &more = {"-o"_s, "json"_s})
{
    return runCtl(verifyArguments(folder, more));
}

} // namespace

class CtlVerifyTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void healthy();
    void damaged();
    void numbers();
    void emptyFolder();
    void otherNames();
    void textForPeople();
    void counts_data();
    void counts();
    void hiddenRecords();
    void unreadable();
    void readsOnly();
    void whileTheDaemonWrites();
};

void CtlVerifyTest::healthy()
{
    LogFolder folder;
    folder.put(1, messages(1, 10));
    folder.put(0, QByteArray());
    const CtlRun run = verify(folder);
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    const QByteArray size = QByteArray::number(messages(1, 10).size());
    QCOMPARE(run.out,
             "{\"file\":\"zib1.log\",\"size\":" + size
                 + R"(,"records":10,"first":"1","last":"10",)"
                   R"("firstTime":"2023-11-14T22:13:20.250000Z",)"
                   R"("lastTime":"2023-11-14T22:13:20.250000Z","damaged":[],"readByDaemon":10})"
                   "\n"
                   R"({"file":"zib0.log","size":0,"records":0,"first":null,"last":null,)"
                   R"("firstTime":null,"lastTime":null,"damaged":[],"readByDaemon":0})"
                   "\n"
                   R"({"summary":{"files":2,"records":10,"readByDaemon":10,)"
                   R"("missing":[],"repeated":[]}})"
                   "\n");
}

void CtlVerifyTest::damaged()
{
    LogFolder folder;
    const int begin = int(messages(1, 10).size());
    folder.put(0, messages(1, 10) + QByteArray(65, '\0') + messages(12, 15));
    const CtlRun run = verify(folder);
    QCOMPARE(run.status, 3);
    const QList<QJsonObject> objects = run.objects();
    QCOMPARE(objects.size(), 2);
    const QJsonArray stretches = objects[0].value("damaged"_s).toArray();
    QCOMPARE(stretches.size(), 1);
    const QJsonObject stretch = stretches[0].toObject();
    QCOMPARE(stretch.value("from"_s).toInt(), begin);
    QCOMPARE(stretch.value("to"_s).toInt(), begin + 65);
    QCOMPARE(stretch.value("reason"_s).toString(), "zeros"_s);
    QCOMPARE(stretch.value("wholeBefore"_s).toInt(), 10);
    QCOMPARE(stretch.value("wholeBehind"_s).toInt(), 4);
    const QJsonObject summary = objects[1].value("summary"_s).toObject();
    QCOMPARE(summary.value("records"_s).toInt(), 14);
    QCOMPARE(summary.value("readByDaemon"_s).toInt(), 4);
    QCOMPARE(summary.value("missing"_s).toArray(), (QJsonArray{QJsonArray{"11"_s, "11"_s}}));
}

void CtlVerifyTest::numbers()
{
    LogFolder folder;
    folder.put(1, messages(1, 3) + messages(6, 9));
    folder.put(0, messages(8, 9) + messages(20, 21));
    const CtlRun run = verify(folder);
    QCOMPARE(run.status, 0);
    const QJsonObject summary = run.objects().last().value("summary"_s).toObject();
    QCOMPARE(summary.value("missing"_s).toArray(),
             (QJsonArray{QJsonArray{"4"_s, "5"_s}, QJsonArray{"10"_s, "19"_s}}));
    QCOMPARE(summary.value("repeated"_s).toArray(), (QJsonArray{"8"_s, "9"_s}));
}

void CtlVerifyTest::emptyFolder()
{
    const LogFolder folder;
    const CtlRun run = verify(folder);
    QCOMPARE(run.status, 0);
    QCOMPARE(run.objects().size(), 1);
    QCOMPARE(runCtl({"verify"_s, "-D"_s, "/nowhere"_s}).status, 4);

    // Nothing is shown here, so nothing is said of that.
    const CtlRun bare = runCtl({"verify"_s, "-D"_s, folder.dir().path()});
    QVERIFY2(bare.errors.endsWith("systemevent.xml: there is no catalogue, so what events mean is "
                                  "not known; name one with -C\n"),
             bare.errors.constData());
}

void CtlVerifyTest::otherNames()
{
    LogFolder folder;
    folder.put(0, messages(1, 2));
    folder.put("zib0x.log"_s, messages(1, 2));
    const CtlRun run = verify(folder, {});
    QCOMPARE(run.status, 0);
    QVERIFY(run.out.contains("not looked at, though the daemon reads it: zib0x.log"));
}

void CtlVerifyTest::textForPeople()
{
    LogFolder folder;
    folder.put(1, messages((1ULL << 52), (1ULL << 52) + 4));
    folder.put(0, messages((1ULL << 52) + 8, (1ULL << 52) + 12) + message(7, "torn").left(35));
    const CtlRun run = verify(folder, {});
    QCOMPARE(run.status, 3);
    QVERIFY(run.out.contains("zib1.log: "));
    QVERIFY2(run.out.contains("10 records; the daemon shows 5 of them"), run.out.constData());
    QVERIFY(run.out.contains("missing numbers: 4503599627370501 to 4503599627370503"));
    QVERIFY(run.out.contains("5 whole records before it, 0 behind it"));
    QVERIFY(run.out.contains("systemeventctl repair --dry-run -D "));
    const QList<QByteArray> lines = run.out.split('\n');
    for (const QByteArray &line : lines) {
        QVERIFY2(line.size() < 80 || line.contains(" -D "), line.constData());
    }

    // Quiet: what is wrong alone.
    const CtlRun quiet = verify(folder, {"-q"_s});
    QVERIFY(!quiet.out.contains("zib1.log: "));
    QVERIFY(quiet.out.contains("zib0.log: "));
    folder.put(0, QByteArray());
    QCOMPARE(verify(folder, {"-q"_s}).out, QByteArray());
}

void CtlVerifyTest::counts_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("wanted");

    QTest::newRow("no record is not shown") << QByteArray() << QByteArray("1 file, 0 records\n");
    QTest::newRow("one record is shown")
        << messages(5, 5) << QByteArray("1 file, 1 record; the daemon shows it\n");
    QTest::newRow("or is not") << messages(5, 5, 70000)
                               << QByteArray("1 file, 1 record; the daemon does not show it\n");
    QTest::newRow("two are all") << messages(5, 6)
                                 << QByteArray("1 file, 2 records; the daemon shows all of them\n");
    QByteArray gaps;
    for (quint64 i = 1; i <= 12; ++i) {
        gaps += messages(2 * i, 2 * i);
    }
    QTest::newRow("one range more is one") << gaps << QByteArray(", 21 and 1 more range\n");
    QTest::newRow("two more are ranges")
        << gaps + messages(26, 26) << QByteArray(", 21 and 2 more ranges\n");
}

void CtlVerifyTest::counts()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, wanted);
    LogFolder folder;
    folder.put(0, content);
    const CtlRun run = verify(folder, {});
    QCOMPARE(run.status, 0);
    QVERIFY2(run.out.contains(wanted), run.out.constData());
}

void CtlVerifyTest::hiddenRecords()
{
    LogFolder folder;
    folder.put(0, messages(1, 11) + messages(12, 12, 70000) + messages(13, 20));
    const CtlRun run = verify(folder, {});
    QCOMPARE(run.status, 0);
    const QByteArray wanted
        = "1 file, 20 records; the daemon shows 8 of them\n"
          "Records of 64 KiB and more hide those in front of them in their file.\n"
          "What to do:\n"
          "  systemeventctl salvage -O NEW -D "
        + folder.dir().path().toUtf8()
        + "\n    writes the records as files in the folder NEW, where they hide no others\n";
    QVERIFY2(run.out.endsWith(wanted), run.out.constData());

    // Where there is damage as well, the damage comes first.
    folder.append(0, "torn");
    const CtlRun damaged = verify(folder, {});
    QCOMPARE(damaged.status, 3);
    QVERIFY2(damaged.out.contains("systemeventctl repair --dry-run -D "), damaged.out.constData());
}

void CtlVerifyTest::unreadable()
{
    if (runShell(asOrdinaryUser() + "true"_s).status != 0) {
        QSKIP("root reads everything here");
    }
    LogFolder folder;
    folder.put(1, messages(1, 10));
    folder.put(0, messages(11, 20));
    QVERIFY(QFile::setPermissions(folder.path("zib1.log"_s), {}));
    const CtlRun run = runShell(asOrdinaryUser() + "\"$CTL\" verify -D "_s + folder.dir().path());
    QCOMPARE(run.status, 4);
    QVERIFY2(run.errors.contains("zib1.log: cannot be read to its end: Permission denied"),
             run.errors.constData());
    QVERIFY2(run.out.contains("zib1.log: 0 bytes, 0 records, as far as it can be read\n"),
             run.out.constData());
}

void CtlVerifyTest::readsOnly()
{
    LogFolder folder;
    folder.put(0, messages(1, 5).chopped(4));
    folder.setAge("zib0.log"_s, 100);
    const QDateTime before = QFileInfo(folder.path("zib0.log"_s)).lastModified();
    (void)verify(folder);
    QCOMPARE(QFileInfo(folder.path("zib0.log"_s)).lastModified(), before);
    QCOMPARE(folder.dir().entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{"zib0.log"_s});
}

void CtlVerifyTest::whileTheDaemonWrites()
{
    bool isNumber = false;
    const int given = qEnvironmentVariableIntValue("SEL_VERIFY_SECONDS", &isNumber);
    const qint64 end = qint64(1000) * (isNumber ? given : 5);
    LogFolder folder;
    BinaryLogInterface log(2560, 30, 10, 20000, folder.dir());
    QElapsedTimer timer;
    timer.start();
    int runs = 0;
    int events = 0;
    while (timer.elapsed() < end || runs == 0) {
        QProcess process;
        process.start(ctlProgram(), verifyArguments(folder, {"-o"_s, "json"_s}));
        while (!process.waitForFinished(0) && process.state() != QProcess::NotRunning) {
            log.logEvent(9, {"/power/supply"_s, "event %1"_s.arg(++events)});
        }
        CtlRun run;
        run.out = process.readAllStandardOutput();
        QVERIFY2(process.exitCode() == 0, run.out.constData());
        const QJsonObject summary = run.objects().last().value("summary"_s).toObject();
        QVERIFY2(summary.value("repeated"_s).toArray().isEmpty(), run.out.constData());
        QCOMPARE(summary.value("readByDaemon"_s), summary.value("records"_s));
        ++runs;
    }
    qInfo("%d runs while %d events were written", runs, events);
}

QTEST_GUILESS_MAIN(CtlVerifyTest)
#include "tst_ctlverify.moc"

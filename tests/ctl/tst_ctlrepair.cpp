// SPDX-License-Identifier: Apache-2.0

// What "repair" says and ends with. How files are mended, and stopped in between, is tested
// with the library.

#include "ctl/ctlprocess.h"
#include "support/literals.h"
#include "support/logfolder.h"

#include <QFileInfo>
#include <QTest>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace
{

CtlRun repair(const LogFolder &folder, const QStringList &more = {})
{
    return runCtl(QStringList{"repair"_s, "-D"_s, folder.dir().path(), "-C"_s, testCatalogue()}
                  + more);
}

//! Damaged in the middle of one file and at the end of the other.
void fillDamaged(const LogFolder &folder)
{
    folder.put(1, messages(1, 10) + QByteArray(65, '\0') + messages(12, 20));
    folder.put(0, messages(21, 30) + message(31, "torn").left(45));
}

} // namespace

class CtlRepairTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void healthy();
    void healthyText_data();
    void healthyText();
    void mended();
    void dryRun();
    void textForPeople();
    void singleRecords();
    void left();
    void leftText();
    void refusals();
    void timeLimit();
};

void CtlRepairTest::healthy()
{
    LogFolder folder;
    folder.put(1, messages(1, 10));
    folder.put(0, messages(11, 12));
    const QDateTime before = QFileInfo(folder.dir().path()).lastModified();
    const CtlRun run = repair(folder);
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.out,
             QByteArray("All is well: the daemon shows all 12 records, and the next number is "
                        "13.\n"));
    QCOMPARE(repair(folder, {"--dry-run"_s}).status, 0);
    const CtlRun quiet = repair(folder, {"-q"_s});
    QCOMPARE(quiet.status, 0);
    QCOMPARE(quiet.out + quiet.errors, QByteArray());
    QCOMPARE(QFileInfo(folder.dir().path()).lastModified(), before);
    QCOMPARE(folder.dir().entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 2);
}

void CtlRepairTest::healthyText_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("wanted");

    QTest::newRow("no record is no fault")
        << QByteArray()
        << QByteArray("All is well: there are no records, and the next number is 1.\n");
    QTest::newRow("one record is one")
        << messages(5, 5)
        << QByteArray("All is well: the daemon shows the only record, and the next number is 6.\n");
    QTest::newRow("not all is well where records are hidden")
        << messages(1, 11) + messages(12, 12, 70000) + messages(13, 81)
        << QByteArray(
               "Nothing is damaged: the daemon shows 69 of 81 records, and the next number is 82.\n"
               "Records of 64 KiB and more hide those in front of them in their file.\n"
               "What to do:\n  systemeventctl salvage -O NEW -D ");
}

void CtlRepairTest::healthyText()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, wanted);
    LogFolder folder;
    folder.put(0, content);
    const CtlRun run = repair(folder);
    QCOMPARE(run.status, 0);
    QVERIFY2(run.out.startsWith(wanted), run.out.constData());
    QCOMPARE(repair(folder, {"-q"_s}).out, QByteArray());
    QCOMPARE(folder.content(0), content);
}

void CtlRepairTest::mended()
{
    LogFolder folder;
    fillDamaged(folder);
    const CtlRun run = repair(folder, {"-o"_s, "json"_s});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    const QList<QJsonObject> objects = run.objects();
    QCOMPARE(objects.size(), 3);
    QCOMPARE(objects[0].value("file"_s).toString(), "zib0.log"_s);
    QCOMPARE(objects[0].value("action"_s).toString(), "cutEnd"_s);
    QCOMPARE(objects[0].value("damagedAt"_s).toInt(), int(messages(21, 30).size()));
    QCOMPARE(objects[0].value("readBefore"_s).toInt(), 0);
    QCOMPARE(objects[0].value("readAfter"_s).toInt(), 10);
    QCOMPARE(objects[1].value("file"_s).toString(), "zib1.log"_s);
    QCOMPARE(objects[1].value("action"_s).toString(), "rewrite"_s);
    const QJsonObject summary = objects[2].value("summary"_s).toObject();
    QCOMPARE(summary.value("records"_s).toInt(), 29);
    QCOMPARE(summary.value("readBefore"_s).toInt(), 9);
    QCOMPARE(summary.value("readAfter"_s).toInt(), 29);
    QCOMPARE(summary.value("nextAfter"_s).toString(), "31"_s);
    QCOMPARE(folder.content(1), messages(1, 10) + messages(12, 20));
    QCOMPARE(folder.content(0), messages(21, 30));
    for (int i = 0; i < 2; ++i) {
        const QFileInfo kept(folder.path(objects[i].value("keptAs"_s).toString()));
        QVERIFY2(kept.isFile(), qPrintable(kept.filePath()));
    }

    QCOMPARE(repair(folder, {"-q"_s}).out, QByteArray());
    QCOMPARE(runCtl({"verify"_s, "-D"_s, folder.dir().path(), "-C"_s, testCatalogue()}).status, 0);
}

void CtlRepairTest::dryRun()
{
    LogFolder folder;
    fillDamaged(folder);
    const QByteArray before = folder.content(0) + folder.content(1);
    const CtlRun run = repair(folder, {"--dry-run"_s, "-o"_s, "json"_s});
    QCOMPARE(run.status, 3);
    QCOMPARE(folder.content(0) + folder.content(1), before);
    QCOMPARE(folder.dir().entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 2);
    // All but the word that says so is what the real run says.
    const CtlRun real = repair(folder, {"-o"_s, "json"_s});
    QByteArray told = run.out;
    QCOMPARE(told.replace("\"dryRun\":true", "\"dryRun\":false"), real.out);
}

void CtlRepairTest::textForPeople()
{
    LogFolder folder;
    fillDamaged(folder);
    const QByteArray dry = repair(folder, {"--dry-run"_s}).out;
    QVERIFY2(dry.contains("  its end would be cut off, from "), dry.constData());
    QVERIFY(dry.contains("  it would be written anew from its records, from "));
    const QByteArray real = repair(folder).out;
    QVERIFY(real.contains("  its end was cut off, from "));
    QVERIFY(real.contains("  what was taken out is kept as damaged/zib0.log-"));
    QVERIFY(real.contains("  the daemon shows 0 of its 10 records before, 10 after\n"));
    QVERIFY(real.contains("In all the daemon shows 9 of 29 records before, 29 after.\n"));
    QVERIFY(real.contains(" before, 31 after.\n"));
    for (const QByteArray &text : {dry, real}) {
        for (const QByteArray &line : text.split('\n')) {
            QVERIFY2(line.size() < 80, line.constData());
        }
    }
}

void CtlRepairTest::singleRecords()
{
    LogFolder folder;
    folder.put(1, QByteArray(10, 'x'));
    folder.put(0, messages(1, 1) + "torn");
    const QByteArray text = repair(folder).out;
    QVERIFY2(text.contains("  the daemon shows 0 of its 1 record before, 1 after\n"),
             text.constData());
    QVERIFY2(!text.contains("0 records"), text.constData());
    QVERIFY2(text.contains("In all the daemon shows 0 of 1 record before, 1 after.\n"),
             text.constData());
}

void CtlRepairTest::left()
{
    LogFolder folder;
    fillDamaged(folder);
    QVERIFY(folder.dir().mkdir("damaged"_s));
    for (int i = 0; i < 16; ++i) {
        folder.put("damaged/other%1"_s.arg(i), "kept");
    }
    const QByteArray before = folder.content(0) + folder.content(1);
    const CtlRun run = repair(folder);
    QCOMPARE(run.status, 3);
    QVERIFY(run.out.contains("  no room in damaged/ for what would be taken out; "
                             "move its files elsewhere and run this again\n"));
    QVERIFY(folder.content(0) + folder.content(1) == before);
}

void CtlRepairTest::leftText()
{
    if (runShell(asOrdinaryUser() + "true"_s).status != 0) {
        QSKIP("root reads everything here");
    }
    LogFolder folder;
    fillDamaged(folder);
    QVERIFY(QFile::link(folder.path("zib1.log"_s), folder.path("zib3.log"_s)));
    folder.put(2, messages(1, 1));
    QVERIFY(QFile::setPermissions(folder.path("zib2.log"_s), {}));
    const CtlRun run
        = runShell(asOrdinaryUser() + "\"$CTL\" repair --dry-run -D "_s + folder.dir().path());
    QCOMPARE(run.status, 4);
    const QByteArray damagedAt = QByteArray::number(messages(1, 10).size());
    QVERIFY2(
        run.out.contains("zib2.log:\n"
                         "  it is left as it is\n"
                         "  it cannot be read: Permission denied; mend that and run this again\n"
                         "zib3.log, "),
        run.out.constData());
    QVERIFY2(
        run.out.contains("zib3.log, zeros at " + damagedAt
                         + ":\n  it is left as it is\n"
                           "  it is a link, or has a second name; replace it by a file of its own\n"
                           "  the daemon shows 9 of its 19 records\nIn all"),
        run.out.constData());
}

void CtlRepairTest::refusals()
{
    LogFolder folder;
    fillDamaged(folder);
    const QByteArray before = folder.content(0);
    const int daemon = open(qPrintable(folder.dir().path()), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    QCOMPARE(flock(daemon, LOCK_EX | LOCK_NB), 0);
    for (const QStringList &more : {QStringList(), QStringList{"--dry-run"_s}}) {
        const CtlRun run = repair(folder, more);
        QCOMPARE(run.status, 4);
        QCOMPARE(run.out, QByteArray());
        QVERIFY(run.errors.contains("another process writes there; stop the daemon first"));
    }
    QCOMPARE(folder.content(0), before);
    close(daemon);
    QCOMPARE(repair(folder).status, 0);

    const CtlRun missing = runCtl({"repair"_s, "-D"_s, "/nowhere"_s});
    QCOMPARE(missing.status, 4);
    QVERIFY(missing.errors.contains("/nowhere: "));
    QVERIFY(missing.errors.contains("No such file or directory; name another one with -D"));
}

void CtlRepairTest::timeLimit()
{
    LogFolder folder;
    QByteArray wild;
    for (int i = 0; i < 150000; ++i) {
        wild += message(quint64(i * 7919 % 1000 + 1), "number 1234").left(20 + i % 40);
    }
    for (int i = 0; i < 20; ++i) {
        folder.put(i, messages(1, 5) + wild);
    }
    const CtlRun run = repair(folder, {"--time-limit"_s, "1"_s});
    QCOMPARE(run.status, 4);
    QVERIFY2(run.errors.contains("the time for the repair is over; the next run goes on"),
             run.errors.constData());
}

QTEST_GUILESS_MAIN(CtlRepairTest)
#include "tst_ctlrepair.moc"

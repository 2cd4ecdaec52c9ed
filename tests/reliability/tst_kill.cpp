// SPDX-License-Identifier: Apache-2.0

// SIGKILL at random moments, while events stream in: every byte whose write had
// returned is there, no record is torn, the next start reads all of it back, and the
// numbers go on. With the repair before each start that holds of every kill, also where the
// log has been damaged besides, and the repair has been killed in the middle first.
// SEL_KILLS sets how many kills (50), SEL_SEED the random moments.

#include "reliability/suddenend.h"

#include "support/environment.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDir>
#include <QRandomGenerator>
#include <QTest>

#include <csignal>

class KillTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingWrittenIsLost();
    void repairedBeforeEachStart();

private:
    [[nodiscard]] static QString killAndRepair(SuddenEnd &daemon, Dice &dice);

    TestBus bus;
};

void KillTest::nothingWrittenIsLost()
{
    const quint32 seed = numberFromEnvironment("SEL_SEED", QRandomGenerator::global()->generate());
    const quint32 kills = numberFromEnvironment("SEL_KILLS", 50);
    SuddenEnd daemon(seed);
    QVERIFY(daemon.device.start());
    for (quint32 round = 0; round < kills; ++round) {
        Dice dice(seed, round);
        QString flaw = daemon.endUnderLoad(dice, [&daemon] { daemon.kill(); });
        flaw += daemon.checkFiles(daemon.bytesWritten());
        flaw += daemon.checkReading();
        QVERIFY2(flaw.isEmpty(), qPrintable("kill %1: %2"_s.arg(round).arg(flaw)));
        if (daemon.hasTornTail()) {
            daemon.device.result("clearLogfiles"_s);
            daemon.startAnew();
        }
    }
    const QString flaw = daemon.checkNumbering();
    QVERIFY2(flaw.isEmpty(), qPrintable(flaw));

    const SuddenEnd::Counts &counts = daemon.counts();
    qInfo("%llu kills, %llu of them inside a write, of which %llu left a torn tail; %llu events "
          "sent; %llu bytes written, all there; %llu records read back",
          counts.ends, counts.endsInsideWrite, counts.tornTails, counts.events, counts.bytesDurable,
          counts.recordsChecked);
    QCOMPARE(counts.ends, quint64(kills));
    QVERIFY(counts.bytesDurable > 0);
    QCOMPARE(counts.endsWithLoss, quint64(0));
    QVERIFY(counts.tornTails <= counts.endsInsideWrite);
}

QString KillTest::killAndRepair(SuddenEnd &daemon, Dice &dice)
{
    QString flaw = daemon.endUnderLoad(dice, [&daemon] { daemon.kill(); });
    flaw += daemon.checkFiles(daemon.bytesWritten());
    if (dice.chance(70) && !daemon.damage(dice)) {
        return "the log cannot be damaged; "_s + flaw;
    }
    for (int repeats = 1 + dice.below(3); repeats > 0 && daemon.needsRepair(); --repeats) {
        flaw += daemon.endInRepair(dice, [](qint64 process) {
            process > 0 ? (void)::kill(pid_t(process), SIGKILL) : void();
        });
        flaw += daemon.checkEndedRepair();
    }
    flaw += daemon.repair();
    return flaw + daemon.checkReading();
}

void KillTest::repairedBeforeEachStart()
{
    const quint32 seed = numberFromEnvironment("SEL_SEED", QRandomGenerator::global()->generate());
    const quint32 kills = numberFromEnvironment("SEL_KILLS", 50);
    SuddenEnd daemon(seed, SuddenEnd::Start::Repaired);
    QVERIFY(daemon.device.start());
    for (quint32 round = 0; round < kills; ++round) {
        Dice dice(seed, round);
        const QString flaw = killAndRepair(daemon, dice);
        QVERIFY2(flaw.isEmpty(), qPrintable("kill %1: %2"_s.arg(round).arg(flaw)));
    }
    const QString flaw = daemon.checkNumbering();
    QVERIFY2(flaw.isEmpty(), qPrintable(flaw));

    const SuddenEnd::Counts &counts = daemon.counts();
    qInfo("%llu kills, all read back whole: %llu repairs had something to do, and %llu besides "
          "were killed in the middle; %llu records read back",
          counts.ends, counts.repairs, counts.repairsEnded, counts.recordsChecked);
    QCOMPARE(counts.ends, quint64(kills));
    QVERIFY(counts.repairs > 0 && counts.repairsEnded > 0);
}

QTEST_GUILESS_MAIN(KillTest)
#include "tst_kill.moc"

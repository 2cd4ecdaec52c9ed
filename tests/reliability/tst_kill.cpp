// SPDX-License-Identifier: Apache-2.0

// SIGKILL at random moments, while events stream in: every byte whose write had
// returned is there, no record is torn, the next start reads all of it back, and the
// numbers go on. SEL_KILLS sets how many kills (50), SEL_SEED the random moments.

#include "reliability/suddenend.h"

#include "support/literals.h"
#include "support/testbus.h"

#include <QDir>
#include <QRandomGenerator>
#include <QTest>

class KillTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingWrittenIsLost();

private:
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

QTEST_GUILESS_MAIN(KillTest)
#include "tst_kill.moc"

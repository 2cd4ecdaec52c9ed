// SPDX-License-Identifier: Apache-2.0

// The one test that really waits for the thirty seconds.

#include "support/device.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QElapsedTimer>
#include <QTest>

class FlushTimerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void singleEventIsWrittenAfterThirtySeconds();

private:
    TestBus bus;
};

void FlushTimerTest::singleEventIsWrittenAfterThirtySeconds()
{
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    QVERIFY(device.start());
    QElapsedTimer timer;
    timer.start();
    device.change("/power/supply"_s, 1001, {true, 12});
    device.settle();
    QCOMPARE(device.result("getMaxLogNr"_s).toULongLong(), 0ULL); // only what is on disk is read
    QTRY_VERIFY_WITH_TIMEOUT(!Device::logFile(0).isEmpty(), 40000);
    QVERIFY2(timer.elapsed() >= 29900, "the timer is early");
    QVERIFY2(timer.elapsed() < 33000, "the timer is late");
    QCOMPARE(device.result("getMaxLogNr"_s).toULongLong(), 1ULL);
    QCOMPARE(Device::logFile(0).size(), 28 + 15 + 1 + 4 + 1 + 2);
}

QTEST_GUILESS_MAIN(FlushTimerTest)
#include "tst_flushtimer.moc"

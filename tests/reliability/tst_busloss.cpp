// SPDX-License-Identifier: Apache-2.0

// The bus goes away under the running daemon, or throws it out: it ends with an error, so
// that a service manager starts it again, and does not stay deaf and mute.

#include "support/device.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QTest>

#include <memory>

class BusLossTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endsWithAnError();
};

void BusLossTest::endsWithAnError()
{
    auto bus = std::make_unique<TestBus>();
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    QVERIFY(device.start());
    device.change("/power/supply"_s, 1001, {true, 12});
    device.settle();

    bus.reset();
    QCOMPARE(device.waitForEnd(), "1"_s);
    QCOMPARE(device.outputLines("The connection to the bus is lost."_s).size(), 1);
}

QTEST_GUILESS_MAIN(BusLossTest)
#include "tst_busloss.moc"

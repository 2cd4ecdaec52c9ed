// SPDX-License-Identifier: Apache-2.0

// As many events as a sender can emit: none is lost, the numbers are contiguous.

#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QFile>
#include <QTest>

namespace
{

constexpr quint64 eventCount = 20000;
constexpr int fullSize = 102400;

} // namespace

class StormTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noEventIsLost();

private:
    TestBus bus;
};

void StormTest::noEventIsLost()
{
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    device.config.values.insert("SystemeventLogtail"_s, "100"_s);
    QVERIFY(device.start());
    for (quint64 i = 1; i <= eventCount; ++i) {
        device.change("/power/supply"_s, 1001, {true, int(i)});
        if (i % 1000 == 0) {
            device.settle();
        }
    }
    QVERIFY(device.fillBundle());

    QList<quint64> numbers;
    for (int index = 100; index >= 0; --index) {
        const QByteArray file = Device::logFile(index);
        QVERIFY(index == 0 || file.isEmpty()
                || (file.size() >= fullSize && file.size() < fullSize + 2700));
        numbers += RecordBytes::numbersIn(file);
    }
    QVERIFY(numbers.size() >= qsizetype(eventCount));
    for (int i = 0; i < int(numbers.size()); ++i) {
        QCOMPARE(numbers[i], quint64(i) + 1);
    }
    QCOMPARE(device.result("getMinLogNr"_s).toULongLong(), 1ULL);
    QCOMPARE(device.result("getMaxLogNr"_s).toULongLong(), numbers.constLast());

    // Each event with its own value, in the order of sending.
    const QString json = device.json();
    int position = 0;
    for (quint64 i = 1; i <= eventCount; ++i) {
        const QString entry = "\"msg\":\"Supply mains 1 at %1 percent\"}"_s.arg(i);
        position = int(json.indexOf(entry, position));
        QVERIFY2(position >= 0, qPrintable(entry));
    }
}

QTEST_GUILESS_MAIN(StormTest)
#include "tst_storm.moc"

// SPDX-License-Identifier: Apache-2.0

// How changes are read from a bus that hands them over in its own manner.

#include "intake/fakebus.h"
#include "intake/statusintake.h"
#include "reliability/wirebus.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QTest>

#include <algorithm>

namespace
{

constexpr int patience = 60000; // milliseconds; against what hangs

} // namespace

class StatusIntakeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bunchesAreWaitedFor();
};

/*!
 * A bus may hand over the next few changes only when the last ones have been read. They are
 * handled together nevertheless: a rest for each few of a storm would add up.
 */
void StatusIntakeTest::bunchesAreWaitedFor()
{
    constexpr quint32 bunch = 16;
    constexpr quint32 all = 200 * bunch;
    const TestBus callBus;
    const QDBusConnection calls = QDBusConnection::systemBus();
    const FakeBus bus([](BusSide &side) {
        side.welcome();
        (void)side.readMessage();                      // for the name
        (void)side.send(answerTo(side.readMessage())); // the subscription
        (void)side.send(answerTo(side.readMessage())); // whether that is all
        const WireMessage change = [] {
            WireMessage one = statusChange(1002, "ay", "x", 1, 1);
            one.sender = ":1.7";
            return one;
        }();
        for (quint32 serial = 1; serial <= all && side.waitUntilRead(); serial += bunch) {
            QByteArray bytes;
            for (quint32 i = 0; i < bunch; ++i) {
                bytes += change.toBytes(serial + i);
            }
            (void)side.send(bytes);
        }
        side.waitForEnd();
    });

    quint32 heard = 0;
    quint32 mostAtOnce = 0;
    StatusIntake intake(
        calls, "com.example.daemon"_s,
        {[](int) { return true; }, [&heard](const StatusChange & /*change*/) { ++heard; }});
    intake.start();
    const QDeadlineTimer end(patience);
    while (heard < all && !end.hasExpired()) {
        const quint32 before = heard;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        mostAtOnce = std::max(mostAtOnce, heard - before);
    }
    QCOMPARE(heard, all);
    QVERIFY2(mostAtOnce > bunch, qPrintable(QString::number(mostAtOnce)));
}

QTEST_GUILESS_MAIN(StatusIntakeTest)
#include "tst_statusintake.moc"

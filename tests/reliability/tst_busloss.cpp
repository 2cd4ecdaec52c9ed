// SPDX-License-Identifier: Apache-2.0

// The bus goes away under the running daemon, or throws it out: it ends with an error, so
// that a service manager starts it again, and does not stay deaf and mute. What it has
// received by then is stored, other than at an end by a signal.

#include "reliability/eventsource.h"
#include "support/faultydisk.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QTest>

#include <memory>

class BusLossTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalLosesWhatIsQueued();
    void endsWithAnError();

private:
    // This process has only one: what stands for the system bus is never connected anew.
    std::unique_ptr<TestBus> bus = std::make_unique<TestBus>();
};

void BusLossTest::signalLosesWhatIsQueued()
{
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    EventSource source(device);
    QVERIFY(device.start());
    source.send(5);
    device.stop();
    QCOMPARE(Device::logFile(0), QByteArray());
    QCOMPARE(device.outputLines("The connection to the bus is lost."_s), QStringList());
}

void BusLossTest::endsWithAnError()
{
    const FaultyDisk storage;
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    EventSource source(device);
    QVERIFY(device.start());

    // The storage is slow, so that most wait in the daemon. A ping is answered as soon as
    // all before it has been received.
    storage->fsyncDelay = 20000;
    source.sendAtOnce(2003);
    const QDBusMessage ping = QDBusMessage::createMethodCall(
        "com.tovel.systemeventlogger"_s, "/"_s, "org.freedesktop.DBus.Peer"_s, "Ping"_s);
    QCOMPARE(callAndServe(QDBusConnection::systemBus(), ping).type(), QDBusMessage::ReplyMessage);
    const auto storedBefore = storedEvents().numbers.size();

    bus.reset();
    QCOMPARE(device.waitForEnd(), "1"_s);
    QCOMPARE(device.outputLines("The connection to the bus is lost."_s).size(), 1);
    const StoredEvents stored = storedEvents();
    QCOMPARE(stored.damage, QString());
    QCOMPARE(lostBefore(source.sent(), stored), quint64(0));
    QVERIFY(storedBefore < stored.numbers.size() / 2);
    qInfo("%lld of %lld events were stored when the bus ended", qint64(storedBefore),
          qint64(stored.numbers.size()));
}

QTEST_GUILESS_MAIN(BusLossTest)
#include "tst_busloss.moc"

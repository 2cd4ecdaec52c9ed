// SPDX-License-Identifier: Apache-2.0

// The bus goes away under the daemon, running or starting, or throws it out: it ends with
// an error, so that a service manager starts it again, and does not stay deaf and mute. What
// it has received by then is stored, other than at an end by a signal.

#include "reliability/eventsource.h"
#include "support/faultydisk.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServer>
#include <QDBusVirtualObject>
#include <QTest>
#include <QTimer>

#include <memory>
#include <utility>

namespace
{

//! A bus that hangs up at a certain message; the configuration service answers on it.
class LosableBus : public QDBusVirtualObject
{
public:
    //! Hangs up at the message of that number, from 1 on, that calls a method.
    LosableBus(QString fatalMethod, int fatalNumber, bool answersBefore)
        : method(std::move(fatalMethod))
        , callsLeft(fatalNumber)
        , answersFirst(answersBefore)
    {
        server.setAnonymousAuthenticationAllowed(true);
        QObject::connect(
            &server, &QDBusServer::newConnection, &server, [this](const QDBusConnection &peer) {
                QDBusConnection(peer).registerVirtualObject("/"_s, this, QDBusConnection::SubPath);
            });
    }

    [[nodiscard]] QString address() const { return server.address(); }
    [[nodiscard]] bool hasHungUp() const { return hungUp; }

    [[nodiscard]] QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &peer) override
    {
        if (hungUp) {
            return true;
        }
        hungUp = message.member() == method && --callsLeft == 0;
        if (!hungUp || answersFirst) {
            answer(message, peer);
        }
        if (hungUp) {
            QTimer::singleShot(0, this,
                               [peer] { QDBusConnection::disconnectFromPeer(peer.name()); });
        }
        return true;
    }

private:
    static void answer(const QDBusMessage &message, const QDBusConnection &peer)
    {
        QDBusMessage reply = message.createReply();
        if (message.member() == "Hello"_s) {
            reply << ":1.1"_s;
        } else if (message.member() == "GetNameOwner"_s) {
            reply << ":1.2"_s;
        } else if (message.member() == "RequestName"_s) {
            reply << 1U;
        } else if (message.member() == "getTrimmed"_s) {
            reply << "true"_s;
        }
        peer.send(reply);
    }

    QDBusServer server{"unix:tmpdir=/tmp"_s};
    QString method;
    int callsLeft;
    bool answersFirst;
    bool hungUp = false;
};

} // namespace

class BusLossTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whileStarting_data();
    void whileStarting();
    void signalLosesWhatIsQueued();
    void endsWithAnError();

private:
    // This process has only one: what stands for the system bus is never connected anew.
    std::unique_ptr<TestBus> bus = std::make_unique<TestBus>();
};

void BusLossTest::whileStarting_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<int>("number");
    QTest::addColumn<bool>("isAnswered");

    QTest::newRow("before the name is asked for") << "Hello"_s << 1 << true;
    QTest::newRow("while the name is waited for") << "RequestName"_s << 1 << false;
    QTest::newRow("as soon as the name is given") << "RequestName"_s << 1 << true;
    QTest::newRow("while the configuration service is looked for")
        << "GetNameOwner"_s << 1 << false;
    QTest::newRow("while the settings are waited for") << "getTrimmed"_s << 5 << false;
    QTest::newRow("while all settings but the first are waited for")
        << "getTrimmed"_s << 2 << false;
    QTest::newRow("as soon as the settings are known") << "getTrimmed"_s << 5 << true;
    QTest::newRow("while a setting is written back") << "save"_s << 1 << true;
}

void BusLossTest::whileStarting()
{
    QFETCH(QString, method);
    QFETCH(int, number);
    QFETCH(bool, isAnswered);
    LosableBus losable(method, number, isAnswered);
    Device device;
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", losable.address().toLatin1());
    device.launch();
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus->address().toLatin1());

    const QString end = device.waitForEnd();
    QVERIFY2(end == "1"_s, qPrintable(end + ": "_s + device.output()));
    QVERIFY(losable.hasHungUp());
    QCOMPARE(device.outputLines("The connection to the bus is lost."_s).size(), 1);
    QVERIFY2(!device.output().contains("Registering"_s), qPrintable(device.output()));
}

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

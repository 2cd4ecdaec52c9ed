// SPDX-License-Identifier: Apache-2.0

// The bus goes away under the daemon, running or starting, or throws it out: it ends with
// an error, so that a service manager starts it again, and does not stay deaf and mute. What
// it has received by then is stored, other than at an end by a signal, whichever way it came, and
// in the order in which each sender sent it.

#include "reader/dice.h"
#include "reliability/busrelay.h"
#include "reliability/eventsource.h"
#include "reliability/wirebus.h"
#include "support/faultydisk.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServer>
#include <QDBusVirtualObject>
#include <QTest>
#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

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

constexpr int patience = 60000; // milliseconds
constexpr int eventId = 1002;   // carries one text
const auto warning = "The connection to the bus is lost."_s;

WireMessage eventOf(const QByteArray &text, const QByteArray &destination = {})
{
    WireMessage message;
    message.path = "/x";
    message.interface = "com.tovel.status";
    message.member = "change";
    message.destination = destination;
    message.signature = "iv";
    WireWriter out;
    out.fixed(eventId, 4);
    out.signature("av");
    const WireWriter::Array list = out.beginArray(1);
    out.signature("s");
    out.text(text);
    out.endArray(list);
    message.body = out.bytes;
    return message;
}

WireMessage setting(const QByteArray &name, const QByteArray &type,
                    const std::function<void(WireWriter &)> &writeValue)
{
    WireMessage message = callOfLogNode("Set", "org.freedesktop.DBus.Properties");
    message.signature = "ssv";
    WireWriter out;
    out.text("local.LogManager");
    out.text(name);
    out.signature(type);
    writeValue(out);
    message.body = out.bytes;
    return message;
}

//! Sends numbered events, to everybody or to the daemon alone, and calls it in between.
class MixedSender
{
public:
    MixedSender(const QString &busAddress, int index, int percentOfCalls)
        : name(QByteArray::number(index) + ':')
        , calls(percentOfCalls)
        , dice(1, quint32(index))
        , bus(busAddress)
    {
    }

    //! False where the bus hung up.
    [[nodiscard]] bool run(int events)
    {
        bool goesOn = true;
        while (goesOn && sent < events) {
            QByteArray bytes;
            const int end = std::min(events, sent + dice.oneOf(std::vector<int>{1, 20, 200}));
            for (; sent < end; ++sent) {
                const QByteArray to = dice.chance(50) ? daemonName : QByteArray();
                bytes += eventOf(name + QByteArray::number(sent), to).toBytes(bus.nextSerial());
                if (dice.chance(calls)) {
                    WireMessage call = setting("logNetworkAddress", "s",
                                               [](WireWriter &out) { out.text("127.0.0.1"); });
                    call.flags = WireMessage::NoReply;
                    bytes += call.toBytes(bus.nextSerial());
                }
            }
            goesOn = bus.sendBytes(bytes);
        }
        return goesOn;
    }

    //! Waits until the bus has put everything into its queues.
    [[nodiscard]] bool settle()
    {
        const quint32 serial = bus.nextSerial();
        return bus.sendBytes(callOfBus("GetId").toBytes(serial)) && bus.waitFor(serial, patience);
    }

private:
    const QByteArray daemonName = "com.tovel.systemeventlogger";

    QByteArray name;
    int calls;
    Dice dice;
    WireBus bus;
    int sent = 0;
};

//! The texts of all stored events, in the order of their log numbers, which must have no gap.
QList<QByteArray> storedTexts()
{
    std::map<quint64, QByteArray> texts;
    QByteArray file;
    for (int index = 0; !(file = Device::logFile(index)).isEmpty(); ++index) {
        const QList<RecordBytes::Stored> records = RecordBytes::storedIn(file);
        for (const RecordBytes::Stored &record : records) {
            constexpr int beforeText = 34; // with the lengths of path and text
            const int begin = record.begin + beforeText;
            const int size = qFromLittleEndian<quint16>(file.constData() + begin - 2);
            texts[record.logNr] = file.mid(begin, size);
        }
    }
    QList<QByteArray> inOrder;
    for (const auto &[number, text] : texts) {
        inOrder.append(number == quint64(inOrder.size()) + 1 ? text : "a gap before " + text);
    }
    return inOrder;
}

//! Those of one sender.
QList<QByteArray> textsOf(int sender, const QList<QByteArray> &texts)
{
    QList<QByteArray> own;
    std::copy_if(texts.begin(), texts.end(), std::back_inserter(own), [sender](const auto &text) {
        return text.startsWith(QByteArray::number(sender) + ':');
    });
    return own;
}

//! Two who send at the same time, each as fast as the bus takes it.
class MixedSenders
{
public:
    //! Returns when the bus has put everything into its queues.
    MixedSenders(const QString &busAddress, int eventsOfEach, int percentOfCalls)
        : events(eventsOfEach)
    {
        std::vector<std::thread> threads;
        threads.reserve(count);
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([this, &busAddress, i, percentOfCalls] {
                MixedSender sender(busAddress, i, percentOfCalls);
                failures += int(!sender.run(events) || !sender.settle());
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
    }

    [[nodiscard]] bool haveSent() const { return failures == 0; }
    //! What is not as it was sent, empty where all is well.
    [[nodiscard]] QByteArray difference(const QList<QByteArray> &stored) const
    {
        for (int i = 0; i < count; ++i) {
            const QList<QByteArray> own = textsOf(i, stored);
            for (int number = 0; number < events; ++number) {
                const QByteArray text = QByteArray::number(i) + ':' + QByteArray::number(number);
                const QByteArray found = own.value(number, "nothing");
                if (found != text) {
                    return found + " in place of " + text;
                }
            }
            if (int(own.size()) != events) {
                return "more than was sent";
            }
        }
        return {};
    }

private:
    static constexpr int count = 2;

    int events;
    std::atomic<int> failures = 0;
};

//! Calls the log node over a bus of its own until it answers.
bool callUntilAnswered(WireBus &bus, const WireMessage &message)
{
    return QTest::qWaitFor(
        [&] {
            const quint32 serial = bus.nextSerial();
            const auto answer = bus.sendBytes(message.toBytes(serial))
                ? bus.waitFor(serial, patience)
                : std::nullopt;
            return answer && answer->type == WireMessage::Reply;
        },
        patience);
}

} // namespace

class BusLossTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void whileStarting_data();
    void whileStarting();
    void signalLosesWhatIsQueued();
    void whatWasHandedOverIsStored_data();
    void whatWasHandedOverIsStored();
    void hangingUpOnOneConnectionIsALoss();
    void nothingBehindWhatIsMalformed_data();
    void nothingBehindWhatIsMalformed();
    void endsWithAnError();

private:
    [[nodiscard]] bool startBehind(const BusRelay &relay, Device &device);

    // This process has only one: what stands for the system bus is never connected anew.
    std::unique_ptr<TestBus> bus = std::make_unique<TestBus>();
};

void BusLossTest::initTestCase()
{
    QVERIFY(QDBusConnection::systemBus().isConnected()); // before the variable names others
}

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

void BusLossTest::whatWasHandedOverIsStored_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<int>("percentOfCalls");
    QTest::newRow("when the bus is killed") << SIGKILL << 0;
    QTest::newRow("when the bus ends") << SIGTERM << 0;
    QTest::newRow("when the bus is killed and calls lie in between") << SIGKILL << 10;
    QTest::newRow("when the bus ends and calls lie in between") << SIGTERM << 10;
}

void BusLossTest::whatWasHandedOverIsStored()
{
    QFETCH(int, signal);
    QFETCH(int, percentOfCalls);
    const FaultyDisk storage;
    Device device;
    TestBus mortal;
    device.launch();
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus->address().toLatin1());
    WireBus control(mortal.address());
    QVERIFY(callUntilAnswered(control,
                              setting("logLocal", "b", [](WireWriter &out) { out.fixed(1, 4); })));
    for (int i = 0; i < 4; ++i) { // until then the other connection has taken over
        QVERIFY(callUntilAnswered(
            control, setting("logtail", "i", [](WireWriter &out) { out.fixed(1000, 4); })));
    }

    // A ping is answered as soon as the bus has passed on all before it over the connection
    // for calls; between two bundles the daemon takes what there is on the other one.
    storage->fsyncDelay = 20000;
    const MixedSenders senders(mortal.address(), 3000, percentOfCalls);
    QVERIFY(senders.haveSent());
    QVERIFY(callUntilAnswered(control, callOfLogNode("Ping", "org.freedesktop.DBus.Peer")));
    constexpr int several = 1000; // some 20 bundles
    const auto atPing = storedTexts().size();
    QTRY_VERIFY_WITH_TIMEOUT(storedTexts().size() > atPing + several, patience);
    const auto storedBefore = storedTexts().size();

    mortal.end(signal);
    QCOMPARE(device.waitForEnd(), "1"_s);
    QCOMPARE(device.outputLines(warning).size(), 1);
    const QList<QByteArray> texts = storedTexts();
    QCOMPARE(senders.difference(texts), QByteArray());
    QVERIFY(storedBefore < texts.size() * 3 / 4);
    qInfo("%d of %d events were stored before", int(storedBefore), int(texts.size()));
}

//! Starts the daemon, which logs locally then.
bool BusLossTest::startBehind(const BusRelay &relay, Device &device)
{
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", relay.address());
    const bool isStarted = device.start();
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus->address().toLatin1());
    return isStarted && QTest::qWaitFor([&] { return relay.connections() == 2; }, patience);
}

//! The connection over which it is called stays; what was sent before is all there.
void BusLossTest::hangingUpOnOneConnectionIsALoss()
{
    const FaultyDisk storage;
    BusRelay relay(bus->address());
    Device device;
    QVERIFY(startBehind(relay, device));
    device.settle();
    storage->fsyncDelay = 20000;
    const QByteArray end = "the last that is heard";
    relay.hangUpBehind(1, end);

    const MixedSenders senders(bus->address(), 2000, 5);
    QVERIFY(senders.haveSent());
    WireBus last(bus->address());
    QVERIFY(last.send(eventOf(end)));
    const auto storedBefore = storedTexts().size();

    QCOMPARE(device.waitForEnd(), "1"_s);
    QCOMPARE(device.outputLines(warning).size(), 1);
    const QList<QByteArray> texts = storedTexts();
    QCOMPARE(senders.difference(texts), QByteArray());
    QVERIFY(storedBefore < texts.size() / 2);
    qInfo("%d of %d events were stored before", int(storedBefore), int(texts.size()));
}

void BusLossTest::nothingBehindWhatIsMalformed_data()
{
    QTest::addColumn<QByteArray>("body");
    const auto row = [](const char *name, const QByteArray &type, const QByteArray &value) {
        WireWriter out;
        out.fixed(eventId, 4);
        out.signature(type);
        out.align(4);
        QTest::newRow(name) << out.bytes + value;
    };
    const QByteArray one("\1\0\0\0", 4);
    const QByteArray four("\4\0\0\0", 4);
    row("a text is not in UTF-8", "s",
        four
            + QByteArray("ab\xFF"
                         "d",
                         5));
    row("a text is longer than its message", "s", four + QByteArray("abc"));
    row("a list is longer than its message", "ai", four + QByteArray());
    row("the second value of a list is malformed", "as",
        QByteArray("\16\0\0\0", 4) + one + QByteArray("a\0\0\0", 4) + one + QByteArray("\xC0", 2));
    row("a truth is neither true nor false", "b", four);
}

//! Not even where it came with the same reading, or from another sender.
void BusLossTest::nothingBehindWhatIsMalformed()
{
    QFETCH(QByteArray, body);
    BusRelay relay(bus->address());
    Device device;
    QVERIFY(startBehind(relay, device));
    device.settle();

    QByteArray bytes;
    quint32 serial = 1;
    const auto add = [&](WireMessage message, const QByteArray &sender) {
        message.sender = sender;
        bytes += message.toBytes(++serial);
    };
    const QByteArray one = ":1.77";
    add(eventOf("0:0"), one);
    add(eventOf("0:1"), one);
    WireMessage malformed = eventOf({});
    malformed.body = body;
    add(malformed, one);
    add(eventOf("behind it"), one);
    add(eventOf("behind it"), ":1.78");
    QVERIFY(relay.insert(1, bytes));

    QCOMPARE(device.waitForEnd(), "1"_s);
    QCOMPARE(device.outputLines(warning).size(), 1);
    QCOMPARE(storedTexts(), (QList<QByteArray>{"0:0", "0:1"}));
}

void BusLossTest::endsWithAnError()
{
    const FaultyDisk storage;
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    EventSource source(device);
    QVERIFY(device.start());

    // The storage is slow, so that most wait in the daemon. A ping is answered as soon as
    // the bus has passed on all before it, and between two bundles the daemon takes what
    // there is.
    storage->fsyncDelay = 20000;
    source.sendAtOnce(2003);
    const QDBusMessage ping = QDBusMessage::createMethodCall(
        "com.tovel.systemeventlogger"_s, "/"_s, "org.freedesktop.DBus.Peer"_s, "Ping"_s);
    QCOMPARE(callAndServe(QDBusConnection::systemBus(), ping).type(), QDBusMessage::ReplyMessage);
    constexpr int bundles = 8;
    constexpr int eventsInABundle = 50;
    const auto atPing = storedEvents().numbers.size();
    QTRY_VERIFY(storedEvents().numbers.size() > atPing + qsizetype(bundles) * eventsInABundle);
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

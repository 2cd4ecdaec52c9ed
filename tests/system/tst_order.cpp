// SPDX-License-Identifier: Apache-2.0

// What one sender announces and calls takes effect in the order in which he sent it, whether he
// waits for answers or not, and however many do so at once.
//
// Each sender announces events and changes the address that datagrams go to, each time to one
// of his own that was not used before. So where the datagram of an event goes shows what
// was handled before it: an address of his own has to be that which he set last before it.
// What is stored shows that each event is heard once, and which are.
//
// SEL_ORDER_MESSAGES: of all senders together (100000; up to 150000, for want of addresses).
// SEL_SEED: what to begin with (printed); the same seed sends the same messages.

#include "reader/dice.h"
#include "reliability/wirebus.h"
#include "support/device.h"
#include "support/environment.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>
#include <QTest>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace
{

constexpr int senderCount = 4;
constexpr int patience = 60000; // milliseconds

//! 127.<sender + 1>.<number, its high byte first>
quint32 addressOf(int sender, int number)
{
    return 127U << 24 | quint32(sender + 1) << 16 | quint32(number);
}

WireMessage eventOf(int sender, int number)
{
    WireMessage message = statusSignal();
    WireWriter out;
    out.fixed(1002, 4);
    out.signature("av");
    const WireWriter::Array list = out.beginArray(1);
    out.signature("s");
    out.text(QByteArray::number(sender) + ':' + QByteArray::number(number));
    out.endArray(list);
    message.body = out.bytes;
    return message;
}

WireMessage setting(const QByteArray &name, const QByteArray &type, WireWriter &out)
{
    WireMessage message = callOfLogNode("Set", "org.freedesktop.DBus.Properties");
    message.signature = "ssv";
    out.text("local.LogManager");
    out.text(name);
    out.signature(type);
    return message;
}

WireMessage addressChange(quint32 address)
{
    const in_addr network{qToBigEndian(address)};
    WireWriter out;
    WireMessage message = setting("logNetworkAddress", "s", out);
    out.text(inet_ntoa(network));
    message.body = out.bytes;
    return message;
}

WireMessage localSwitch(bool on)
{
    WireWriter out;
    WireMessage message = setting("logLocal", "b", out);
    out.fixed(quint64(on), 4);
    message.body = out.bytes;
    return message;
}

//! Announces and calls in a random order, and remembers it.
class Sender
{
public:
    Sender(const QString &busAddress, int index, quint32 seed)
        : number(index)
        , dice(seed, index)
        , bus(std::make_unique<WireBus>(busAddress))
    {
    }

    //! To run on a thread of its own.
    void run(int messages)
    {
        constexpr int burst = 1000; // more than a socket holds
        for (int i = 0; i < messages && !hasFailed; ++i) {
            const int events = dice.below(2 * burst) == 0 ? burst : int(dice.chance(60));
            for (int event = 0; event < events; ++event) {
                announce();
            }
            if (events != 1) {
                change();
            }
        }
        waitFor(questionForMinimum());
        isDone = true;
    }

    /*!
     * The same, without waiting for the daemon, which need not be there, until it is ended. Only
     * the bus is waited for now and then, so that it has no more than it can hand on, and time is
     * let pass, so that a slow daemon gets no more than it can handle.
     */
    void runFreely(int eventsInTen, std::chrono::milliseconds rest)
    {
        constexpr int group = 16;
        const QDeadlineTimer end(10min); // against what hangs
        for (int i = 1; !ends && !hasFailed && !end.hasExpired(); ++i) {
            if (dice.below(10) < eventsInTen) {
                announce();
            } else {
                setAddress();
            }
            if (i % group == 0) {
                waitFor(callOfBus("GetId")); // answered when it has handed on all before
                known = int(setBefore.size());
                std::this_thread::sleep_for(rest);
            }
        }
        waitFor(questionForMinimum()); // answered when all before is handled
        isDone = true;
    }

    void announce()
    {
        setBefore.push_back(lastSet);
        begun = int(setBefore.size());
        send(eventOf(number, begun - 1));
    }

    void send(const WireMessage &message) { hasFailed = hasFailed || !bus->send(message); }

    void waitFor(const WireMessage &message)
    {
        const quint32 serial = bus->nextSerial();
        hasFailed = hasFailed || !bus->sendBytes(message.toBytes(serial))
            || !bus->waitFor(serial, patience);
    }

    int number;
    std::vector<int> setBefore; //!< which address was the last one before each event; 0 for none
    std::atomic<int> begun = 0; //!< events that are sent, or just about to be
    std::atomic<int> known = 0; //!< events that the bus has handed on
    std::atomic<bool> ends = false;
    std::atomic<bool> hasFailed = false;
    std::atomic<bool> isDone = false;

private:
    //! Without an answer: the bus bounds how many may be waited for.
    void setAddress()
    {
        WireMessage message = addressChange(addressOf(number, ++lastSet));
        message.flags = WireMessage::NoReply;
        send(message);
    }

    void change()
    {
        WireMessage message = addressChange(addressOf(number, ++lastSet));
        if (dice.chance(10)) {
            waitFor(message);
            return;
        }
        message.flags = dice.chance(50) ? WireMessage::NoReply : 0;
        send(message);
        hasFailed = hasFailed || !bus->readSome();
        while (bus->take()) { }
        if (dice.chance(5)) {
            (void)bus->nextSerial(); // as one has who speaks to others, too
        }
        if (dice.chance(5)) {
            waitFor(questionForMinimum());
        }
    }

    Dice dice;
    std::unique_ptr<WireBus> bus;
    int lastSet = 0;
};

struct Arrival {
    int sender;
    int event;
    quint32 address;
};

//! Takes the datagrams of all addresses.
class Datagrams
{
public:
    Datagrams()
        : socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        const int room = 64 * 1024 * 1024;
        sockaddr_in any{};
        any.sin_family = AF_INET;
        any.sin_port = qToBigEndian<quint16>(514);
        (void)setsockopt(socket, IPPROTO_IP, IP_PKTINFO, &on, sizeof on);
        (void)setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        if (bind(socket, reinterpret_cast<const sockaddr *>(&any), sizeof any) != 0) {
            qFatal("cannot bind port 514");
        }
    }
    ~Datagrams() { close(socket); }
    Q_DISABLE_COPY_MOVE(Datagrams)

    //! To run on a thread of its own, until it is ended.
    void run()
    {
        while (!ends) {
            pollfd readable{socket, POLLIN, 0};
            constexpr int grain = 20;
            if (poll(&readable, 1, grain) > 0) {
                takeOne();
            }
        }
    }

    std::atomic<bool> ends = false;
    std::vector<Arrival> arrivals;

private:
    void takeOne()
    {
        std::array<char, 2048> bytes{};
        alignas(cmsghdr) std::array<char, 256> control{};
        iovec room{bytes.data(), bytes.size()};
        msghdr message{};
        message.msg_iov = &room;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = recvmsg(socket, &message, 0);
        const cmsghdr *const part = CMSG_FIRSTHDR(&message);
        if (size <= 0 || part == nullptr) {
            return;
        }
        in_pktinfo info{};
        memcpy(&info, CMSG_DATA(part), sizeof info);
        const QByteArray text(bytes.data(), int(size));
        const QByteArray event = text.mid(text.lastIndexOf(' ') + 1);
        const auto colon = int(event.indexOf(':'));
        if (colon > 0) {
            arrivals.push_back({event.left(colon).toInt(), event.mid(colon + 1).toInt(),
                                qFromBigEndian(info.ipi_addr.s_addr)});
        }
    }

    int socket;
};

//! Senders, each on a thread of its own, until they are ended.
class Storm
{
public:
    Storm(const QString &busAddress, int senders, quint32 seed, int eventsInTen,
          std::chrono::milliseconds rest)
    {
        for (int i = 0; i < senders; ++i) {
            all.push_back(std::make_unique<Sender>(busAddress, i, seed));
            threads.emplace_back([sender = all.back().get(), eventsInTen, rest] {
                sender->runFreely(eventsInTen, rest);
            });
        }
    }
    ~Storm() { end(); }
    Q_DISABLE_COPY_MOVE(Storm)

    //! Whether each has announced so many events more than at a time before.
    [[nodiscard]] bool hasGoneOn(const std::vector<int> &since, int events) const
    {
        bool allHave = true;
        for (size_t i = 0; i < since.size(); ++i) {
            allHave = allHave && all[i]->known >= since[i] + events;
        }
        return allHave;
    }
    [[nodiscard]] std::vector<int> begun() const
    {
        std::vector<int> counts;
        for (const auto &sender : all) {
            counts.push_back(sender->begun);
        }
        return counts;
    }
    [[nodiscard]] std::vector<int> known() const
    {
        std::vector<int> counts;
        for (const auto &sender : all) {
            counts.push_back(sender->known);
        }
        return counts;
    }
    //! Ends it, and has the daemon handle everything; false where one has failed.
    bool end()
    {
        for (const auto &sender : all) {
            sender->ends = true;
        }
        const bool areDone = QTest::qWaitFor(
            [this] { // the configuration service answers
                return std::all_of(all.cbegin(), all.cend(),
                                   [](const auto &each) { return each->isDone.load(); });
            },
            2 * patience);
        for (std::thread &thread : threads) {
            thread.join();
        }
        threads.clear();
        return areDone && std::none_of(all.cbegin(), all.cend(), [](const auto &each) {
                   return each->hasFailed.load();
               });
    }
    [[nodiscard]] const std::vector<std::unique_ptr<Sender>> &senders() const { return all; }

private:
    std::vector<std::unique_ptr<Sender>> all;
    std::vector<std::thread> threads;
};

//! The numbers of the stored events of each sender, in the order of storing.
std::vector<std::vector<int>> storedEvents(Device &device, int senders)
{
    std::vector<std::vector<int>> numbers{size_t(senders)};
    const QString begin = "Message "_s;
    const QJsonArray records = device.fillBundle()
        ? QJsonDocument::fromJson(device.json().toUtf8()).array()
        : QJsonArray();
    for (const auto &record : records) {
        const QString text = record.toObject().value("msg"_s).toString();
        if (text.startsWith(begin)) {
            const QStringList parts = text.mid(begin.size()).split(QLatin1Char(':'));
            numbers.at(size_t(parts.value(0).toInt())).push_back(parts.value(1).toInt());
        }
    }
    return numbers;
}

//! What is wrong with the order in which a sender's events and calls were handled; or nothing.
QString disorder(const std::vector<Arrival> &arrivals,
                 const std::vector<std::unique_ptr<Sender>> &senders)
{
    std::vector<int> next(senders.size(), 0);
    int own = 0;
    for (const Arrival &arrival : arrivals) {
        const Sender &sender = *senders.at(size_t(arrival.sender));
        const int event = arrival.event;
        if (event < next[size_t(arrival.sender)]) {
            return "event %1 of sender %2 comes again, or late"_s.arg(event).arg(arrival.sender);
        }
        next[size_t(arrival.sender)] = event + 1;
        if (arrival.address >> 16 != addressOf(sender.number, 0) >> 16) {
            continue;
        }
        ++own;
        const int set = int(arrival.address & 0xFFFF);
        const int expected = sender.setBefore.at(size_t(event));
        if (set != expected) {
            return "event %1 of sender %2 goes to address %3 instead of %4"_s.arg(event)
                .arg(arrival.sender)
                .arg(set)
                .arg(expected);
        }
    }
    return own > 0 ? QString() : "no event goes to an address of its sender's"_s;
}

//! Where ascending numbers are not followed by the next one; at most some.
QString gaps(const std::vector<int> &numbers)
{
    QStringList places;
    for (size_t i = 1; i < numbers.size() && places.size() < 5; ++i) {
        if (numbers[i] != numbers[i - 1] + 1) {
            places.append("%1 after %2"_s.arg(numbers[i]).arg(numbers[i - 1]));
        }
    }
    return places.join(", "_s);
}

} // namespace

class OrderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ofEachSender_data();
    void ofEachSender();
    void fromTheStartOn();
    void whileSwitching();

private:
    void startInStorm(quint32 seed);

    TestBus bus;
};

void OrderTest::ofEachSender_data()
{
    QTest::addColumn<int>("senders");
    QTest::newRow("of one alone") << 1;
    QTest::newRow("of several at once") << senderCount;
}

void OrderTest::ofEachSender()
{
    QFETCH(int, senders);
    const int messages = numberFromEnvironment("SEL_ORDER_MESSAGES", 100000) / senders;
    const auto seed = quint32(numberFromEnvironment("SEL_SEED", 1));
    qInfo("SEL_ORDER_MESSAGES=%d SEL_SEED=%u", messages * senders, seed);
    Device device;
    device.config.values.insert("SystemeventLogNetwork"_s, "true"_s);
    QVERIFY(device.start());

    Datagrams datagrams;
    std::thread receiving([&] { datagrams.run(); });
    std::vector<std::unique_ptr<Sender>> all;
    std::vector<std::thread> threads;
    for (int i = 0; i < senders; ++i) {
        all.push_back(std::make_unique<Sender>(bus.address(), i, seed));
        threads.emplace_back([sender = all.back().get(), messages] { sender->run(messages); });
    }
    const auto areDone = [&all] {
        return std::all_of(all.cbegin(), all.cend(),
                           [](const auto &each) { return each->isDone.load(); });
    };
    QTRY_VERIFY_WITH_TIMEOUT(areDone(), 10 * patience); // the configuration service answers
    for (std::thread &thread : threads) {
        thread.join();
    }
    device.settle();
    datagrams.ends = true;
    receiving.join();

    size_t announced = 0;
    for (const auto &sender : all) {
        QVERIFY(!sender->hasFailed);
        announced += sender->setBefore.size();
    }
    std::vector<int> next(size_t(senders), 0);
    int own = 0;
    int tooEarly = 0;
    int tooLate = 0;
    for (const Arrival &arrival : datagrams.arrivals) {
        const Sender &sender = *all.at(size_t(arrival.sender));
        QVERIFY(arrival.event >= next[size_t(arrival.sender)]);
        next[size_t(arrival.sender)] = arrival.event + 1;
        if (arrival.address >> 16 == addressOf(sender.number, 0) >> 16) {
            const int set = int(arrival.address & 0xFFFF);
            const int expected = sender.setBefore.at(size_t(arrival.event));
            ++own;
            tooEarly += int(set < expected);
            tooLate += int(set > expected);
        }
    }
    qInfo("%d of %d events to an address of their sender's", own, int(announced));
    QVERIFY(own > int(announced) / (2 * senders));
    QCOMPARE(tooEarly, 0);
    QCOMPARE(tooLate, 0);
}

/*!
 * The daemon starts while all send. What is heard first comes over another connection than what
 * follows, and what comes before its event loop runs is kept back.
 */
void OrderTest::startInStorm(quint32 seed)
{
    constexpr int events = 200; // of each sender, in each part of the start
    Device device;
    device.config.values = {{"SystemeventLogLocal"_s, "true"_s},
                            {"SystemeventLogNetwork"_s, "true"_s},
                            {"SystemeventLogtail"_s, "1000"_s}};
    device.config.behave(ConfigService::Manner::IsSilent);
    Datagrams datagrams;
    std::thread receiving([&] { datagrams.run(); });
    const auto end = [&] {
        datagrams.ends = true;
        if (receiving.joinable()) {
            receiving.join();
        }
    };
    const auto atLast = qScopeGuard(end);
    Storm storm(bus.address(), senderCount, seed, 9, 5ms);
    device.launch();
    QTRY_COMPARE_WITH_TIMEOUT(device.config.calls.size(), 5, patience);
    device.config.release("SystemeventLogLocal"_s);
    QTRY_COMPARE_WITH_TIMEOUT(device.outputLines("startet listening"_s).size(), 1, patience);
    std::vector<int> before = storm.begun();
    QTRY_VERIFY_WITH_TIMEOUT(storm.hasGoneOn(before, events), patience);
    device.config.release();
    QVERIFY(QTest::qWaitFor([&] { return device.isServing(); }, patience));
    const std::vector<int> served = storm.begun();
    QTRY_VERIFY_WITH_TIMEOUT(storm.hasGoneOn(served, events), patience);
    QVERIFY(storm.end());

    const auto stored = storedEvents(device, senderCount);
    for (size_t i = 0; i < stored.size(); ++i) {
        QVERIFY(!stored[i].empty());
        QCOMPARE(gaps(stored[i]), QString());
        QVERIFY(stored[i].front() <= before[i]);
        QCOMPARE(stored[i].back() + 1, int(storm.senders()[i]->setBefore.size()));
    }
    end();
    QCOMPARE(disorder(datagrams.arrivals, storm.senders()), QString());
}

void OrderTest::fromTheStartOn()
{
    const auto seed = quint32(numberFromEnvironment("SEL_SEED", 1));
    constexpr quint32 starts = 12;
    for (quint32 i = 0; i < starts && !QTest::currentTestFailed(); ++i) {
        startInStorm(seed + i);
    }
}

/*!
 * One of many senders switches off and on. Of his own events exactly those are heard that he
 * announces from the answer until he switches off, and of the others' at least those that the
 * bus handed on meanwhile.
 */
void OrderTest::whileSwitching()
{
    const auto seed = quint32(numberFromEnvironment("SEL_SEED", 1));
    constexpr int times = 40;
    constexpr int ownEvents = 10;
    Device device;
    device.config.values.insert("SystemeventLogtail"_s, "1000"_s);
    QVERIFY(device.start());
    Storm storm(bus.address(), senderCount, seed, 10, 1ms); // one answer has to hold all
    Sender switching(bus.address(), senderCount, seed);
    std::vector<std::vector<int>> expected(senderCount + 1);
    const auto expect = [&expected](size_t sender, int from, int to) {
        for (int event = from; event < to; ++event) {
            expected[sender].push_back(event);
        }
    };
    for (int i = 0; i < times; ++i) {
        switching.announce(); // which nobody hears
        switching.waitFor(localSwitch(true));
        const std::vector<int> from = storm.begun();
        const int ownFrom = switching.begun;
        for (int event = 0; event < ownEvents; ++event) {
            switching.announce();
        }
        QTRY_VERIFY_WITH_TIMEOUT(storm.hasGoneOn(from, i), patience);
        const std::vector<int> to = storm.known();
        switching.announce(); // behind all those
        switching.send(localSwitch(false));
        expect(senderCount, ownFrom, switching.begun);
        for (size_t sender = 0; sender < from.size(); ++sender) {
            expect(sender, from[sender], to[sender]);
        }
    }
    QVERIFY(storm.end());
    switching.waitFor(localSwitch(true));
    QVERIFY(!switching.hasFailed);

    const auto stored = storedEvents(device, senderCount + 1);
    QCOMPARE(stored.back(), expected.back());
    for (size_t i = 0; i < stored.size(); ++i) {
        QVERIFY2(std::adjacent_find(stored[i].cbegin(), stored[i].cend(), std::greater_equal<>())
                     == stored[i].cend(),
                 "one comes twice, or late");
        QVERIFY(std::includes(stored[i].cbegin(), stored[i].cend(), expected[i].cbegin(),
                              expected[i].cend()));
    }
}

QTEST_GUILESS_MAIN(OrderTest)
#include "tst_order.moc"

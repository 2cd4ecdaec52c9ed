// SPDX-License-Identifier: Apache-2.0

// A connection to what is no healthy bus: it is refused or lost, in time and without a
// descriptor left over, and what came before is handed over.

#include "intake/busconnection.h"
#include "intake/fakebus.h"
#include "intake/statusintake.h"
#include "reader/dice.h"
#include "reliability/wirebus.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDir>
#include <QElapsedTimer>
#include <QTest>

#include <cerrno>
#include <deque>
#include <functional>
#include <future>
#include <utility>
#include <vector>

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int patience = 60000; // milliseconds; against what hangs

using Behaviour = std::function<void(BusSide &)>;

int openDescriptors()
{
    return int(QDir("/proc/self/fd"_s).entryList(QDir::Files | QDir::System).size());
}

WireMessage signal(bool isBigEndian)
{
    WireMessage message = unknownSignal(isBigEndian);
    message.sender = ":1.7";
    return message;
}

//! A message of so many bytes in all: two lists of bytes.
QByteArray messageOf(int size, bool isBigEndian)
{
    WireMessage message = signal(isBigEndian);
    message.signature = "ayay";
    const int head = int(message.toBytes(1).size());
    const int content = size - head - 8;
    const int first = content / 8 * 4; // so that the second list's length is aligned
    WireWriter out;
    out.isBigEndian = isBigEndian;
    out.bytes.reserve(size);
    for (const int length : {first, content - first}) {
        out.fixed(quint64(length), 4);
        out.bytes.append(length, 'x');
    }
    message.body = out.bytes;
    return message.toBytes(1);
}

//! What comes along with a greeting is not handed over, so a call parts them.
void welcomeAndWait(BusSide &side)
{
    side.welcome();
    (void)side.readMessage();
}

bool openAndCall(BusConnection &connection)
{
    return connection.open() && connection.call("GetId") != 0;
}

//! Reads until the connection is lost; false where that takes too long.
bool readToEnd(BusConnection &connection, const BusConnection::Handler &handle)
{
    while (connection.wait(patience)) {
        if (connection.read(handle) == BusConnection::Reading::Lost) {
            return true;
        }
    }
    return false;
}

//! Opens a connection; how long that took in milliseconds, less than 0 where it failed.
qint64 timeToOpen()
{
    QElapsedTimer timer;
    timer.start();
    BusConnection connection;
    const bool isOpen = connection.open();
    return isOpen ? timer.elapsed() : -timer.elapsed();
}

/*!
 * A bus that does not go on at some point, and opening a connection to it, or to one that is
 * sound and comes behind it in the list of addresses.
 */
class SilentBus
{
public:
    SilentBus(const Behaviour &behaviour, bool hasNext)
        : next([](BusSide &side) { side.welcome(); })
        , bus([this, behaviour](BusSide &side) {
            reached.set_value();
            behaviour(side);
            side.waitForEnd();
        })
    {
        qputenv("DBUS_SYSTEM_BUS_ADDRESS",
                hasNext ? bus.addresses() + ';' + next.addresses() : bus.addresses());
        result = std::async(std::launch::async, timeToOpen);
        reached.get_future().wait(); // the environment has been looked at
    }
    [[nodiscard]] qint64 time() { return result.get(); }

private:
    std::promise<void> reached;
    FakeBus next;
    FakeBus bus;
    std::future<qint64> result;
};

//! Whether that is how long a bus is waited for.
bool isPatience(qint64 milliseconds)
{
    return milliseconds >= BusConnection::patience
        && milliseconds < BusConnection::patience + 1500; // a busy machine
}

} // namespace

Q_DECLARE_METATYPE(Behaviour)

class BusConnectionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void opening_data();
    void opening();
    void noBus();
    void silence();
    void queueInFront();
    void silentSubscription();
    void lost_data();
    void lost();
    void messagesInPieces();
    void largestMessage_data();
    void largestMessage();
    void descriptorsAreClosed();
};

void BusConnectionTest::opening_data()
{
    QTest::addColumn<Behaviour>("behaviour");
    QTest::addColumn<bool>("isOpen");
    const auto row = [](const char *name, bool isOpen, const Behaviour &behaviour) {
        QTest::newRow(name) << behaviour << isOpen;
    };
    row("a bus that greets is one", true, [](BusSide &side) { side.welcome(); });
    row("a bus may know no descriptors", true,
        [](BusSide &side) { (void)side.send(answerTo(side.admit("ERROR\r\n"))); });
    row("other messages may come before its greeting", true, [](BusSide &side) {
        const quint32 hello = side.admit();
        (void)side.send(signal(false).toBytes(1) + answerTo(hello + 1, true) + answerTo(hello)
                        + signal(true).toBytes(2));
    });
    row("one that hangs up at once is none", false, [](BusSide &) {});
    row("one that refuses the login is none", false, [](BusSide &side) {
        (void)side.readBytes(1);
        (void)side.readLine();
        (void)side.send("REJECTED EXTERNAL\r\n");
        side.waitForEnd();
    });
    row("one that hangs up in the middle of a line is none", false, [](BusSide &side) {
        (void)side.readBytes(1);
        (void)side.readLine();
        (void)side.send("OK 01234");
    });
    row("one that hangs up before it is asked for descriptors is none", false, [](BusSide &side) {
        (void)side.readBytes(1);
        (void)side.readLine();
        (void)side.send("OK 0123\r\n");
        (void)side.readLine();
    });
    row("one whose line has no end is none", false, [](BusSide &side) {
        (void)side.readBytes(1);
        (void)side.readLine();
        (void)side.send("OK " + QByteArray(20000, 'x'));
        side.waitForEnd();
    });
    row("one that hangs up instead of greeting is none", false,
        [](BusSide &side) { (void)side.admit(); });
    row("one that greets with an error is none", false, [](BusSide &side) {
        (void)side.send(answerTo(side.admit(), true));
        side.waitForEnd();
    });
    row("one that greets with half a message is none", false, [](BusSide &side) {
        const QByteArray answer = answerTo(side.admit());
        (void)side.send(answer.left(int(answer.size()) / 2));
    });
    row("one that sends no messages is none", false, [](BusSide &side) {
        (void)side.admit();
        (void)side.send(QByteArray(100, 'l'));
        side.waitForEnd();
    });
}

void BusConnectionTest::opening()
{
    QFETCH(Behaviour, behaviour);
    QFETCH(bool, isOpen);
    const int before = openDescriptors();
    for (const bool isAbstract : {false, true}) {
        const FakeBus bus(behaviour, isAbstract);
        BusConnection connection;
        QCOMPARE(connection.open(), isOpen);
        QCOMPARE(connection.isOpen(), isOpen);
        QCOMPARE(connection.descriptor() >= 0, isOpen);
    }
    QCOMPARE(openDescriptors(), before);
}

void BusConnectionTest::noBus()
{
    const int before = openDescriptors();
    const QByteArray tooLong = "unix:path=/" + QByteArray(200, 'x');
    for (const QByteArray &address :
         {QByteArray("unix:path=/nowhere"), QByteArray("unix:path="), QByteArray("nothing"),
          QByteArray("unix:abstract=nobody/is/here"), tooLong}) {
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", address);
        BusConnection connection;
        QVERIFY(!connection.open());
        QVERIFY(!connection.isOpen());
    }
    QCOMPARE(openDescriptors(), before);
}

//! All at once, since each takes its time.
void BusConnectionTest::silence()
{
    const std::vector<std::pair<QByteArray, Behaviour>> silent{
        {"to the login", [](BusSide &) {}},
        {"to the question for descriptors",
         [](BusSide &side) {
             (void)side.readBytes(1);
             (void)side.readLine();
             (void)side.send("OK 0123\r\n");
         }},
        {"to the greeting", [](BusSide &side) { (void)side.admit(); }},
        {"but for other messages",
         [](BusSide &side) {
             (void)side.admit();
             for (int i = 0; i < 10 && !side.isHeard(1000); ++i) {
                 (void)side.send(signal(false).toBytes(1));
             }
         }},
        {"but for the next letter of a line", [](BusSide &side) {
             (void)side.readBytes(1);
             (void)side.readLine();
             for (int i = 0; i < 10 && !side.isHeard(1000); ++i) {
                 (void)side.send("x");
             }
         }}};
    const int before = openDescriptors();
    std::deque<SilentBus> buses;
    for (const auto &[name, behaviour] : silent) {
        buses.emplace_back(behaviour, false);
        buses.emplace_back(behaviour, true);
    }
    for (const auto &[name, behaviour] : silent) {
        const qint64 alone = buses.front().time();
        QVERIFY2(isPatience(-alone), (name + ": " + QByteArray::number(alone)).constData());
        buses.pop_front();
        const qint64 withNext = buses.front().time();
        QVERIFY2(isPatience(withNext), (name + ": " + QByteArray::number(withNext)).constData());
        buses.pop_front();
    }
    QCOMPARE(openDescriptors(), before);
}

//! As many wait in front as the kernel lets wait.
void BusConnectionTest::queueInFront()
{
    std::promise<void> begun;
    const FakeBus bus([&begun](BusSide &side) {
        begun.set_value();
        side.waitForEnd();
    });
    const QByteArray path = bus.addresses().split('=').at(2).split(',').first();
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    qstrncpy(name.sun_path, path.constData(), sizeof name.sun_path);
    std::vector<int> others;
    const auto another = [&] {
        others.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        return ::connect(others.back(), reinterpret_cast<const sockaddr *>(&name), sizeof name)
            == 0;
    };
    QVERIFY(another());
    begun.get_future().wait(); // it takes only this one
    while (another()) { }
    const int reason = errno;
    const qint64 time = timeToOpen();
    for (const int other : others) {
        close(other);
    }
    QCOMPARE(reason, EAGAIN);
    QVERIFY2(isPatience(-time), qPrintable(QString::number(time)));
}

//! What is subscribed to is heard as soon as the bus goes on.
void BusConnectionTest::silentSubscription()
{
    const TestBus callBus;
    const QDBusConnection calls = QDBusConnection::systemBus();
    std::promise<void> waited;
    const FakeBus bus([&waited](BusSide &side) {
        side.welcome();
        (void)side.readMessage(); // for the name
        (void)side.readMessage();
        waited.get_future().wait();
        (void)side.send(answerTo(3) + statusChange(1002, "ay", "x", 1, 1).toBytes(5));
        side.waitForEnd();
    });
    QList<int> heard;
    StatusIntake intake(calls, "com.example.daemon"_s,
                        {[](int) { return true; },
                         [&heard](const StatusChange &change) { heard.append(change.id); }});
    QElapsedTimer timer;
    timer.start();
    intake.start();
    QCoreApplication::processEvents();
    QVERIFY2(isPatience(timer.elapsed()), qPrintable(QString::number(timer.elapsed())));
    waited.set_value();
    const auto isHeard = [&] {
        intake.finish();
        return !heard.isEmpty();
    };
    QVERIFY(QTest::qWaitFor(isHeard, patience));
    QCOMPARE(heard, QList<int>{1002});
}

void BusConnectionTest::lost_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray message = signal(false).toBytes(1);
    QByteArray otherVersion = message;
    otherVersion[3] = 2;
    QTest::newRow("where the bus hangs up") << QByteArray();
    QTest::newRow("where it hangs up within the size of a message") << message.left(15);
    QTest::newRow("where it hangs up within a message") << message.left(int(message.size()) - 1);
    QTest::newRow("where it sends garbage") << QByteArray("GET / HTTP/1.1\r\n\r\n");
    QTest::newRow("where it speaks another version") << otherVersion;
    QTest::newRow("where a message is of more than 128 MiB")
        << messageOf(128 * 1024 * 1024 + 1, false).left(65536);
    QTest::newRow("so it is in the other order")
        << messageOf(128 * 1024 * 1024 + 1, true).left(65536);
}

//! What came before is handed over.
void BusConnectionTest::lost()
{
    QFETCH(QByteArray, bytes);
    const FakeBus bus([bytes](BusSide &side) {
        welcomeAndWait(side);
        (void)side.send(signal(false).toBytes(3) + signal(true).toBytes(4));
        (void)side.send(bytes);
    });
    BusConnection connection;
    QVERIFY(openAndCall(connection));
    QList<quint32> serials;
    QVERIFY(readToEnd(connection, [&](const Wire::Head &head) { serials.append(head.serial); }));
    QCOMPARE(serials, (QList<quint32>{3, 4}));
    connection.close();
    QVERIFY(!connection.isOpen());
}

void BusConnectionTest::messagesInPieces()
{
    constexpr quint32 count = 500;
    constexpr int mostBody = 200000; // beyond what is usually read at once
    const FakeBus bus([](BusSide &side) {
        welcomeAndWait(side);
        Dice dice(1, 0);
        QByteArray bytes;
        for (quint32 serial = 1; serial <= count; ++serial) {
            WireMessage message = signal(dice.chance(50));
            const int size = dice.below(dice.chance(10) ? mostBody : 300);
            message.signature = size > 0 ? QByteArray("y") : QByteArray();
            message.body = QByteArray(size, char(serial));
            bytes += message.toBytes(serial);
        }
        for (int at = 0; at < bytes.size();) {
            const int size = dice.chance(50) ? dice.between(1, 20) : dice.between(1, 100000);
            (void)side.send(bytes.mid(at, size));
            at += size;
        }
    });
    BusConnection connection;
    QVERIFY(openAndCall(connection));
    quint32 last = 0;
    bool areRight = true;
    Dice dice(1, 0);
    QVERIFY(readToEnd(connection, [&](const Wire::Head &head) {
        const bool isBigEndian = dice.chance(50);
        const int size = dice.below(dice.chance(10) ? mostBody : 300);
        areRight = areRight && head.serial == ++last && head.isBigEndian == isBigEndian
            && head.sender == ":1.7" && head.body == std::string(size_t(size), char(head.serial));
    }));
    QVERIFY(areRight);
    QCOMPARE(last, count);
}

void BusConnectionTest::largestMessage_data()
{
    QTest::addColumn<bool>("isBigEndian");
    QTest::newRow("little-endian") << false;
    QTest::newRow("big-endian") << true;
}

void BusConnectionTest::largestMessage()
{
    QFETCH(bool, isBigEndian);
    constexpr int most = 128 * 1024 * 1024;
    const FakeBus bus([isBigEndian](BusSide &side) {
        welcomeAndWait(side);
        (void)side.send(messageOf(most, isBigEndian));
        (void)side.send(signal(isBigEndian).toBytes(9));
    });
    BusConnection connection;
    QVERIFY(openAndCall(connection));
    QList<size_t> sizes;
    QVERIFY(readToEnd(connection, [&](const Wire::Head &head) { sizes.append(head.body.size()); }));
    QCOMPARE(sizes.size(), 2);
    QVERIFY(sizes[0] > size_t(most) - 200 && sizes[0] < size_t(most));
    QCOMPARE(sizes[1], size_t(0));
}

void BusConnectionTest::descriptorsAreClosed()
{
    constexpr int messages = 500;
    const int passed = memfd_create("passed", MFD_CLOEXEC);
    const int before = openDescriptors();
    {
        const FakeBus bus([passed](BusSide &side) {
            welcomeAndWait(side);
            for (int i = 1; i <= messages; ++i) {
                WireMessage message = signal(false);
                message.descriptors = i % 254; // up to what the kernel takes
                (void)side.send(message.toBytes(quint32(i)), passed, message.descriptors);
            }
        });
        BusConnection connection;
        QVERIFY(openAndCall(connection));
        int count = 0;
        int most = 0;
        QVERIFY(readToEnd(connection, [&](const Wire::Head &) {
            ++count;
            most = std::max(most, openDescriptors());
        }));
        QCOMPARE(count, messages);
        QVERIFY2(most < before + 10, qPrintable(QString::number(most - before)));
    }
    QCOMPARE(openDescriptors(), before);
    close(passed);
}

QTEST_GUILESS_MAIN(BusConnectionTest)
#include "tst_busconnection.moc"

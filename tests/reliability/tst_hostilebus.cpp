// SPDX-License-Identifier: Apache-2.0

// What goes mad on a bus: signals, calls and replies of random types and values, messages
// that are not well-formed, descriptors nobody asked for, the largest messages there can
// be, and a system logger that has stopped reading. The daemon lives, answers, and is
// afterwards as it was before.
//
// SEL_HOSTILE_SIGNALS: how many signals (20000); a tenth as many calls come with them.
// SEL_HOSTILE_VALUES: how many values that cannot be stored come in one signal (100000).
// SEL_SEED: what to begin with (printed); the same seed sends the same messages.
//
// The messages are written byte by byte onto the bus's socket. QtDBus and libdbus refuse most of
// what is sent here before it leaves the sender, the malformed above all.

#include "reliability/processfigures.h"
#include "reliability/randommessages.h"
#include "reliability/wirebus.h"
#include "support/device.h"
#include "support/environment.h"
#include "support/literals.h"
#include "support/syslogsocket.h"
#include "support/testbus.h"

#include <QElapsedTimer>
#include <QTest>
#include <QtEndian>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

constexpr int longestAnswer = 20000; // milliseconds; against a hang, on any machine
constexpr int patience = 60000;
constexpr int maxGrowth = 65536; // KiB
#ifdef __SANITIZE_ADDRESS__
constexpr int sanitizerKeeps = 600000; // KiB of freed memory in its quarantine, and its maps
#else
constexpr int sanitizerKeeps = 0;
#endif

//! A file whose open descriptors can be told from all others.
class PassedFile
{
public:
    PassedFile()
        : descriptor(memfd_create("passedfile", MFD_CLOEXEC))
    {
    }
    ~PassedFile() { close(descriptor); }
    Q_DISABLE_COPY_MOVE(PassedFile)

    [[nodiscard]] int get() const { return descriptor; }
    //! How often a process has it open.
    [[nodiscard]] static int openIn(qint64 process)
    {
        return int(openedBy(process).filter("passedfile"_s).size());
    }

private:
    int descriptor;
};

WireMessage switchOnLogging()
{
    WireMessage message = callOfLogNode("Set", "org.freedesktop.DBus.Properties");
    message.flags = WireMessage::NoReply;
    message.signature = "ssv";
    WireWriter out;
    out.text("local.LogManager");
    out.text("logLocal");
    out.signature("b");
    out.fixed(1, 4);
    message.body = out.bytes;
    return message;
}

//! Sends everything that a peer can get wrong, as fast as the daemon takes it.
class Attacker
{
public:
    Attacker(const QString &busAddress, quint32 seed)
        : address(busAddress)
        , dice(seed, 0)
        , messages(&dice)
        , bus(std::make_unique<WireBus>(busAddress))
    {
    }

    //! To run on a thread of its own.
    void run(int signalCount)
    {
        for (; signals < signalCount && failure.isEmpty(); ++signals) {
            send(messages.signal());
            if (dice.chance(10)) {
                send(messages.call());
                ++calls;
            }
            if (dice.chance(1)) {
                send(messages.answer());
                ++answers;
                sendMalformed();
            }
            if (signals % roundTripEvery == 0) {
                waitForDaemon();
            }
        }
        waitForDaemon();
        isDone = true;
    }

    QString failure;
    std::atomic<bool> isDone = false;
    int signals = 0;
    int calls = 0;
    int answers = 0;
    int malformed = 0;
    int hungUp = 0; //!< of the malformed, where the bus ended the connection

private:
    static constexpr int roundTripEvery = 50;

    void send(const WireMessage &message)
    {
        if (!bus->send(message, file.get()) && failure.isEmpty()) {
            failure = "the bus hung up at signal %1"_s.arg(signals);
        }
    }

    //! Otherwise messages would only queue up: a daemon that is late is not one that hangs.
    void waitForDaemon()
    {
        send(switchOnLogging()); // a call may have switched it off
        const quint32 serial = bus->nextSerial();
        if (!bus->sendBytes(questionForMinimum().toBytes(serial))
            || !bus->waitFor(serial, patience)) {
            failure = "no answer after signal %1"_s.arg(signals);
        }
    }

    void sendMalformed()
    {
        WireBus victim(address); // the bus ends most of these connections
        const WireMessage original = dice.chance(50) ? messages.signal() : messages.call();
        QByteArray bytes = original.toBytes(victim.nextSerial());
        ++malformed;
        if (dice.chance(30)) {
            (void)victim.sendBytes(bytes.left(dice.below(int(bytes.size()))));
            return; // and gone in the middle of a message
        }
        for (int flips = dice.between(1, 4); flips > 0; --flips) {
            const int at = dice.below(int(bytes.size()));
            // With other sizes the bus would wait for more, which is no message at all.
            if ((at < 4 || at >= 8) && (at < 12 || at >= 16)) {
                bytes[at] = char(bytes[at] ^ (1 << dice.below(8)));
            }
        }
        const quint32 serial = victim.nextSerial();
        if (!victim.sendBytes(bytes, file.get(), original.descriptors)
            || !victim.sendBytes(questionForMinimum().toBytes(serial))
            || !victim.waitFor(serial, longestAnswer)) {
            ++hungUp;
        }
    }

    QString address;
    Dice dice;
    RandomMessages messages;
    std::unique_ptr<WireBus> bus;
    PassedFile file;
};

//! How many records a file holds, -1 when it is not made of whole records.
int wholeRecordsIn(const QByteArray &file)
{
    int count = 0;
    auto end = file.size();
    while (end > 0) {
        if (end < 31 || file[end - 3] != '\n') {
            return -1;
        }
        end -= 2 + qFromLittleEndian<quint16>(file.constData() + end - 2);
        ++count;
    }
    return end == 0 ? count : -1;
}

int unhandledTypesIn(const QList<QByteArray> &syslogLines)
{
    return int(std::count_if(syslogLines.cbegin(), syslogLines.cend(), [](const QByteArray &line) {
        return line.endsWith(": Unhandled type");
    }));
}

QStringList logFileNames()
{
    return QDir("/srv/public/log"_s).entryList({"zib*.log"_s}, QDir::Files);
}

} // namespace

class HostileBusTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void randomMessages();
    void passedDescriptorsAreClosed();
    void largestMessages_data();
    void largestMessages();
    void eventLargerThanARecord();
    void stoppedSystemLogger();

private:
    void answerDuring(const Attacker &attacker);
    void checkFiles();
    void checkOneEvent();
    void checkMemory(int before);

    TestBus bus;
    std::unique_ptr<Device> device;
    qint64 process = 0;
    qint64 longest = 0; // milliseconds
};

void HostileBusTest::init()
{
    device = std::make_unique<Device>();
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    device->config.values.insert("SystemeventLogNetwork"_s, "true"_s);
    device->config.values.insert("SystemeventLogNetworkaddress"_s, "127.0.0.1"_s);
    QVERIFY(device->start());
    process = device->processId();
    longest = 0;
    QVERIFY(device->fillBundle());
}

void HostileBusTest::cleanup()
{
    device.reset();
}

//! Asks without a break, as a client does that knows nothing of the others.
void HostileBusTest::answerDuring(const Attacker &attacker)
{
    while (!attacker.isDone) {
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(device->call("getMinLogNr"_s).type(), QDBusMessage::ReplyMessage);
        longest = std::max(longest, timer.elapsed());
    }
}

void HostileBusTest::checkFiles()
{
    int records = 0;
    const QStringList names = logFileNames();
    for (const QString &name : names) {
        QFile file("/srv/public/log/"_s + name);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const int found = wholeRecordsIn(file.readAll());
        QVERIFY2(found >= 0, qPrintable(name));
        records += found;
    }
    QVERIFY(records > 0);
    qInfo("%d whole records in %d files", records, int(names.size()));
}

void HostileBusTest::checkOneEvent()
{
    device->change("/power/supply"_s, 1001, {true, 4711});
    QVERIFY(device->fillBundle());
    QVERIFY(device->json().contains("\"msg\":\"Supply mains 1 at 4711 percent\"}"_s));
}

void HostileBusTest::checkMemory(int before)
{
    const int bound = before + maxGrowth + sanitizerKeeps;
    const auto now = [this] { return memoryOf(process, "VmRSS"); };
    QTRY_VERIFY_WITH_TIMEOUT(now() <= bound, busPatience);
    qInfo("memory: %d KiB before, at most %d, %d after; longest answer %lld ms", before,
          memoryOf(process, "VmHWM"), now(), longest);
}

void HostileBusTest::randomMessages()
{
    const int count = numberFromEnvironment("SEL_HOSTILE_SIGNALS", 20000);
    const auto seed = quint32(numberFromEnvironment("SEL_SEED", 1));
    qInfo("SEL_HOSTILE_SIGNALS=%d SEL_SEED=%u", count, seed);
    const int before = memoryOf(process, "VmRSS");
    const quint64 firstNumber = device->result("getMaxLogNr"_s).toULongLong();

    Attacker attacker(bus.address(), seed);
    std::thread thread([&] { attacker.run(count); });
    answerDuring(attacker);
    thread.join();

    QCOMPARE(attacker.failure, QString());
    QVERIFY(device->isRunning());
    QCOMPARE(device->processId(), process);
    QVERIFY(longest < longestAnswer);
    qInfo("%d signals, %d calls, %d replies, %d malformed (%d of them ended by the bus)",
          attacker.signals, attacker.calls, attacker.answers, attacker.malformed, attacker.hungUp);
    QVERIFY(device->fillBundle());
    checkFiles();
    QVERIFY(device->setProperty("logtail"_s, 10));
    checkOneEvent();
    const quint64 stored = device->result("getMaxLogNr"_s).toULongLong() - firstNumber;
    qInfo("%llu events stored", stored);
    QVERIFY(stored > quint64(count / 4)); // it was listening all the time
    QTRY_COMPARE_WITH_TIMEOUT(PassedFile::openIn(process), 0, busPatience);
    checkMemory(before);
}

void HostileBusTest::passedDescriptorsAreClosed()
{
    constexpr int events = 5000;
    PassedFile file;
    WireBus peer(bus.address());
    // Each is the first, second, third and fourth once: "h", aligned.
    WireMessage message = statusChange(1002, "av", QByteArray("\1h\0\0\0\0\0\0", 8), 1, 4);
    message.descriptors = 4;
    const QStringList before = openedBy(process);
    const quint64 first = device->result("getMaxLogNr"_s).toULongLong();

    for (int i = 1; i <= events; ++i) {
        QVERIFY(peer.send(message, file.get()));
        if (i % 100 == 0) {
            const quint32 serial = peer.nextSerial();
            QVERIFY(peer.sendBytes(questionForMinimum().toBytes(serial)));
            QVERIFY(peer.waitFor(serial, patience));
        }
    }
    QVERIFY(device->fillBundle());
    QVERIFY(device->result("getMaxLogNr"_s).toULongLong() >= first + events); // they got there
    QTRY_COMPARE_WITH_TIMEOUT(PassedFile::openIn(process), 0, busPatience);
    QVERIFY(openedBy(process).size() <= before.size() + 11); // the reader's files
}

void HostileBusTest::largestMessages_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("element");
    QTest::addColumn<int>("alignment");
    QTest::addColumn<int>("size");

    constexpr int largest = 32 * 1024 * 1024 - 1024; // just below the limit of the bus
    constexpr int manyValues = 100000;               // each is worth a warning
    QTest::newRow("bytes") << QByteArray("ay") << QByteArray("x") << 1 << largest;
    QTest::newRow("numbers") << QByteArray("ad") << QByteArray(8, '\x7F') << 8 << largest;
    QTest::newRow("texts") << QByteArray("as") << QByteArray("\3\0\0\0abc\0", 8) << 4 << largest;
    QTest::newRow("structures") << QByteArray("a(tt)") << QByteArray("abcdefghijklmnop") << 8
                                << largest;
    QTest::newRow("values of a type that is not stored")
        << QByteArray("av") << QByteArray("\1y\0x", 4) << 1
        << 4 * numberFromEnvironment("SEL_HOSTILE_VALUES", manyValues);
}

void HostileBusTest::largestMessages()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, element);
    QFETCH(int, alignment);
    QFETCH(int, size);
    const int before = memoryOf(process, "VmRSS");

    WireBus peer(bus.address());
    QElapsedTimer timer;
    timer.start();
    QVERIFY(peer.send(statusChange(1002, type, element, alignment, size / int(element.size()))));
    const quint32 serial = peer.nextSerial();
    QVERIFY(peer.sendBytes(questionForMinimum().toBytes(serial)));
    QVERIFY(peer.waitFor(serial, 10 * patience));
    longest = timer.elapsed();
    checkOneEvent();
    checkMemory(before);
}

/*!
 * A record keeps its length in 16 bits. What lies before the end of a larger one in its
 * file is hidden, and where the way back goes astray in its values, they pass for records
 * with numbers of any size: the range of all numbers may then be too large to answer. A
 * range of known numbers is answered, and all is well once the file is gone.
 */
void HostileBusTest::eventLargerThanARecord()
{
    constexpr int values = 100000;
    const quint64 last = device->result("getMaxLogNr"_s).toULongLong();
    WireBus peer(bus.address());
    QVERIFY(peer.send(statusChange(1002, "av", QByteArray("\1i\0\0abcd", 8), 1, values)));
    const quint32 serial = peer.nextSerial();
    QVERIFY(peer.sendBytes(questionForMinimum().toBytes(serial)));
    QVERIFY(peer.waitFor(serial, patience));

    device->change("/power/supply"_s, 1001, {true, 4711});
    QVERIFY(device->fillBundle());
    const QString answer = device->result("jsonLogfile"_s, {last, last + 1000, "en"_s}).toString();
    QVERIFY(answer.contains("\"msg\":\"Supply mains 1 at 4711 percent\"}"_s));
    qInfo("largest number: %llu", device->result("getMaxLogNr"_s).toULongLong());
    (void)device->call("clearLogfiles"_s);
    checkOneEvent();
}

void HostileBusTest::stoppedSystemLogger()
{
    const SyslogSocket logger;
    const QVariant unstorable = QVariant::fromValue(quint64(1));
    constexpr int warnings = 900; // fewer than are left out, more than its queue holds
    for (int i = 1; i <= warnings; ++i) {
        device->change("/x"_s, 1005, {unstorable});
        if (i % 100 == 0) {
            device->settle();
        }
    }
    checkOneEvent();
    QCOMPARE(device->outputLines("Unhandled type"_s).size(), warnings);

    const auto waiting = unhandledTypesIn(logger.received());
    QVERIFY(waiting > 0);
    QVERIFY2(waiting < warnings, "its queue took everything, so nothing was shown");
    device->change("/x"_s, 1005, {unstorable});
    device->settle();
    QCOMPARE(unhandledTypesIn(logger.received()), 1); // it reads again
}

QTEST_GUILESS_MAIN(HostileBusTest)
#include "tst_hostilebus.moc"

// SPDX-License-Identifier: Apache-2.0

// Events faster than the daemon stores them, on storage as fast as memory and on storage
// whose fsync takes its time: nothing is lost as long as the bus can hold what waits, and
// memory comes back. Past that the daemon lives on and the bus says what it dropped. Speed
// is printed and not judged.
//
// SEL_LOAD_EVENTS  how many events to send (20000; a tenth of it with the slowest
//                  storage), 1000000 for the figures in the documents.
// SEL_LOAD_BURST   MiB of small events at once, with a bus of default limits (34, with one
//                  that holds 32)
// SEL_LOAD_RATE    events a second, instead of as fast as the bus takes them; to see
//                  whether a rate can be sustained.

#include "reliability/floodsender.h"
#include "reliability/processfigures.h"
#include "support/device.h"
#include "support/environment.h"
#include "support/faultydisk.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QScopeGuard>
#include <QTemporaryFile>
#include <QTest>
#include <QtEndian>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include <csignal>
#include <unistd.h>

namespace
{

constexpr int senderCount = 4;
constexpr int textSize = 20;
constexpr int logtail = 100000;    // more files than any count here fills
constexpr int patience = 120000;   // milliseconds without any progress
constexpr int bundleRecords = 100; // more than a bundle holds
constexpr int mebi = 1024 * 1024;

//! Where the records of a file begin, and its end; found by walking backwards.
QList<int> bordersOf(const QByteArray &file)
{
    QList<int> borders{int(file.size())};
    int end = int(file.size());
    while (end >= 2) {
        end -= 2 + qFromLittleEndian<quint16>(file.constData() + end - 2);
        borders.append(end);
    }
    std::reverse(borders.begin(), borders.end());
    return borders;
}

/*!
 * The number of the newest record in the current file, without asking the daemon; 0 where
 * there is none, or the file is just being written.
 */
quint64 newestStored()
{
    const QByteArray file = Device::logFile(0);
    const QList<int> borders = bordersOf(file);
    const auto records = borders.size() - 1;
    if (records == 0 || borders[0] != 0) {
        return 0;
    }
    const auto numberAt
        = [&](auto i) { return qFromLittleEndian<quint64>(file.constData() + borders[i]); };
    const quint64 newest = numberAt(records - 1);
    return newest == numberAt(0) + quint64(records) - 1 ? newest : 0;
}

//! What the log holds of each sender's events: their running numbers, oldest first.
struct Stored {
    QHash<QByteArray, std::vector<int>> events;
    quint64 first = 0; //!< log numbers of the first and the last record
    quint64 last = 0;
    quint64 fillers = 0;
    QString defect; //!< the first thing that is not as it should be
};

//! Takes in a record; false when anything about it is wrong.
bool take(Stored &stored, const char *record, int size, int expectedTextSize)
{
    constexpr int idOffset = 24;
    constexpr int pathOffset = 30;
    const auto number = qFromLittleEndian<quint64>(record);
    if (stored.first == 0) {
        stored.first = number;
    } else if (number != stored.last + 1) {
        return false;
    }
    stored.last = number;
    if (qFromLittleEndian<qint32>(record + idOffset) == Device::fillerId) {
        ++stored.fillers;
        return true;
    }
    const int pathSize = qFromLittleEndian<quint16>(record + pathOffset - 2);
    const int textOffset = pathOffset + pathSize + 2;
    constexpr int endSize = 3;
    if (size != textOffset + expectedTextSize + endSize) {
        return false;
    }
    const QByteArray text(record + textOffset, expectedTextSize);
    const int n = text.left(8).toInt();
    stored.events[QByteArray(record + pathOffset, pathSize)].push_back(n);
    return text == FloodSender::textOf(n, expectedTextSize);
}

Stored readLog(int expectedTextSize)
{
    int oldest = 0;
    while (QFile::exists(Device::logPath(oldest + 1))) {
        ++oldest;
    }
    Stored stored;
    for (int index = oldest; index >= 0; --index) {
        const QByteArray file = Device::logFile(index);
        const QList<int> borders = bordersOf(file);
        for (int i = 0; i + 1 < borders.size(); ++i) {
            if (borders[i] < 0
                || !take(stored, file.constData() + borders[i], borders[i + 1] - borders[i],
                         expectedTextSize)) {
                stored.defect = "%1, byte %2"_s.arg(Device::logPath(index)).arg(borders[i]);
                return stored;
            }
        }
    }
    return stored;
}

//! Several services that have gone mad at once.
class Senders
{
public:
    Senders(const QString &bus, int count, const FloodSender::Flood &each)
    {
        for (int i = 0; i < count; ++i) {
            FloodSender::Flood flood = each;
            flood.path = "/power/supply" + QByteArray::number(i);
            senders.push_back(std::make_unique<FloodSender>(bus, flood));
        }
    }

    [[nodiscard]] int sent() const
    {
        int sum = 0;
        for (const auto &sender : senders) {
            sum += sender->sent();
        }
        return sum;
    }
    [[nodiscard]] bool areFinished() const
    {
        return std::all_of(senders.begin(), senders.end(),
                           [](const auto &sender) { return sender->isFinished(); });
    }
    [[nodiscard]] QString error() const
    {
        for (const auto &sender : senders) {
            if (!sender->error().isEmpty()) {
                return sender->error();
            }
        }
        return {};
    }

private:
    std::vector<std::unique_ptr<FloodSender>> senders;
};

//! What is looked at while events are under way.
struct Watch {
    explicit Watch(const Device &device)
        : daemon(device.processId())
        , bus(QDBusConnection::systemBus().interface()->servicePid("org.freedesktop.DBus"_s))
        , daemonIdle(memoryOf(daemon, "VmRSS"))
        , busIdle(memoryOf(bus, "VmRSS"))
    {
    }

    void look(int sent)
    {
        stored = std::max(stored, newestStored());
        waiting = std::max(waiting, sent - int(stored));
        daemonPeak = std::max(daemonPeak, daemonNow());
        busPeak = std::max(busPeak, memoryOf(bus, "VmRSS") - busIdle);
    }
    [[nodiscard]] int daemonNow() const { return memoryOf(daemon, "VmRSS") - daemonIdle; }

    qint64 daemon;
    qint64 bus;
    int daemonIdle; // KiB
    int busIdle;
    int daemonPeak = 0; //!< all above idle
    int busPeak = 0;
    quint64 stored = 0;
    int waiting = 0;
    qint64 storing = 0; // milliseconds
};

//! A bus whose complaints go to a file: it writes a line for every message it drops.
class LoggedBus
{
public:
    LoggedBus()
    {
        const int errors = dup(STDERR_FILENO);
        if (!log.open() || dup2(log.handle(), STDERR_FILENO) < 0) {
            qFatal("no file for the complaints of the bus");
        }
        bus.emplace(); // takes this process's standard error along
        (void)dup2(errors, STDERR_FILENO);
        (void)close(errors);
    }

    [[nodiscard]] QString address() const { return bus->address(); }
    void limit(const QString &name, int most) { bus->limit(name, most); }
    //! How many signals the bus has dropped.
    [[nodiscard]] int dropped() const
    {
        QFile file(log.fileName());
        if (!file.open(QIODevice::ReadOnly)) {
            return 0;
        }
        const QList<QByteArray> lines = file.readAll().split('\n');
        return int(std::count_if(lines.begin(), lines.end(), [](const QByteArray &line) {
            return line.contains("full message queue") && line.contains("type=\"signal\"");
        }));
    }

private:
    QTemporaryFile log;
    std::optional<TestBus> bus;
};

//! Who has the daemon's name on the bus.
QString ownerOfName()
{
    return QDBusConnection::systemBus().interface()->serviceOwner("com.tovel.systemeventlogger"_s);
}

} // namespace

class LoadTest : public QObject
{
    Q_OBJECT

public:
    static void initMain()
    {
        qputenv("QTEST_FUNCTION_TIMEOUT", "1500000"); // a million events take their time
    }

private Q_SLOTS:
    void nothingIsLost_data();
    void nothingIsLost();
    void pastWhatFits_data();
    void pastWhatFits();
    void burstOfSmallEvents();

private:
    [[nodiscard]] static bool store(Watch &watch, const Senders &senders, int events);
    static void verifyMemory(const Watch &watch);

    LoggedBus bus;
};

void LoadTest::nothingIsLost_data()
{
    QTest::addColumn<int>("fsyncDelay"); // microseconds
    QTest::addColumn<int>("events");

    const int events = numberFromEnvironment("SEL_LOAD_EVENTS", 20000) / 100 * 100;
    QTest::newRow("storage as fast as memory") << 0 << events;
    QTest::newRow("an fsync takes 5 ms") << 5000 << events;
    QTest::newRow("an fsync takes 50 ms") << 50000 << events / 10;
}

void LoadTest::nothingIsLost()
{
    QFETCH(const int, fsyncDelay);
    QFETCH(const int, events);
    std::optional<FaultyDisk> disk;
    if (fsyncDelay > 0) {
        disk.emplace();
        (*disk)->fsyncDelay = fsyncDelay;
    }
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    device.config.values.insert("SystemeventLogtail"_s, QString::number(logtail));
    QVERIFY(device.start());

    Watch watch(device);
    const int rate = numberFromEnvironment("SEL_LOAD_RATE", 0);
    const Senders senders(bus.address(), senderCount,
                          {{}, events / senderCount, textSize, rate / senderCount});
    QVERIFY(store(watch, senders, events));
    QCOMPARE(senders.error(), QString());
    verifyMemory(watch);
    device.settle();
    QVERIFY(device.fillBundle());

    const Stored stored = readLog(textSize);
    QCOMPARE(stored.defect, QString());
    QCOMPARE(stored.first, 1ULL);
    QCOMPARE(int(stored.events.size()), senderCount);
    for (const std::vector<int> &numbers : stored.events) {
        QCOMPARE(int(numbers.size()), events / senderCount);
        for (int i = 0; i < int(numbers.size()); ++i) {
            QCOMPARE(numbers[size_t(i)], i);
        }
    }
    QCOMPARE(bus.dropped(), 0);
}

//! Waits until all but the last bundle are on disk, as long as there is progress.
bool LoadTest::store(Watch &watch, const Senders &senders, int events)
{
    QElapsedTimer clock;
    clock.start();
    qint64 sending = 0;
    quint64 before = 0;
    const auto progress = [&] {
        watch.look(senders.sent());
        if (sending == 0 && senders.areFinished()) {
            sending = clock.elapsed();
        }
        return watch.stored > before;
    };
    while (watch.stored + bundleRecords < quint64(events) || !senders.areFinished()) {
        before = watch.stored;
        if (!QTest::qWaitFor(progress, patience)) {
            return false;
        }
    }
    watch.storing = clock.elapsed();
    qInfo("%d events: sent in %lld ms, stored in %lld ms, %lld a second; up to %d waiting; "
          "memory above idle: daemon %d KiB, bus %d KiB",
          events, sending, watch.storing, qint64(watch.stored) * 1000 / watch.storing,
          watch.waiting, watch.daemonPeak, watch.busPeak);
    return true;
}

//! The daemon takes no more than its buffer, and its memory comes back a second after that.
void LoadTest::verifyMemory(const Watch &watch)
{
    constexpr int allowed = mebi / 2 / 1024;
    constexpr int soon = 3000; // milliseconds: on a busy machine
    int lowest = watch.daemonNow();
    qint64 back = -1;
    QElapsedTimer clock;
    clock.start();
    QElapsedTimer unchanged;
    unchanged.start();
    (void)QTest::qWaitFor(
        [&] {
            if (watch.daemonNow() < lowest) {
                lowest = watch.daemonNow();
                unchanged.restart();
            }
            if (back < 0 && lowest <= allowed) {
                back = clock.elapsed();
            }
            return unchanged.elapsed() > soon; // for the figure below
        },
        patience);
    qInfo("idle: %d KiB before, %d KiB more after; back within %lld ms", watch.daemonIdle, lowest,
          back);
#ifndef __SANITIZE_ADDRESS__ // which keeps freed memory for a while
    QVERIFY(watch.daemonPeak < (48 + 1) * mebi / 1024);
    QVERIFY(back >= 0 && back < soon);
#endif
}

void LoadTest::pastWhatFits_data()
{
    QTest::addColumn<int>("senders");
    QTest::addColumn<int>("fits"); // MiB
    QTest::addColumn<bool>("dropped");

    QTest::newRow("one sender is made to wait") << 1 << 170 << false;
    // They may fill the bus before the daemon has read anything.
    QTest::newRow("of several senders the bus drops the newest events") << 4 << 120 << true;
}

/*!
 * Storage hangs while more comes than the daemon (48 MiB of what counts) and a bus with
 * default limits (127 MiB for a sender, and for a receiver) can hold together.
 */
void LoadTest::pastWhatFits()
{
    QFETCH(const int, senders);
    QFETCH(const int, fits);
    QFETCH(const bool, dropped);
    constexpr int bigText = 30000;
    const int enough = fits * mebi / bigText;
    constexpr int events = 224 * mebi / bigText / senderCount * senderCount;
    FaultyDisk disk;
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    QVERIFY(device.start());
    const QString owner = ownerOfName();
    const int droppedBefore = bus.dropped();

    Watch watch(device);
    disk->fsyncDelay = 2000000;
    const Senders flood(bus.address(), senders, {{}, events / senders, bigText});
    QVERIFY(QTest::qWaitFor(
        [&] {
            watch.look(flood.sent());
            return flood.areFinished() || (!dropped && flood.sent() > enough);
        },
        patience));
    disk->fsyncDelay = 0;
    QTRY_VERIFY_WITH_TIMEOUT(flood.areFinished(), patience);
    QCOMPARE(flood.error(), QString());

    // As long as the queue is full, calls are refused; then they are answered in their turn.
    QVERIFY(QTest::qWaitFor([&] { return device.isServing(); }, patience));
    QVERIFY(device.fillBundle());
    const Stored stored = readLog(bigText);
    QCOMPARE(stored.defect, QString());
    for (const std::vector<int> &numbers : stored.events) {
        QVERIFY(std::is_sorted(numbers.begin(), numbers.end(), std::less_equal<>()));
    }
    const int kept = int(stored.last - stored.fillers);
    qInfo("%d of %d events kept; daemon %d KiB above idle", kept, events, watch.daemonPeak);
    QVERIFY(kept > enough);
    QCOMPARE(kept < events, dropped);
    QTRY_COMPARE(bus.dropped() - droppedBefore, events - kept);
    QCOMPARE(ownerOfName(), owner); // it was never thrown out
}

/*!
 * A burst that the bus cannot hold alone, and storage whose fsync takes its
 * time until all is sent.
 */
void LoadTest::burstOfSmallEvents()
{
    const int wanted = numberFromEnvironment("SEL_LOAD_BURST", 0);
    const int burst = wanted > 0 ? wanted : 34; // MiB
    constexpr int senderField = 16;
    constexpr int keptFiles = 20; // so that memory for many of them is not seen as what stays
    const int size = FloodSender::messageSize({"/power/supply0", 1, textSize}) + senderField;
    const int events = (burst * mebi / size / senderCount + 1) * senderCount;
    if (wanted == 0) {
        bus.limit("max_outgoing_bytes"_s, 32 * mebi);
    }
    const auto unlimited = qScopeGuard([this] { bus.limit({}, 0); });
    FaultyDisk disk;
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    device.config.values.insert("SystemeventLogtail"_s, QString::number(keptFiles));
    QVERIFY(device.start());
    const int droppedBefore = bus.dropped();

    Watch watch(device);
    disk->fsyncDelay = 5000;
    const Senders senders(bus.address(), senderCount, {{}, events / senderCount, textSize});
    const auto areFinished = [&] {
        watch.look(senders.sent());
        return senders.areFinished();
    };
    QVERIFY(QTest::qWaitFor(areFinished, patience));
    disk->fsyncDelay = 0;
    QCOMPARE(senders.error(), QString());
    qInfo("%lld of %d events of %d bytes were stored when the last was sent", qint64(watch.stored),
          events, size);
    QCOMPARE(bus.dropped() - droppedBefore, 0);
    QVERIFY(store(watch, senders, events));
    verifyMemory(watch);
    QVERIFY(device.fillBundle());
    const Stored stored = readLog(textSize);
    QCOMPARE(stored.defect, QString());
    QCOMPARE(int(stored.last - stored.fillers), events);
}

QTEST_GUILESS_MAIN(LoadTest)
#include "tst_load.moc"

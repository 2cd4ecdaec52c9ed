// SPDX-License-Identifier: Apache-2.0

// A clock that is wrong, or jumps while the daemon runs. The wall clock is the test's own
// and stands still between its settings; what timers go by is the real one.

#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QTest>
#include <QUdpSocket>
#include <QtEndian>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

namespace
{

constexpr qint64 hour = 3600;
constexpr qint64 noon = 1717243200; // 2024-06-01 12:00:00
constexpr quint16 syslogPort = 514;

//! The library that lends a process another clock; null where there is none.
QString clockLibrary()
{
    QStringList folders{"/usr/lib/faketime"_s, "/usr/lib64/faketime"_s};
    const QStringList architectures
        = QDir("/usr/lib"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &architecture : architectures) {
        folders.append("/usr/lib/"_s + architecture + "/faketime"_s);
    }
    for (const QString &folder : std::as_const(folders)) {
        QString path = folder + "/libfaketime.so.1"_s;
        if (QFile::exists(path)) {
            return path;
        }
    }
    return {};
}

//! The wall clock of every process started while it lives.
class WallClock
{
public:
    WallClock()
    {
        setText("2024-06-01 12:00:00"_s);
        qputenv("LD_PRELOAD", clockLibrary().toLocal8Bit());
        qputenv("FAKETIME_TIMESTAMP_FILE", path().toLocal8Bit());
        qputenv("FAKETIME_NO_CACHE", "1");
        qputenv("FAKETIME_DONT_FAKE_MONOTONIC", "1");
        qputenv("NO_FAKE_STAT", "1");
        // The sanitizers' library wants to be the first one loaded, without a reason here.
        qputenv("ASAN_OPTIONS", "verify_asan_link_order=0");
    }
    ~WallClock()
    {
        for (const char *name : {"LD_PRELOAD", "FAKETIME_TIMESTAMP_FILE", "FAKETIME_NO_CACHE",
                                 "FAKETIME_DONT_FAKE_MONOTONIC", "NO_FAKE_STAT", "ASAN_OPTIONS"}) {
            qunsetenv(name);
        }
    }
    Q_DISABLE_COPY_MOVE(WallClock)

    //! "yyyy-MM-dd hh:mm:ss", in UTC.
    void setText(const QString &time) const
    {
        QSaveFile file(path()); // replaced at once: it may be read at any time
        if (!file.open(QIODevice::WriteOnly) || file.write(time.toLatin1()) < 0 || !file.commit()) {
            qFatal("cannot set the clock");
        }
    }
    void set(qint64 seconds) const
    {
        setText(QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC).toString("yyyy-MM-dd hh:mm:ss"_s));
    }

private:
    [[nodiscard]] QString path() const { return folder.filePath("now"_s); }

    QTemporaryDir folder;
};

struct StoredRecord {
    quint64 logNr = 0;
    quint64 seconds = 0;
    quint32 microseconds = 0;
};

QList<StoredRecord> recordsOf(const QByteArray &file)
{
    QList<StoredRecord> records;
    const QList<RecordBytes::Stored> stored = RecordBytes::storedIn(file);
    for (const RecordBytes::Stored &record : stored) {
        const char *const bytes = file.constData() + record.begin;
        records.append({record.logNr, qFromLittleEndian<quint64>(bytes + 8),
                        qFromLittleEndian<quint32>(bytes + 16)});
    }
    return records;
}

QList<StoredRecord> allRecords()
{
    QList<StoredRecord> records;
    for (int index = 10; index >= 0; --index) {
        records += recordsOf(Device::logFile(index));
    }
    return records;
}

} // namespace

class ClockTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void instants_data();
    void instants();
    void jumpsAcrossRotations();
    void sameNumberInTwoFiles_data();
    void sameNumberInTwoFiles();
    void flushTimerIgnoresTheWallClock();

private:
    [[nodiscard]] QByteArray datagramOf(int id, const QVariantList &values);
    static void setModified(int index, qint64 seconds);

    TestBus bus;
    std::unique_ptr<WallClock> clock;
    std::unique_ptr<Device> device;
    std::unique_ptr<QUdpSocket> receiver;
};

void ClockTest::init()
{
    clock = std::make_unique<WallClock>();
    device = std::make_unique<Device>();
    device->config.values = {{"SystemeventLogLocal"_s, "true"_s},
                             {"SystemeventLogNetwork"_s, "true"_s},
                             {"SystemeventLogNetworkaddress"_s, "127.0.0.1"_s}};
    receiver = std::make_unique<QUdpSocket>();
    QVERIFY(receiver->bind(QHostAddress("127.0.0.1"_s), syslogPort));
}

void ClockTest::cleanup()
{
    receiver.reset();
    device.reset();
    clock.reset();
}

//! The one datagram that a status change brings about.
QByteArray ClockTest::datagramOf(int id, const QVariantList &values)
{
    const auto take = [this] {
        QByteArray datagram(int(receiver->pendingDatagramSize()), '\0');
        receiver->readDatagram(datagram.data(), datagram.size());
        return datagram;
    };
    while (receiver->hasPendingDatagrams()) {
        (void)take(); // of an earlier change
    }
    device->change("/p"_s, id, values);
    device->settle();
    const QByteArray datagram = receiver->hasPendingDatagrams() ? take() : QByteArray("none");
    return receiver->hasPendingDatagrams() ? QByteArray("more than one") : datagram;
}

void ClockTest::instants_data()
{
    QTest::addColumn<QString>("time");
    QTest::addColumn<quint64>("seconds"); // their absolute value
    const auto row = [](const char *name, const char *time, quint64 seconds) {
        QTest::newRow(name) << QString::fromLatin1(time) << seconds;
    };
    row("a day before 1970 counts as one after", "1969-12-31 00:00:00", 86400);
    row("1901, where 31 bits end", "1901-12-13 20:45:51", 2147483649);
    row("the beginning of 1970", "1970-01-01 00:00:00", 0);
    row("the last second of 31 bits", "2038-01-19 03:14:07", 2147483647);
    row("the first second beyond 31 bits", "2038-01-19 03:14:08", 2147483648);
    row("the last second of 32 bits", "2106-02-07 06:28:15", 4294967295);
    row("the first second beyond 32 bits", "2106-02-07 06:28:16", 4294967296);
    row("the last second of four-digit years", "9999-12-31 23:59:59", 253402300799);
}

void ClockTest::instants()
{
    QFETCH(QString, time);
    QFETCH(quint64, seconds);
    clock->setText(time);
    QVERIFY(device->start());
    const QByteArray datagram = datagramOf(1002, {"now"_s});
    const QString stamp = "<30> 1 "_s + QString(time).replace(QLatin1Char(' '), QLatin1Char('T'));
    QVERIFY2(datagram.startsWith(stamp.toLatin1() + "  zib - 1002 - "), datagram.constData());
    QVERIFY(device->fillBundle());

    const QList<StoredRecord> records = recordsOf(Device::logFile(0));
    QVERIFY(records.size() > 1);
    for (int i = 0; i < int(records.size()); ++i) {
        QCOMPARE(records[i].logNr, quint64(i) + 1);
        QCOMPARE(records[i].seconds, seconds);
        QCOMPARE(records[i].microseconds, 0U);
    }
    QVERIFY(device->json().startsWith(
        "[{\"eventnr\":1,\"secs\":\"%1.0\",\"eventtype\":1002,"_s.arg(seconds)));

    // The next start goes on behind them.
    device->stop();
    QVERIFY(device->start());
    QVERIFY(device->fillBundle());
    QCOMPARE(allRecords().at(records.size()).logNr, quint64(records.size()) + 1);
}

//! What a device's files look like whose clock jumped: of any age, whatever their order.
void ClockTest::jumpsAcrossRotations()
{
    const QList<qint64> times{noon, noon - hour, noon + hour, noon - 2 * hour, noon + 2 * hour};
    constexpr int eventsEach = 110; // of 1,000 characters: more than a file
    const QString text(1000, QLatin1Char('x'));
    QVERIFY(device->start());
    for (const qint64 time : times) {
        clock->set(time);
        const QString stamp = QDateTime::fromSecsSinceEpoch(time, Qt::UTC).toString("Thh:mm:ss"_s);
        QVERIFY(datagramOf(1003, {}).left(30).contains(stamp.toLatin1()));
        for (int i = 1; i < eventsEach; ++i) {
            device->change("/p"_s, 1002, {text});
        }
        device->settle();
    }
    QVERIFY(device->fillBundle());
    QVERIFY(!Device::logFile(int(times.size())).isEmpty()); // every jump with a rotation

    const QList<StoredRecord> records = allRecords();
    QVERIFY(records.size() > times.size() * eventsEach);
    QStringList expected;
    for (int i = 0; i < int(records.size()); ++i) {
        QCOMPARE(records[i].logNr, quint64(i) + 1);
        const int phase = std::min(i / eventsEach, int(times.size()) - 1);
        QCOMPARE(qint64(records[i].seconds), times[phase]);
        expected.append("{\"eventnr\":%1,\"secs\":\"%2.0\""_s.arg(i + 1).arg(times[phase]));
    }

    // The answer goes by the numbers, whichever file seems to be the newest.
    for (const qint64 direction : {1, -1, 0}) {
        device->stop();
        for (int index = 0; index <= int(times.size()); ++index) {
            setModified(index, noon + direction * index * hour);
        }
        QVERIFY(device->start());
        const QStringList elements = device->json().mid(1).split(",\n"_s);
        QCOMPARE(elements.size(), expected.size());
        for (int i = 0; i < int(expected.size()); ++i) {
            QVERIFY2(elements[i].startsWith(expected[i]), qPrintable(elements[i].left(60)));
        }
    }
    QVERIFY(device->fillBundle());
    QCOMPARE(allRecords().at(records.size()).logNr, quint64(records.size()) + 1);
}

void ClockTest::setModified(int index, qint64 seconds)
{
    QFile file(Device::logPath(index));
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC),
                             QFileDevice::FileModificationTime));
}

void ClockTest::sameNumberInTwoFiles_data()
{
    QTest::addColumn<qint64>("currentModified"); // the older file at noon
    QTest::addColumn<qint64>("shown");
    constexpr qint64 ofCurrent = 1;
    constexpr qint64 ofOlder = 2;
    QTest::newRow("the file modified first is shown: the older one") << noon + hour << ofOlder;
    QTest::newRow("after the clock jumped back: the current one") << noon - hour << ofCurrent;
    QTest::newRow("at the same second: the higher index") << noon << ofOlder;
}

//! The one thing that the files' times decide.
void ClockTest::sameNumberInTwoFiles()
{
    QFETCH(qint64, currentModified);
    QFETCH(qint64, shown);
    RecordBytes::Fields fields;
    fields.logNr = 7;
    fields.seconds = 1;
    Device::writeLogFile(0, RecordBytes::record(fields));
    fields.seconds = 2;
    Device::writeLogFile(1, RecordBytes::record(fields));
    setModified(0, currentModified);
    setModified(1, noon);
    QVERIFY(device->start());
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), 7ULL);
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), 7ULL);
    QVERIFY(device->json().startsWith("[{\"eventnr\":7,\"secs\":\"%1."_s.arg(shown)));
}

//! A timer that went by the wall clock would fire at the first jump, or never after the second.
void ClockTest::flushTimerIgnoresTheWallClock()
{
    constexpr int flushMilliseconds = 30000;
    constexpr int grain = 100; // how early the timer may be
    QVERIFY(device->start());
    QElapsedTimer timer;
    timer.start();
    const QList<qint64> times{noon, noon + hour, noon - hour};
    for (const qint64 time : times) {
        clock->set(time);
        device->change("/p"_s, 1003, {});
        device->settle();
        device->settle(); // a timer that is due has its turn before the next message
        QVERIFY(Device::logFile(0).isEmpty());
    }
    QTRY_VERIFY_WITH_TIMEOUT(!Device::logFile(0).isEmpty(), 4 * flushMilliseconds);
    QVERIFY2(timer.elapsed() >= flushMilliseconds - grain, "the timer is early");
    const QList<StoredRecord> records = recordsOf(Device::logFile(0));
    QCOMPARE(records.size(), times.size());
    for (int i = 0; i < int(times.size()); ++i) {
        QCOMPARE(qint64(records[i].seconds), times[i]);
    }
}

int main(int argc, char *argv[])
{
    if (clockLibrary().isNull()) {
        std::puts("skipped: libfaketime is missing");
        return 77;
    }
    qputenv("TZ", "UTC"); // datagrams carry local time
    const QCoreApplication application(argc, argv);
    ClockTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_clock.moc"

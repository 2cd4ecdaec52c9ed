// SPDX-License-Identifier: Apache-2.0

// Whatever a sender emits or a client asks, the daemon writes a bounded number of lines, of
// bounded length, to standard error and to the system's logger, and says how many more
// there would have been.
//
// SEL_FLOOD_VALUES: how many values that cannot be stored come in one signal (5000).
// SEL_FLOOD_NESTED: how many deeply nested values come in one signal (5000).

#include "reliability/processfigures.h"
#include "reliability/wirebus.h"
#include "support/device.h"
#include "support/environment.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/syslogsocket.h"
#include "support/testbus.h"

#include <QElapsedTimer>
#include <QTest>

#include <algorithm>
#include <memory>

namespace
{

constexpr int most = 1000;        // lines of a kind in a minute
constexpr int longest = 4096 + 3; // characters of a line, and the mark of one that was cut
constexpr int fewBytes = 500000;  // of all lines, where none is long
constexpr int patience = 600000;  // milliseconds; against a hang, on any machine

//! A status change with so many like values.
WireMessage manyValues(const QByteArray &value, int count)
{
    return statusChange(1002, "av", value, 1, count);
}

//! A byte, which is never stored.
QByteArray unstorable()
{
    return {"\1y\0x", 4};
}

//! The same as deep as the bus lets it through.
QByteArray nested()
{
    return QByteArray("\1v\0", 3).repeated(60) + unstorable();
}

} // namespace

class MessageFloodTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void valuesThatCannotBeStored();
    void nestedValues();
    void longValues();
    void surplusArgumentsOfAWholeLog();
    void writtenProperties_data();
    void writtenProperties();

private:
    void send(const WireMessage &message);
    void hearSyslog();
    [[nodiscard]] QStringList lines() const { return device->outputLines(QString()); }
    [[nodiscard]] int count(const QString &beginning) const;

    TestBus bus;
    SyslogSocket logger;
    QStringList logged; // behind the identity
    std::unique_ptr<Device> device;
};

void MessageFloodTest::init()
{
    device = std::make_unique<Device>();
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    (void)logger.received();
    logged.clear();
}

void MessageFloodTest::cleanup()
{
    device.reset();
}

void MessageFloodTest::hearSyslog()
{
    const QByteArray identity = " com.tovel.systemeventlogger: ";
    const QList<QByteArray> received = logger.received();
    for (const QByteArray &line : received) {
        const auto begin = line.indexOf(identity) + identity.size();
        logged.append(QString::fromUtf8(line.mid(begin)));
    }
}

//! Sends a message and waits until it has been processed.
void MessageFloodTest::send(const WireMessage &message)
{
    WireBus peer(bus.address());
    QVERIFY(peer.send(message));
    const quint32 serial = peer.nextSerial();
    QVERIFY(peer.sendBytes(questionForMinimum().toBytes(serial)));
    QVERIFY(peer.waitFor(serial, patience));
    hearSyslog();
}

int MessageFloodTest::count(const QString &beginning) const
{
    const QStringList all = lines();
    return int(std::count_if(all.cbegin(), all.cend(),
                             [&](const QString &line) { return line.startsWith(beginning); }));
}

//! The one test that waits until the minute is over.
void MessageFloodTest::valuesThatCannotBeStored()
{
    constexpr int messages = 200;
    const int values = numberFromEnvironment("SEL_FLOOD_VALUES", 5000);
    const QString unhandled = "Unhandled type"_s;
    QVERIFY(device->start());
    send(manyValues(unstorable(), 10));
    QCOMPARE(logged.count(unhandled), 10);
    QCOMPARE(count(unhandled), 10);

    const qint64 before = processorTimeOf(device->processId());
    for (int i = 0; i < messages; ++i) {
        send(manyValues(unstorable(), values));
    }
    qInfo("%d messages of %d values: %lld ms of processor time, %d bytes", messages, values,
          processorTimeOf(device->processId()) - before, int(device->output().size()));
    QCOMPARE(count(unhandled), most);
    QVERIFY(logged.size() <= most); // its queue may have been full
    QCOMPARE(logged.count(unhandled), logged.size());

    const QString report
        = "Messages left out within a minute that begin \"Unhandled type\": %1"_s.arg(
            10 + messages * values - most);
    QTRY_COMPARE_WITH_TIMEOUT(lines().count(report), 1, busPatience); // by itself
    hearSyslog();
    QCOMPARE(logged.count(report), 1);
    QCOMPARE(count(unhandled), most);
    QVERIFY(device->output().size() < fewBytes);

    send(manyValues(unstorable(), 10)); // a new minute
    QCOMPARE(count(unhandled), most + 10);
}

void MessageFloodTest::nestedValues()
{
    const int values = numberFromEnvironment("SEL_FLOOD_NESTED", 5000);
    QVERIFY(device->start());
    const qint64 before = processorTimeOf(device->processId());
    send(manyValues(nested(), values));
    qInfo("%d values: %lld ms of processor time, %d bytes", values,
          processorTimeOf(device->processId()) - before, int(device->output().size()));

    QCOMPARE(count("SystemeventArgument::lookupVariant( QVariant("_s), most);
    QVERIFY(device->output().size() < fewBytes);
    QVERIFY(device->setProperty("logNetwork"_s, true)); // other kinds still pass
    QVERIFY(device->setProperty("logNetwork"_s, false));
    QVERIFY(device->setProperty("logLocal"_s, false));
    QCOMPARE(count("systemeventlogger: stopped listening on dbus listening: false"_s), 1);
}

void MessageFloodTest::longValues()
{
    constexpr int length = 1000000;
    constexpr int messages = 20;
    QVERIFY(device->start());
    WireWriter out;
    out.signature("v");
    out.signature("ay");
    const WireWriter::Array array = out.beginArray(1);
    out.bytes += QByteArray(length, '\x9C');
    out.endArray(array);
    for (int i = 0; i < messages; ++i) {
        send(manyValues(out.bytes, 1));
    }
    const QStringList shown = device->outputLines("SystemeventArgument::lookupVariant"_s);
    QCOMPARE(shown.size(), messages);
    for (const QString &line : shown) {
        QVERIFY(line.startsWith(
            "SystemeventArgument::lookupVariant( QVariant(QByteArray, \"\\x9C\\x9C"_s));
        QVERIFY(line.endsWith("..."_s));
        QVERIFY(line.size() <= longest);
    }
}

void MessageFloodTest::surplusArgumentsOfAWholeLog()
{
    constexpr int records = 2500;
    QByteArray file;
    for (int i = 1; i <= records; ++i) {
        RecordBytes::Fields fields;
        fields.logNr = quint64(i);
        fields.eventId = 1005;
        fields.values = RecordBytes::number(quint64(i), 8);
        file += RecordBytes::record(fields);
    }
    Device::writeLogFile(1, file);
    QVERIFY(device->start());
    const QString surplus = "QString::arg: Argument missing: \"No placeholder\" , "_s;
    QCOMPARE(device->json().count("No placeholder"_s), records);
    hearSyslog();
    QCOMPARE(device->json().count("No placeholder"_s), records);
    QCOMPARE(count(surplus), most);
    QCOMPARE(lines().count(surplus + QString::number(most)), 1); // the text is Qt's
    QVERIFY(logged.filter(surplus).size() <= most);
}

void MessageFloodTest::writtenProperties_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QVariantList>("values"); // in turn
    QTest::addColumn<QString>("message");

    QTest::newRow("the subscription")
        << "logLocal"_s << QVariantList{false, true} << "systemeventlogger: "_s;
    QTest::newRow("files opened") << "logtail"_s << QVariantList{10} << "opening file: "_s;
}

void MessageFloodTest::writtenProperties()
{
    QFETCH(QString, property);
    QFETCH(QVariantList, values);
    QFETCH(QString, message);
    QVERIFY(device->start());
    for (int i = 0; i < most + 200; ++i) {
        QVERIFY(device->setProperty(property, values[i % values.size()]));
        device->settle();
    }
    QCOMPARE(count(message), most);
}

QTEST_GUILESS_MAIN(MessageFloodTest)
#include "tst_messageflood.moc"

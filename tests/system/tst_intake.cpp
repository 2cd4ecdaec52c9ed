// SPDX-License-Identifier: Apache-2.0

// Status changes: subscription, level filter, payloads of any shape, dispatch.

#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTest>

namespace
{

using RecordBytes::number;
using RecordBytes::sized;

//! The argument values of the first record of the current file, behind its path.
QByteArray firstValues()
{
    const QByteArray file = Device::logFile(0);
    const int path = 30 + quint8(file.at(28));
    // The filler events that follow have the path "/x" and no values.
    const int fillerSize = 28 + 2 + 2 + 1 + 2;
    int fillers = 0;
    QByteArray rest = file;
    while (rest.size() >= fillerSize
           && rest.mid(rest.size() - fillerSize + 24, 4) == number(Device::fillerId, 4)) {
        rest.chop(fillerSize);
        ++fillers;
    }
    return fillers > 0 ? rest.mid(path, rest.size() - path - 3) : QByteArray("no records");
}

/*!
 * Whether a message gets to the daemon and back through the bus, in the order of all others.
 * libdbus answers this one itself, also while the daemon waits for something else.
 */
bool busReachesDaemon()
{
    const QDBusMessage ping = QDBusMessage::createMethodCall(
        "com.tovel.systemeventlogger"_s, "/"_s, "org.freedesktop.DBus.Peer"_s, "Ping"_s);
    return callAndServe(QDBusConnection::systemBus(), ping).type() == QDBusMessage::ReplyMessage;
}

//! Announces a status change to the daemon alone.
bool sendToDaemon(const QString &path, int id, const QVariantList &values)
{
    QDBusMessage change = QDBusMessage::createTargetedSignal("com.tovel.systemeventlogger"_s, path,
                                                             "com.tovel.status"_s, "change"_s);
    change << id << QVariant::fromValue(QDBusVariant(values));
    return QDBusConnection::systemBus().send(change);
}

//! How many connections wait for the daemon's name or have it.
int connectionsForName()
{
    QDBusMessage message
        = QDBusMessage::createMethodCall("org.freedesktop.DBus"_s, "/org/freedesktop/DBus"_s,
                                         "org.freedesktop.DBus"_s, "ListQueuedOwners"_s);
    message << "com.tovel.systemeventlogger"_s;
    const QDBusMessage answer = callAndServe(QDBusConnection::systemBus(), message);
    return int(answer.arguments().value(0).toStringList().size());
}

QVariant wrap(const QVariant &value)
{
    return QVariant::fromValue(QDBusVariant(value));
}

} // namespace

class IntakeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void subscriptionFollowsTheSwitches();
    void storedSwitchSubscribesAtStart();
    void storedSwitchSubscribesBeforeTheOtherAnswers();
    void refusedSubscriptionIsAskedForBySwitchingAnew();
    void nothingIsHeardWhileOff();
    void levelFilter_data();
    void levelFilter();
    void pathAndValuesInOrder();
    void payload_data();
    void payload();
    void payloadFromClients_data();
    void payloadFromClients();
    void fileDescriptors();
    void deepNesting();
    void hugeValue();
    void floodWhileBusy_data();
    void floodWhileBusy();
    void floodOfCallsWhileBusy();
    void otherSignatures_data();
    void otherSignatures();
    void binaryOutputComesFirst();

private:
    TestBus bus;
    std::unique_ptr<Device> device;
};

void IntakeTest::init()
{
    device = std::make_unique<Device>();
}

void IntakeTest::cleanup()
{
    device.reset();
}

void IntakeTest::subscriptionFollowsTheSwitches()
{
    const QString started = "systemeventlogger: startet listening on dbus listening: true"_s;
    const QString stopped = "systemeventlogger: stopped listening on dbus listening: false"_s;
    QVERIFY(device->start());
    const auto said = [this] { return device->outputLines("systemeventlogger:"_s); };
    QCOMPARE(said(), QStringList{});
    QVERIFY(device->setProperty("logLocal"_s, false));
    QCOMPARE(said(), QStringList{});
    QVERIFY(device->setProperty("logLocal"_s, true));
    QCOMPARE(said(), QStringList{started});
    QVERIFY(device->setProperty("logNetwork"_s, true));
    QVERIFY(device->setProperty("logLocal"_s, false));
    QCOMPARE(said(), QStringList{started});
    QVERIFY(device->setProperty("logNetwork"_s, false));
    QCOMPARE(said(), (QStringList{started, stopped}));
    QVERIFY(device->setProperty("logNetwork"_s, true));
    QCOMPARE(said(), (QStringList{started, stopped, started}));
}

void IntakeTest::storedSwitchSubscribesAtStart()
{
    // Nothing has used a variant of the bus yet: its type must be registered already.
    device->config.values.insert("SystemeventLogNetwork"_s, "1"_s);
    QVERIFY(device->start());
    QCOMPARE(device->outputLines("systemeventlogger:"_s),
             QStringList{"systemeventlogger: startet listening on dbus listening: true"_s});
}

void IntakeTest::storedSwitchSubscribesBeforeTheOtherAnswers()
{
    device->config.values = {{"SystemeventLogLocal"_s, "true"_s}, {"SystemeventLoglevel"_s, "4"_s}};
    device->config.behave(ConfigService::Manner::IsSilent);
    device->launch();
    QTRY_COMPARE(device->config.calls.size(), 5);
    device->config.release("SystemeventLogLocal"_s);
    QTRY_COMPARE(device->outputLines("systemeventlogger:"_s),
                 QStringList{"systemeventlogger: startet listening on dbus listening: true"_s});
    QVERIFY(busReachesDaemon());                  // so it knows the match
    device->change("/early"_s, 1003, {});         // error, level 3
    device->change("/early"_s, 1002, {"kept"_s}); // info, level 6
    QVERIFY(busReachesDaemon());                  // so both have arrived
    device->config.release();
    QTRY_VERIFY(device->isServing());
    QVERIFY(device->fillBundle());
    const QString json = device->json();
    QCOMPARE(json.count("\"/early\""_s), 1);
    QVERIFY2(json.startsWith("[{\"eventnr\":1,"_s) && json.contains("\"msg\":\"Message kept\""_s),
             qPrintable(json));
}

// QtDBus does not wait for what the bus says to a subscription: the message claims
// success, and only switching everything off and on asks again.
void IntakeTest::refusedSubscriptionIsAskedForBySwitchingAnew()
{
    QVERIFY(device->start());
    const auto allow = qScopeGuard([this] { bus.refuse({}); });
    bus.refuse("AddMatch"_s);
    QVERIFY(device->setProperty("logLocal"_s, true));
    QCOMPARE(device->outputLines("systemeventlogger:"_s),
             QStringList{"systemeventlogger: startet listening on dbus listening: true"_s});
    // Both connections have asked: the second one at once behind the name.
    QTRY_COMPARE_WITH_TIMEOUT(connectionsForName(), 2, busPatience);
    QVERIFY(device->property("logLocal"_s).toBool());
    bus.refuse({});
    QVERIFY(device->setProperty("logNetwork"_s, true));
    device->change("/deaf"_s, 1003, {});
    device->settle();
    QVERIFY(device->setProperty("logNetwork"_s, false));
    QVERIFY(device->setProperty("logLocal"_s, false));
    QVERIFY(device->setProperty("logLocal"_s, true));
    device->change("/heard"_s, 1003, {});
    QVERIFY(device->fillBundle());
    QCOMPARE(device->json().count("\"/heard\""_s), 1);
    QVERIFY(!device->json().contains("/deaf"_s));
}

void IntakeTest::nothingIsHeardWhileOff()
{
    QVERIFY(device->start());
    device->change("/off"_s, 1003, {});
    device->settle();
    QVERIFY(device->setProperty("logLocal"_s, true));
    device->change("/on"_s, 1003, {});
    device->settle();
    QVERIFY(device->setProperty("logLocal"_s, false));
    device->change("/off"_s, 1003, {});
    device->settle();
    QVERIFY(device->setProperty("logLocal"_s, true));
    QVERIFY(device->fillBundle());
    QVERIFY(!device->json().contains("/off"_s));
    QCOMPARE(device->json().count("\"/on\""_s), 1);
}

void IntakeTest::levelFilter_data()
{
    QTest::addColumn<QString>("loglevel");
    QTest::addColumn<QList<int>>(
        "logged"); // of 1003 error 3, 1001 warning 4, 1002 info 6, 4711 unknown
    const QList<int> all{1003, 1001, 1002, 4711};
    QTest::newRow("nothing stored: no filter") << QString() << all;
    QTest::newRow("negative: no filter") << "-1"_s << all;
    QTest::newRow("0 drops the unknown") << "0"_s << QList<int>{1003, 1001, 1002};
    QTest::newRow("2") << "2"_s << QList<int>{1003, 1001, 1002};
    QTest::newRow("3 drops errors") << "3"_s << QList<int>{1001, 1002};
    QTest::newRow("4 drops warnings too") << "4"_s << QList<int>{1002};
    QTest::newRow("5") << "5"_s << QList<int>{1002};
    QTest::newRow("6 drops information too") << "6"_s << QList<int>{};
}

void IntakeTest::levelFilter()
{
    QFETCH(QString, loglevel);
    QFETCH(QList<int>, logged);
    device->config.values.insert("SystemeventLoglevel"_s, loglevel);
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    QVERIFY(device->start());
    for (const int id : {1003, 1001, 1002, 4711}) {
        device->change("/x"_s, id, {});
    }
    QVERIFY(device->fillBundle()); // of level 7
    const QString json = device->json();
    for (const int id : {1003, 1001, 1002, 4711}) {
        QCOMPARE(json.count("\"eventtype\":%1,"_s.arg(id)), logged.contains(id) ? 1 : 0);
    }
}

void IntakeTest::pathAndValuesInOrder()
{
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logLocal"_s, true));
    device->change("/power/supply"_s, 1001, {true, 12});
    QVERIFY(device->fillBundle());
    QCOMPARE(Device::logFile(0).mid(24, 4), number(1001, 4));
    QCOMPARE(Device::logFile(0).mid(28, 15), sized("/power/supply"));
    QCOMPARE(firstValues(), number(1, 1) + number(12, 4));
    QVERIFY(device->json("de"_s).contains("\"msg\":\"Versorgung Netz 1 bei 12 Prozent\""_s));
}

void IntakeTest::payload_data()
{
    QTest::addColumn<QVariant>("payload"); // as the only element of a list
    QTest::addColumn<QByteArray>("values");
    const auto row = [](const char *name, const QVariant &value, const QByteArray &bytes) {
        QTest::newRow(name) << QVariant(QVariantList{value}) << bytes;
    };
    const QByteArray five = number(5, 4);
    row("plain integer instead of an array", 5, {});
    row("plain string", "text"_s, {});
    row("array of strings arrives converted", QStringList{"a"_s, "b"_s}, {});
    row("array of bytes arrives converted", QByteArray("abc"), {});
    row("object path", QVariant::fromValue(QDBusObjectPath("/a"_s)), {});
    row("dictionary", QVariantMap{{"a"_s, 5}}, {});
    row("variant in the variant", wrap(QVariantList{5}), {});
    row("empty array", QVariantList{}, {});
    row("one value", QVariantList{5}, five);
    row("wrapped value keeps its type", QVariantList{wrap(5)}, number(3, 2) + five);
    row("array as an element is skipped silently", QVariantList{QVariant(QVariantList{1}), 5},
        five);
    row("dictionary as an element is skipped silently",
        QVariantList{QVariant(QVariantMap{{"a"_s, 1}}), 5}, five);
    row("unhandled types leave the others",
        QVariantList{QVariant::fromValue(quint64(1)), 5, QVariant::fromValue<uchar>(1),
                     QVariant::fromValue<short>(1), QVariant::fromValue<ushort>(1),
                     QByteArray("abc"), QStringList{"x"_s}, true},
        five + number(1, 1));
}

void IntakeTest::payload()
{
    QFETCH(QVariant, payload);
    QFETCH(QByteArray, values);
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logLocal"_s, true));
    device->changeRaw("/p"_s, 1003, payload.toList().constFirst());
    QVERIFY(device->fillBundle());
    QCOMPARE(firstValues().toHex(), values.toHex());
    QCOMPARE(device->outputLines("startet"_s).size(), 1); // still the same process
}

void IntakeTest::payloadFromClients_data()
{
    // Signatures that Qt's own sender cannot make.
    QTest::addColumn<QStringList>("arguments"); // of busctl, behind the variant's "iv"
    QTest::addColumn<QByteArray>("values");
    const QByteArray five = number(5, 4);
    const auto split
        = [](const char *text) { return QString::fromLatin1(text).split(QLatin1Char(' ')); };
    QTest::newRow("array of integers") << split("ai 3 1 2 3") << QByteArray();
    QTest::newRow("empty array of integers") << split("ai 0") << QByteArray();
    QTest::newRow("array of doubles") << split("ad 1 1.5") << QByteArray();
    QTest::newRow("array of arrays of variants") << split("aav 1 1 i 5") << QByteArray();
    QTest::newRow("array of structures") << split("a(iv) 1 1 i 5") << QByteArray();
    QTest::newRow("structure of variants")
        << split("(vv) i 5 b true") << QByteArray(five + number(1, 1));
    QTest::newRow("structure that goes on with another type") << split("(viv) i 5 7 i 6") << five;
    QTest::newRow("structure without a variant in front") << split("(iv) 7 i 5") << QByteArray();
    QTest::newRow("structure in a structure") << split("((v)v) i 5 i 6") << QByteArray();
    QTest::newRow("dictionary of variants") << split("a{sv} 1 k i 5") << QByteArray();
    QTest::newRow("dictionary of integers") << split("a{ii} 1 1 2") << QByteArray();
    QTest::newRow("empty dictionary") << split("a{sv} 0") << QByteArray();
    QTest::newRow("array of object paths") << split("ao 1 /a") << QByteArray();
    QTest::newRow("array of signatures") << split("ag 1 s") << QByteArray();
    QTest::newRow("variant three deep") << split("v v v i 5") << QByteArray();
    QTest::newRow("structure as an element") << split("av 2 (isv) 1 x i 2 i 5") << five;
}

void IntakeTest::payloadFromClients()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, values);
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logLocal"_s, true));
    QVERIFY(!runClient("busctl"_s,
                       QStringList{"--system"_s, "emit"_s, "/p"_s, "com.tovel.status"_s, "change"_s,
                                   "iv"_s, "1003"_s}
                           + arguments)
                 .isNull());
    QVERIFY(device->fillBundle());
    QVERIFY(Device::logFile(0).contains(number(1003, 4) + sized("/p")));
    QCOMPARE(firstValues().toHex(), values.toHex());
}

void IntakeTest::fileDescriptors()
{
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logLocal"_s, true));
    const QVariant descriptor = QVariant::fromValue(QDBusUnixFileDescriptor(0));
    device->changeRaw("/p"_s, 1003, descriptor);
    device->change("/p"_s, 1003, {descriptor, 5, descriptor});
    QVERIFY(device->fillBundle());
    QVERIFY(device->isRunning());
    const QString json = device->json();
    QCOMPARE(json.count("\"eventtype\":1003"_s), 2);
}

void IntakeTest::deepNesting()
{
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logLocal"_s, true));
    QVariant value = 5;
    for (int level = 0; level < 50; ++level) { // the bus allows 64
        value = wrap(value);
    }
    device->change("/p"_s, 1003, {value});
    QVERIFY(device->fillBundle());
    // The innermost code is that of the integer; those around it have none.
    QCOMPARE(firstValues().toHex(), (QByteArray(98, '\xFF') + number(3, 2) + number(5, 4)).toHex());
}

void IntakeTest::hugeValue()
{
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logLocal"_s, true));
    QVERIFY(device->setProperty("logtail"_s, 20));
    constexpr int size = 20 * 1024 * 1024;
    device->change("/p"_s, 1002, {QString(size, QLatin1Char('x'))});
    device->change("/after"_s, 1002, {"small"_s});
    QVERIFY(device->fillBundle());
    // It fills a file by itself, which is rotated away whole. Its length does not fit the
    // trailer, so numbers read out of its bytes make the whole range too wide to ask for.
    QVERIFY(Device::logFile(1).size() > size);
    QCOMPARE(device->result("jsonLogfile"_s, {quint64(2), quint64(2)})
                 .toString()
                 .section(R"("loglevel":)"_s, 1),
             R"("info","path":"/after","msg":"Message small"}])"_s);
}

void IntakeTest::floodWhileBusy_data()
{
    QTest::addColumn<bool>("isSentToAll");
    QTest::newRow("of status changes that everybody gets") << true;
    QTest::newRow("of status changes that the daemon alone gets") << false;
}

void IntakeTest::floodWhileBusy()
{
    QFETCH(const bool, isSentToAll);
    // More than libdbus lets wait (some 60 MiB) arrives while the daemon makes a
    // long answer of empty elements: it must read on afterwards.
    Device::writeLogFile(0, RecordBytes::record(1) + RecordBytes::record(16700000));
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    device->config.values.insert("SystemeventLogtail"_s, "200"_s);
    QVERIFY(device->start());
    device->callNoReply("jsonLogfile"_s, {quint64(0), ~quint64(0)});
    constexpr int count = 100;
    const QString text(1000000, QLatin1Char('x'));
    for (int i = 0; i < count; ++i) {
        if (isSentToAll) {
            device->change("/flood"_s, 1002, {text});
        } else {
            QVERIFY(sendToDaemon("/flood"_s, 1002, {text}));
        }
    }
    device->settle();
    QVERIFY(device->fillBundle());
    qint64 stored = 0;
    for (int index = 0; index <= count + 1; ++index) {
        stored += QFileInfo(Device::logPath(index)).size();
    }
    QVERIFY(stored > qint64(count) * text.size());
}

void IntakeTest::floodOfCallsWhileBusy()
{
    Device::writeLogFile(0, RecordBytes::record(1) + RecordBytes::record(16700000));
    QVERIFY(device->start());
    device->callNoReply("jsonLogfile"_s, {quint64(0), ~quint64(0)});
    const QString text(1000000, QLatin1Char('x'));
    for (int i = 0; i < 100; ++i) {
        device->callNoReply("noSuchMethod"_s, {text});
    }
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), 1ULL);
    QVERIFY(device->setProperty("logLocal"_s, true));
    device->change("/p"_s, 1002, {text});
    QVERIFY(device->fillBundle());
    QVERIFY(device->isRunning());
}

void IntakeTest::otherSignatures_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no arguments") << QStringList{};
    QTest::newRow("string instead of an id") << QStringList{"sv"_s, "1003"_s, "i"_s, "1"_s};
    QTest::newRow("no variant") << QStringList{"i"_s, "1003"_s};
    QTest::newRow("array without its variant") << QStringList{"iav"_s, "1003"_s, "0"_s};
    QTest::newRow("a third argument") << QStringList{"ivs"_s, "1003"_s, "i"_s, "1"_s, "x"_s};
}

void IntakeTest::otherSignatures()
{
    QFETCH(QStringList, arguments);
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logLocal"_s, true));
    QVERIFY(!runClient("busctl"_s,
                       QStringList{"--system"_s, "emit"_s, "/p"_s, "com.tovel.status"_s, "change"_s}
                           + arguments)
                 .isNull());
    QVERIFY(device->fillBundle());
    QVERIFY(!device->json().contains("\"path\":\"/p\""_s));
    QVERIFY(device->isRunning());
}

void IntakeTest::binaryOutputComesFirst()
{
    // The writer complains of the value's type, the sender of a template without a
    // placeholder for it: the order of the complaints is that of the outputs.
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
    const auto complaints = [this] {
        device->change("/x"_s, 1005, {QVariant::fromValue(quint64(1))});
        device->settle();
        QStringList found;
        const QStringList lines = device->outputLines(QString());
        for (const QString &line : lines) {
            if (line.contains("Unhandled type"_s)) {
                found.append("writer"_s);
            } else if (line.contains("QString::arg"_s)) {
                found.append("sender"_s);
            }
        }
        return found;
    };
    QVERIFY(device->setProperty("logNetwork"_s, true));
    QCOMPARE(complaints(), QStringList{"sender"_s}); // the UDP output alone
    QVERIFY(device->setProperty("logLocal"_s, true));
    QCOMPARE(complaints(), (QStringList{"sender"_s, "writer"_s, "sender"_s}));
    QVERIFY(device->setProperty("logNetwork"_s, false));
    QCOMPARE(complaints(), (QStringList{"sender"_s, "writer"_s, "sender"_s, "writer"_s}));
}

QTEST_GUILESS_MAIN(IntakeTest)
#include "tst_intake.moc"

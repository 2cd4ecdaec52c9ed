// SPDX-License-Identifier: Apache-2.0

// The face on the bus, as real clients see it.

#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"
#include "support/workedrecord.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

namespace
{

const QStringList logNode{"com.tovel.systemeventlogger"_s, "/system/eventlog"_s};
const QStringList versionNode{"com.tovel.systemeventlogger"_s, "/version"_s};

QString busctl(const QStringList &arguments)
{
    return QString::fromUtf8(runClient("busctl"_s, QStringList{"--system"_s} + arguments))
        .trimmed();
}

//! Name, kind, arguments and access of every member of a node's own interface.
QStringList members(const QStringList &node, const QString &interface)
{
    QStringList found;
    const QString printed = busctl(QStringList{"introspect"_s, "--no-legend"_s} + node);
    const QStringList lines = printed.split(QLatin1Char('\n'));
    QString current;
    for (const QString &line : lines) {
        const QStringList words = line.simplified().split(QLatin1Char(' '));
        if (words.value(1) == "interface"_s) {
            current = words.value(0);
            if (!current.startsWith("org.freedesktop.DBus."_s) && current != interface) {
                found.append("another interface: "_s + current);
            }
        } else if (current == interface) {
            const QString access = words.value(1) != "property"_s ? words.value(3)
                : line.contains(" writable"_s)                    ? "readwrite"_s
                                                                  : "read"_s;
            found.append(words.value(0) + " "_s + words.value(1) + " "_s + words.value(2) + " "_s
                         + access);
        }
    }
    return found;
}

} // namespace

class DBusInterfaceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void membersOfTheLogNode();
    void membersOfTheVersionNode();
    void nodesInTheTree();
    void versionProperties();
    void versionCannotBeWritten();
    void allValuesOfAFreshSystem();
    void calls_data();
    void calls();
    void interfaceMayBeLeftOut();
    void gdbusClient();
    void numberPropertiesWrap();
    void readOnlyNumbers();
    void nameOfTheObjectIsNoProperty_data();
    void nameOfTheObjectIsNoProperty();
    void wrongTypesDoNoHarm_data();
    void wrongTypesDoNoHarm();
    void clearing();
    void documentedLinesWork();

private:
    TestBus bus;
    std::unique_ptr<Device> device;
};

void DBusInterfaceTest::init()
{
    device = std::make_unique<Device>();
}

void DBusInterfaceTest::cleanup()
{
    device.reset();
}

void DBusInterfaceTest::membersOfTheLogNode()
{
    QVERIFY(device->start());
    QCOMPARE(members(logNode, "local.LogManager"_s),
             (QStringList{
                 ".allValues method - a{sv}"_s,
                 ".clearLogfiles method - -"_s,
                 ".getMaxLogNr method - t"_s,
                 ".getMinLogNr method - t"_s,
                 ".jsonLogfile method tt s"_s,
                 ".jsonLogfile method tts s"_s,
                 ".logLocal property b readwrite"_s,
                 ".logNetwork property b readwrite"_s,
                 ".logNetworkAddress property s readwrite"_s,
                 ".logNetworkLang property s readwrite"_s,
                 ".loglevel property i readwrite"_s,
                 ".logtail property i readwrite"_s,
                 ".maxLogNr property i read"_s,
                 ".minLogNr property i read"_s,
             }));
}

void DBusInterfaceTest::membersOfTheVersionNode()
{
    QVERIFY(device->start());
    QCOMPARE(members(versionNode, "local.Version"_s),
             (QStringList{".githash property s read"_s, ".version property s read"_s}));
}

void DBusInterfaceTest::nodesInTheTree()
{
    QVERIFY(device->start());
    const QString tree = busctl({"tree"_s, "--list"_s, logNode[0]});
    QCOMPARE(tree.split(QLatin1Char('\n')),
             (QStringList{"/"_s, "/system"_s, "/system/eventlog"_s, "/version"_s}));
}

void DBusInterfaceTest::versionProperties()
{
    QVERIFY(device->start());
    const QString githash = busctl(QStringList{"get-property"_s} + versionNode
                                   + QStringList{"local.Version"_s, "githash"_s});
    QVERIFY2(QRegularExpression("^s \"[0-9a-f]{40}\"$"_s).match(githash).hasMatch(),
             qPrintable(githash));
    const QString version = busctl(QStringList{"get-property"_s} + versionNode
                                   + QStringList{"local.Version"_s, "version"_s});
    QVERIFY2(QRegularExpression("^s \"[0-9]+\"$"_s).match(version).hasMatch(), qPrintable(version));
}

void DBusInterfaceTest::versionCannotBeWritten()
{
    QVERIFY(device->start());
    for (const QString &name : {"version"_s, "githash"_s}) {
        QVERIFY(runClient("busctl"_s,
                          QStringList{"--system"_s, "set-property"_s} + versionNode
                              + QStringList{"local.Version"_s, name, "s"_s, "x"_s})
                    .isNull());
    }
}

void DBusInterfaceTest::allValuesOfAFreshSystem()
{
    QVERIFY(device->start());
    QCOMPARE(
        busctl(QStringList{"call"_s} + logNode + QStringList{"local.LogManager"_s, "allValues"_s}),
        "a{sv} 8 \"loglang\" s \"en\" \"loglevel\" i -1 \"loglocal\" b false "
        "\"lognetwork\" b false \"lognetworkaddress\" s \"\" \"logtail\" i 10 "
        "\"maxLogNr\" t 0 \"minLogNr\" t 18446744073709551615"_s);
}

void DBusInterfaceTest::calls_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("answer"); // of busctl --json=short
    QTest::newRow("getMinLogNr") << QStringList{"getMinLogNr"_s} << R"({"type":"t","data":[3]})"_s;
    QTest::newRow("getMaxLogNr") << QStringList{"getMaxLogNr"_s} << R"({"type":"t","data":[4]})"_s;
    QTest::newRow("jsonLogfile of nothing")
        << QStringList{"jsonLogfile"_s, "tt"_s, "9"_s, "9"_s} << R"({"type":"s","data":["[]"]})"_s;
    QTest::newRow("jsonLogfile with a language")
        << QStringList{"jsonLogfile"_s, "tts"_s, "0"_s, "3"_s, "de"_s}
        << R"({"type":"s","data":["[{\"eventnr\":3,\"secs\":\"1700000000.250000\",\"eventtype\":4711,\"error\":\"Lookup of typeid 4711 failed.\"}]"]})"_s;
}

void DBusInterfaceTest::calls()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, answer);
    RecordBytes::Fields fields;
    fields.eventId = 4711;
    fields.logNr = 3;
    Device::writeLogFile(0, RecordBytes::record(fields) + RecordBytes::record(4));
    QVERIFY(device->start());
    QCOMPARE(busctl(QStringList{"-j"_s, "call"_s} + logNode + QStringList{"local.LogManager"_s}
                    + arguments),
             answer);
}

void DBusInterfaceTest::interfaceMayBeLeftOut()
{
    Device::writeLogFile(0, RecordBytes::record(3));
    QVERIFY(device->start());
    const QDBusMessage reply = QDBusConnection::systemBus().call(
        QDBusMessage::createMethodCall(logNode[0], logNode[1], QString(), "getMaxLogNr"_s));
    QCOMPARE(reply.arguments().value(0).toULongLong(), 3ULL);
}

void DBusInterfaceTest::gdbusClient()
{
    QVERIFY(device->start());
    const QStringList call{"call"_s, "--system"_s, "-d"_s, logNode[0], "-o"_s, logNode[1], "-m"_s};
    QVERIFY(device->setProperty("logLocal"_s, true));
    QVERIFY(!runClient("gdbus"_s,
                       {"emit"_s, "--system"_s, "-o"_s, "/some/path"_s, "-s"_s,
                        "com.tovel.status.change"_s, "int32 1004"_s, "<[<<'abc'>>, <uint64 5>]>"_s})
                 .isNull());
    QVERIFY(device->fillBundle());
    const QByteArray answer = runClient(
        "gdbus"_s, call + QStringList{"local.LogManager.jsonLogfile"_s, "1"_s, "1"_s, "en"_s});
    QVERIFY2(answer.contains("\"path\":\"/some/path\",\"msg\":\"Value abc rejected\"}]"),
             answer.constData());
}

void DBusInterfaceTest::numberPropertiesWrap()
{
    const quint64 beyond = (quint64(1) << 32) + (quint64(1) << 31) + 5;
    Device::writeLogFile(0, RecordBytes::record(beyond) + RecordBytes::record(beyond + 1));
    QVERIFY(device->start());
    QCOMPARE(device->property("minLogNr"_s).toInt(), -2147483643);
    QCOMPARE(device->property("maxLogNr"_s).toInt(), -2147483642);
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), beyond);
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), beyond + 1);
}

void DBusInterfaceTest::readOnlyNumbers()
{
    QVERIFY(device->start());
    QVERIFY(!device->setProperty("minLogNr"_s, 1));
    QVERIFY(!device->setProperty("maxLogNr"_s, 1));
    QVERIFY(!device->setProperty("noSuchProperty"_s, 1));
}

void DBusInterfaceTest::nameOfTheObjectIsNoProperty_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("interface");
    QTest::newRow("of the log node") << logNode[1] << "local.LogManager"_s;
    QTest::newRow("of the log node, without an interface") << logNode[1] << QString();
    QTest::newRow("of the version node") << versionNode[1] << "local.Version"_s;
    QTest::newRow("of the version node, without an interface") << versionNode[1] << QString();
}

//! Every QObject has one. It is answered as any property is that does not exist.
void DBusInterfaceTest::nameOfTheObjectIsNoProperty()
{
    QFETCH(QString, path);
    QFETCH(QString, interface);
    QVERIFY(device->start());
    const auto answer = [&](const QString &method, const QVariantList &arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            logNode[0], path, "org.freedesktop.DBus.Properties"_s, method);
        message.setArguments(QVariantList{interface} + arguments);
        const QDBusMessage reply = QDBusConnection::systemBus().call(message);
        return QStringList{reply.errorName(), reply.errorMessage()};
    };
    const auto like = [](QStringList unknown) {
        return unknown.replaceInStrings("noSuchName"_s, "objectName"_s);
    };
    const QVariant text = QVariant::fromValue(QDBusVariant("x"_s));
    const QStringList unknownRead = answer("Get"_s, {"noSuchName"_s});
    const QStringList unknownWritten = answer("Set"_s, {"noSuchName"_s, text});
    QVERIFY(!unknownRead[0].isEmpty() && !unknownWritten[0].isEmpty());

    QCOMPARE(answer("Get"_s, {"objectName"_s}), like(unknownRead));
    QCOMPARE(answer("Set"_s, {"objectName"_s, text}), like(unknownWritten));
    QCOMPARE(answer("Get"_s, {"objectName"_s}), like(unknownRead));
}

void DBusInterfaceTest::wrongTypesDoNoHarm_data()
{
    QTest::addColumn<QStringList>("arguments");
    const auto set = [](const char *property, const QStringList &value) {
        return QStringList{"set-property"_s} + logNode
            + QStringList{"local.LogManager"_s, QString::fromLatin1(property)} + value;
    };
    const auto call = [](const QStringList &method) {
        return QStringList{"call"_s} + logNode + QStringList{"local.LogManager"_s} + method;
    };
    QTest::newRow("array for a switch") << set("logLocal", {"ai"_s, "1"_s, "1"_s});
    QTest::newRow("dictionary for a number") << set("logtail", {"a{sv}"_s, "0"_s});
    QTest::newRow("structure for a text") << set("logNetworkAddress", {"(ii)"_s, "1"_s, "2"_s});
    QTest::newRow("variant for a number") << set("loglevel", {"v"_s, "v"_s, "i"_s, "1"_s});
    QTest::newRow("too few arguments") << call({"jsonLogfile"_s, "t"_s, "1"_s});
    QTest::newRow("wrong argument types") << call({"jsonLogfile"_s, "ss"_s, "a"_s, "b"_s});
    QTest::newRow("no such method") << call({"deleteLater"_s});
    QTest::newRow("the slot of the signal")
        << call({"dbusStatusChange"_s, "iv"_s, "1003"_s, "i"_s, "1"_s});
    QTest::newRow("registration is no method") << call({"dbusUnregister"_s});
}

void DBusInterfaceTest::wrongTypesDoNoHarm()
{
    QFETCH(QStringList, arguments);
    QVERIFY(device->start());
    (void)runClient("busctl"_s, QStringList{"--system"_s} + arguments);
    QVERIFY(device->isServing());
    QCOMPARE(device->output().count("local"_s), 0);
    QVERIFY(device->setProperty("logLocal"_s, true));
    QVERIFY(device->fillBundle());
}

void DBusInterfaceTest::clearing()
{
    Device::writeLogFile(0, RecordBytes::record(7));
    Device::writeLogFile(1, RecordBytes::record(6));
    Device::writeLogFile(10, RecordBytes::record(5));
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logLocal"_s, true));
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), 5ULL);
    device->change("/queued"_s, 1003, {});
    device->settle();
    QCOMPARE(device->call("clearLogfiles"_s).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(device->json(), "[]"_s);
    QVERIFY(!QFile::exists(Device::logPath(1)));
    QVERIFY(!QFile::exists(Device::logPath(10)));
    QVERIFY(device->fillBundle());
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), 9ULL); // 8 was queued
    QVERIFY(!device->json().contains("/queued"_s));
}

void DBusInterfaceTest::documentedLinesWork()
{
    QVERIFY(device->start());
    const QString docs = QString::fromLocal8Bit(qgetenv("SEL_SOURCE_DIR")) + "/docs/dbus.md"_s;
    const QString block = fencedBlocks(docs, "sh"_s);
    const QStringList lines = block.split(QLatin1Char('\n'));
    int count = 0;
    for (const QString &line : lines) {
        if (!line.isEmpty() && !line.startsWith(QLatin1Char('#'))) {
            QVERIFY2(!runClient("sh"_s, {"-c"_s, line}).isNull(), qPrintable(line));
            ++count;
        }
    }
    QVERIFY(count >= 20);
    // Every member is among them.
    const QStringList names = members(logNode, "local.LogManager"_s);
    for (const QString &member : names) {
        const QString name = member.section(QLatin1Char(' '), 0, 0).mid(1);
        QVERIFY2(block.contains(name), qPrintable(name));
    }
}

QTEST_GUILESS_MAIN(DBusInterfaceTest)
#include "tst_dbusinterface.moc"

// SPDX-License-Identifier: Apache-2.0

// The tool's "emit" on a device: what the daemon makes of it, and what is not sent at all.

#include "ctl/ctlprocess.h"
#include "support/device.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QTemporaryDir>
#include <QTest>

namespace
{

const char catalogue[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<systemevents>
  <enum name="LogLevel"><item value="4" name="warning"/><item value="6" name="info"/></enum>
  <enum name="Mode">
    <item value="0" name="day"/><item value="1" name="night"/><item value="2" name="dusk"/>
    <item value="7" name="1"/><item value="300" name="far"/>
  </enum>
  <service name="all">
    <event id="1" name="bool" loglevel="info"><argument type="bool" name="v"/><description lang="en">%1</description></event>
    <event id="2" name="byte" loglevel="info"><argument type="byte" name="v"/><description lang="en">%1</description></event>
    <event id="3" name="int16" loglevel="info"><argument type="int16" name="v"/><description lang="en">%1</description></event>
    <event id="4" name="int32" loglevel="info"><argument type="int32" name="v"/><description lang="en">%1</description></event>
    <event id="5" name="int64" loglevel="info"><argument type="int64" name="v"/><description lang="en">%1</description></event>
    <event id="6" name="uint64" loglevel="info"><argument type="uint64" name="v"/><description lang="en">%1</description></event>
    <event id="7" name="float" loglevel="info"><argument type="float" name="v"/><description lang="en">%1</description></event>
    <event id="8" name="double" loglevel="info"><argument type="double" name="v"/><description lang="en">%1</description></event>
    <event id="9" name="string" loglevel="info"><argument type="string" name="v"/><description lang="en">%1</description></event>
    <event id="10" name="bytearray" loglevel="info"><argument type="bytearray" name="v"/><description lang="en">%1</description></event>
    <event id="11" name="variant" loglevel="info"><argument type="variant" name="v"/><description lang="en">%1</description></event>
    <event id="12" name="enum" loglevel="info"><argument type="enum" enum="Mode" name="v"/><description lang="en">%1</description></event>
    <event id="13" name="odd" loglevel="info"><argument type="none" name="v"/><description lang="en">%1</description></event>
    <event id="14" name="enumFirst" loglevel="info"><argument type="enum" enum="Mode" name="mode"/><argument type="double" name="volts"/><description lang="en">%1 %2</description></event>
    <event id="15" name="byteFirst" loglevel="info"><argument type="byte" name="a"/><argument type="int32" name="b"/><description lang="en">%1 %2</description></event>
    <event id="16" name="int16First" loglevel="info"><argument type="int16" name="a"/><argument type="int32" name="b"/><description lang="en">%1 %2</description></event>
    <event id="17" name="noSuchEnum" loglevel="info"><argument type="enum" enum="None" name="v"/><description lang="en">%1</description></event>
    <event id="18" name="none" loglevel="info"><description lang="en">nothing</description></event>
    <event id="19" name="three" loglevel="warning"><argument type="string" name="a"/><argument type="string" name="b"/><argument type="string" name="c"/><description lang="en">%1|%2|%3</description></event>
    <event id="20" name="twice" loglevel="info"><description lang="en">one</description></event>
    <event id="21" name="twice" loglevel="info"><description lang="en">other</description></event>
    <event id="4294967291" name="negative" loglevel="info"><description lang="en">minus five</description></event>
    <event id="9999" name="filler"><description lang="en">Filler</description></event>
  </service>
</systemevents>
)";

QByteArray typeNames(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<QDBusVariant>()) {
        return "variant " + typeNames(value.value<QDBusVariant>().variant());
    }
    return value.typeName();
}

//! Hears every status change of the bus.
class Listener : public QObject
{
    Q_OBJECT

public:
    Listener()
    {
        qRegisterMetaType<QDBusVariant>(); // or Qt 6 does not connect
        if (!QDBusConnection::systemBus().connect(QString(), QString(), "com.tovel.status"_s,
                                                  "change"_s, "iv"_s, this,
                                                  SLOT(hear(int, QDBusVariant)))) {
            qFatal("cannot listen");
        }
    }

    QList<int> ids;
    QList<QByteArray> types; //!< of the values of the last one

public Q_SLOTS:
    void hear(int id, const QDBusVariant &payload)
    {
        ids.append(id);
        types.clear();
        const auto array = payload.variant().value<QDBusArgument>();
        array.beginArray();
        while (!array.atEnd()) {
            QVariant value;
            array >> value;
            types.append(typeNames(value));
        }
        array.endArray();
    }
};

} // namespace

class CtlEmitTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void readBack_data();
    void readBack();
    void declaredTypes_data();
    void declaredTypes();
    void refused_data();
    void refused();
    void exactTypes_data();
    void exactTypes();
    void pathIsTheTools();
    void waitsForTheRecord();
    void waitsForItsOwnRecord();
    void waitsForNothingThatIsNotStored();
    void needsTheDaemon();
    void needsTheBus_data();
    void needsTheBus();

private:
    QJsonArray stored();

    TestBus bus;
    std::unique_ptr<Device> device;
    Listener listener;
};

void CtlEmitTest::initTestCase()
{
    device = std::make_unique<Device>();
    Device::writeCatalogue(catalogue);
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    QVERIFY(device->start());
}

void CtlEmitTest::cleanupTestCase()
{
    device.reset();
}

//! The log, with all that has been emitted.
QJsonArray CtlEmitTest::stored()
{
    if (!device->fillBundle()) {
        qFatal("nothing is stored");
    }
    return QJsonDocument::fromJson(device->json().toUtf8()).array();
}

void CtlEmitTest::readBack_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *name, const QStringList &arguments, const QString &text) {
        QTest::newRow(name) << arguments << text;
    };
    row("a bool by its name", {"bool"_s, "true"_s}, "1"_s);
    row("a bool as a number", {"1"_s, "0"_s}, "0"_s);
    row("a byte as a number", {"byte"_s, "65"_s}, "A"_s);
    row("a byte as a character", {"byte"_s, "ä"_s}, "ä"_s);
    row("a digit is a byte's number", {"byte"_s, "9"_s}, "\t"_s);
    row("the lowest int16", {"int16"_s, "-32768"_s}, "-32768"_s);
    row("the highest int16", {"int16"_s, "32767"_s}, "32767"_s);
    row("the lowest int32", {"int32"_s, "-2147483648"_s}, "-2147483648"_s);
    row("the highest int32", {"int32"_s, "2147483647"_s}, "2147483647"_s);
    row("the lowest int64 that is kept", {"int64"_s, "-2147483648"_s}, "-2147483648"_s);
    row("the highest int64 that is kept", {"int64"_s, "2147483647"_s}, "2147483647"_s);
    row("the highest uint64 that is kept", {"uint64"_s, "2147483647"_s}, "2147483647"_s);
    row("a double", {"double"_s, "-230.5"_s}, "-230.5"_s);
    row("a double with an exponent", {"double"_s, "1e300"_s}, "1e+300"_s);
    row("a string", {"string"_s, "Tür \"zu\""_s}, "Tür \"zu\""_s);
    row("an empty string", {"string"_s, ""_s}, ""_s);
    row("a string in brackets stays whole", {"string"_s, "[a,b]"_s}, "[a,b]"_s);
    row("a string in braces stays whole", {"string"_s, "{}"_s}, "{}"_s);
    row("a string like a command", {"string"_s, "repair"_s}, "repair"_s);
    row("a string with a dash behind two", {"string"_s, "--"_s, "-q"_s}, "-q"_s);
    row("a string with an equals sign", {"string"_s, "a=b"_s}, "a=b"_s);
    row("a string by its argument's name", {"string"_s, "v=a=b"_s}, "a=b"_s);
    row("a bytearray", {"bytearray"_s, "abc"_s}, "abc"_s);
    row("a variant with a bool", {"variant"_s, "true"_s}, "1"_s);
    row("a variant with an int", {"variant"_s, "-5"_s}, "-5"_s);
    row("a variant with a double", {"variant"_s, "1.5"_s}, "1.5"_s);
    row("a variant with a large number", {"variant"_s, "3000000000"_s}, "3e+09"_s);
    row("a variant with a text", {"variant"_s, "infinite"_s}, "infinite"_s);
    row("an enum by its text", {"enum"_s, "dusk"_s}, "dusk"_s);
    row("an enum by its number", {"enum"_s, "2"_s}, "dusk"_s);
    row("an item's number goes before a text", {"enum"_s, "1"_s}, "night"_s);
    row("an enum in front as a bool", {"14"_s, "night"_s, "24.1"_s}, "night 24.1"_s);
    row("an enum in front by its number", {"14"_s, "0"_s, "24.1"_s}, "day 24.1"_s);
    row("names in any order", {"14"_s, "volts=24.1"_s, "mode=night"_s}, "night 24.1"_s);
    row("what has no name fills what is left", {"19"_s, "x"_s, "b=y"_s, "z"_s}, "x|y|z"_s);
    row("names alone leave the first place", {"19"_s, "c=x"_s, "y"_s, "z"_s}, "y|z|x"_s);
    const QString longest(65487, QLatin1Char('x')); // with the rest of the record 65535 bytes
    row("the longest record", {"string"_s, longest}, longest);
    row("an event without values", {"none"_s}, "nothing"_s);
    row("a negative id", {"-5"_s}, "minus five"_s);
    row("a negative id as the catalogue has it", {"4294967291"_s}, "minus five"_s);
    row("a negative event by its name", {"negative"_s}, "minus five"_s);
}

void CtlEmitTest::readBack()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, text);
    listener.ids.clear();
    const CtlRun run = runCtl(QStringList{"emit"_s} + arguments);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out, QByteArray());
    QTRY_COMPARE_WITH_TIMEOUT(listener.ids.size(), 1, busPatience);
    const QJsonArray log = stored();
    for (int i = int(log.size()) - 1; i >= 0; --i) {
        const QJsonObject record = log.at(i).toObject();
        if (record.value("eventtype"_s).toInt() == listener.ids.first()) {
            QCOMPARE(record.value("msg"_s).toString(), text);
            return;
        }
    }
    QFAIL("it is not in the log");
}

void CtlEmitTest::declaredTypes_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QList<QByteArray>>("sent");
    const auto row
        = [](const char *name, const QStringList &arguments, const QList<QByteArray> &sent) {
              QTest::newRow(name) << arguments << sent;
          };
    row("a byte is an int", {"byte"_s, "1"_s}, {"int"});
    row("an int16 is an int", {"int16"_s, "1"_s}, {"int"});
    row("an int64 has 64 bits", {"int64"_s, "1"_s}, {"qlonglong"});
    row("a uint64 is signed", {"uint64"_s, "1"_s}, {"qlonglong"});
    row("a bytearray is a text", {"bytearray"_s, "1"_s}, {"QString"});
    row("a variant is one within a variant", {"variant"_s, "1"_s}, {"variant int"});
    row("an enum is an int where it is last", {"enum"_s, "day"_s}, {"int"});
    row("an enum is a bool in front", {"enumFirst"_s, "day"_s, "1"_s}, {"bool", "double"});
}

void CtlEmitTest::declaredTypes()
{
    QFETCH(QStringList, arguments);
    QFETCH(QList<QByteArray>, sent);
    listener.ids.clear();
    QCOMPARE(runCtl(QStringList{"emit"_s} + arguments).status, 0);
    QTRY_COMPARE_WITH_TIMEOUT(listener.ids.size(), 1, busPatience);
    QCOMPARE(listener.types, sent);
}

// NOLINTNEXTLINE(readability-function-size): a table
void CtlEmitTest::refused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("complaint");
    const auto row = [](const char *name, const QStringList &arguments, const QString &complaint) {
        QTest::newRow(name) << arguments << complaint;
    };
    const QString longText(65536, QLatin1Char('x'));
    const QString half(32760, QLatin1Char('x'));
    row("no bool", {"bool"_s, "yes"_s},
        "\"yes\" does not fit v: it is none of true, false, 1, 0; the event 1 is declared as "
        "bool(bool v)"_s);
    row("a byte above 255", {"byte"_s, "256"_s}, "from 0 to 255"_s);
    row("a byte beyond Latin-1", {"byte"_s, "€"_s}, "no character of Latin-1"_s);
    row("a byte in front", {"byteFirst"_s, "65"_s, "1"_s},
        "only the last argument can be a byte"_s);
    row("an int16 too large", {"int16"_s, "32768"_s}, "from -32768 to 32767"_s);
    row("an int16 in front", {"int16First"_s, "1"_s, "1"_s},
        "only the last argument can be an int16"_s);
    row("an int32 too large", {"int32"_s, "2147483648"_s}, "from -2147483648 to 2147483647"_s);
    row("an int32 with a fraction", {"int32"_s, "1.0"_s}, "no whole number"_s);
    row("an int32 with a blank", {"int32"_s, " 1"_s}, "no whole number"_s);
    row("an empty int32", {"int32"_s, ""_s}, "no whole number"_s);
    row("an int64 of which bits would be lost", {"int64"_s, "2147483648"_s},
        "what the log keeps of 64 bits"_s);
    row("a negative uint64", {"uint64"_s, "-1"_s}, "from 0 to 2147483647"_s);
    row("a float", {"float"_s, "1.5"_s}, "nothing that is sent is read back as a float"_s);
    row("no double", {"double"_s, "1,5"_s}, "it is no number"_s);
    row("a string too long", {"string"_s, longText}, "longer than the 65535 bytes"_s);
    row("a bytearray too long", {"bytearray"_s, longText}, "longer than the 65535 bytes"_s);
    row("a record a byte too long", {"string"_s, QString(65488, QLatin1Char('x'))},
        "its record would have 65536 bytes"_s);
    row("a record too long", {"three"_s, half, half, "x"_s},
        "its record would have 65573 bytes, and the log takes 65535 at most"_s);
    row("no item of an enum", {"enum"_s, "noon"_s},
        "it is none of 0 (day), 1 (night), 2 (dusk), 7 (1), 300 (far); the event 12 is declared "
        "as enum(enum Mode v)"_s);
    row("an enum's number without an item", {"enum"_s, "3"_s}, "it is none of"_s);
    row("an item above 255", {"enum"_s, "far"_s}, "only the items 0 to 255"_s);
    row("an enum in front with another item", {"enumFirst"_s, "dusk"_s, "1"_s},
        "only the last argument can be an enum with other items than 0 and 1; the event 14 is "
        "declared as enumFirst(enum Mode mode, double volts)"_s);
    row("an enum that the catalogue does not have", {"noSuchEnum"_s, "1"_s}, "no such enum"_s);
    row("an unknown type", {"odd"_s, "1"_s}, "declares no type that is known"_s);
    row("a value too few", {"enumFirst"_s, "day"_s}, "2 values are declared, and 1 given"_s);
    row("a value too many", {"none"_s, "x"_s}, "0 values are declared, and 1 given"_s);
    row("a name twice", {"three"_s, "a=1"_s, "a=2"_s, "b"_s}, "a is given twice"_s);
    row("an unknown name", {"nothing"_s}, "does not know the event \"nothing\""_s);
    row("an unknown id", {"4711"_s}, "does not know the event \"4711\""_s);
    row("an id of more than 32 bits", {"4294967297"_s}, "does not know the event"_s);
    row("a name of two events", {"twice"_s}, "several events are called \"twice\"; give an id"_s);
    row("no event", {}, "emit takes EVENT [VALUE...]"_s);
    row("a path without a slash", {"none"_s, "--path"_s, "power"_s}, "no path of an object"_s);
    row("a path that ends with a slash", {"none"_s, "--path"_s, "/power/"_s},
        "no path of an object"_s);
    row("a path with two slashes", {"none"_s, "--path"_s, "/a//b"_s}, "no path of an object"_s);
    row("a path with a sign", {"none"_s, "--path"_s, "/a-b"_s}, "no path of an object"_s);
    row("a path that the bus hangs up on", {"none"_s, "--path"_s, "/org/freedesktop/DBus/Local"_s},
        "no path of an object"_s);
    row("a value not of its exact type", {"1"_s, "--type"_s, "y"_s, "256"_s},
        "\"256\" is no value of the type y"_s);
    row("an exact type that is none", {"1"_s, "--type"_s, "ia{sv}"_s, "1"_s, "2"_s},
        "\"a{sv}\" begins with no type"_s);
    row("a variant of nothing", {"1"_s, "--type"_s, "v"_s, "1"_s}, "begins with no type"_s);
    row("more exact types than values", {"1"_s, "--type"_s, "ii"_s, "1"_s},
        "2 types are named, and 1 values given"_s);
    row("fewer exact types than values", {"1"_s, "--type"_s, ""_s, "1"_s},
        "0 types are named, and 1 values given"_s);
    row("an unknown name with exact types", {"nothing"_s, "--type"_s, ""_s}, "does not know"_s);
}

void CtlEmitTest::refused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, complaint);
    listener.ids.clear();
    const CtlRun run = runCtl(QStringList{"emit"_s} + arguments);
    QVERIFY2(QString::fromUtf8(run.errors).contains(complaint), run.errors.constData());
    QCOMPARE(run.errors.count('\n'), QByteArray::size_type(1));
    QCOMPARE(run.status, 2);
    QCOMPARE(run.out, QByteArray());
    device->settle(); // whatever was sent would have come before the answer
    QCOMPARE(listener.ids, QList<int>());
}

void CtlEmitTest::exactTypes_data()
{
    QTest::addColumn<QString>("types");
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<QList<QByteArray>>("received");
    const auto row = [](const char *name, const QString &types, const QStringList &values,
                        const QList<QByteArray> &received) {
        QTest::newRow(name) << types << values << received;
    };
    row("every number", "bynqiuxtd"_s,
        {"true"_s, "255"_s, "-1"_s, "65535"_s, "-1"_s, "4294967295"_s, "-9223372036854775808"_s,
         "18446744073709551615"_s, "0.5"_s},
        {"bool", "uchar", "short", "ushort", "int", "uint", "qlonglong", "qulonglong", "double"});
    row("texts", "so"_s, {"x"_s, "/a/b"_s}, {"QString", "QDBusObjectPath"});
    row("arrays", "ayas"_s, {"abc"_s, "abc"_s}, {"QByteArray", "QStringList"});
    row("variants", "vivvsvay"_s, {"1"_s, "x"_s, "abc"_s},
        {"variant int", "variant variant QString", "variant QByteArray"});
    row("nothing", ""_s, {}, {});
}

void CtlEmitTest::exactTypes()
{
    QFETCH(QString, types);
    QFETCH(QStringList, values);
    QFETCH(QList<QByteArray>, received);
    listener.ids.clear();
    const CtlRun run = runCtl(QStringList{"emit"_s, "4711"_s, "--type"_s, types} + values);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.status, 0);
    QTRY_COMPARE_WITH_TIMEOUT(listener.ids, QList<int>{4711}, busPatience);
    QCOMPARE(listener.types, received);
}

void CtlEmitTest::pathIsTheTools()
{
    QCOMPARE(runCtl({"emit"_s, "none"_s}).status, 0);
    QCOMPARE(runCtl({"emit"_s, "bool"_s, "1"_s, "--path"_s, "/power/supply"_s}).status, 0);
    QCOMPARE(runCtl({"emit"_s, "bool"_s, "0"_s, "--path"_s, "/"_s}).status, 0);
    QStringList paths;
    for (const auto each : stored()) {
        if (each.toObject().value("eventtype"_s).toInt() != Device::fillerId) {
            paths.append(each.toObject().value("path"_s).toString());
        }
    }
    QCOMPARE(paths.mid(paths.size() - 3),
             (QStringList{"/systemeventctl"_s, "/power/supply"_s, "/"_s}));
}

void CtlEmitTest::waitsForTheRecord()
{
    QVERIFY(device->fillBundle());
    listener.ids.clear();
    QProcess tool;
    tool.start(ctlProgram(), {"emit"_s, "string"_s, "soon"_s, "--wait"_s});
    QTRY_COMPARE_WITH_TIMEOUT(listener.ids, QList<int>{9}, busPatience);
    device->settle();
    QCOMPARE(tool.state(), QProcess::Running);
    QVERIFY(device->fillBundle());
    QTRY_COMPARE_WITH_TIMEOUT(tool.state(), QProcess::NotRunning, busPatience);
    QCOMPARE(tool.exitCode(), 0);
    QCOMPARE(tool.readAllStandardError(), QByteArray());
    const QString number = QString::fromLatin1(tool.readAllStandardOutput());
    QVERIFY(number.endsWith(QLatin1Char('\n')));
    const quint64 found = number.trimmed().toULongLong();
    const QString record = device->result("jsonLogfile"_s, {found, found}).toString();
    QVERIFY2(record.contains("\"msg\":\"soon\""_s), qPrintable(record));
}

//! Others say the same before and afterwards, and somebody else meanwhile.
void CtlEmitTest::waitsForItsOwnRecord()
{
    const auto same = [this] { device->change("/systemeventctl"_s, 9, {"same"_s}); };
    same();
    QVERIFY(device->fillBundle());
    same();
    listener.ids.clear();
    QProcess tool;
    tool.start(ctlProgram(), {"emit"_s, "string"_s, "same"_s, "--wait"_s});
    QTRY_VERIFY_WITH_TIMEOUT(listener.ids.size() >= 2, busPatience);
    device->change("/other"_s, 9, {"same"_s});
    device->settle();
    same();
    const QJsonArray log = stored();
    QTRY_COMPARE_WITH_TIMEOUT(tool.state(), QProcess::NotRunning, busPatience);
    QCOMPARE(tool.exitCode(), 0);
    QStringList numbers;
    for (const auto each : log) {
        const QJsonObject record = each.toObject();
        if (record.value("msg"_s) == "same"_s) {
            numbers.append(QString::number(record.value("eventnr"_s).toInt()));
        }
    }
    QCOMPARE(numbers.size(), 5);
    QCOMPARE(QString::fromLatin1(tool.readAllStandardOutput()), numbers.at(2) + "\n"_s);
}

void CtlEmitTest::waitsForNothingThatIsNotStored()
{
    QVERIFY(device->setProperty("logLocal"_s, false));
    listener.ids.clear();
    const CtlRun off = runCtl({"emit"_s, "none"_s, "--wait"_s});
    QVERIFY(device->setProperty("logLocal"_s, true));
    QCOMPARE(off.status, 4);
    QCOMPARE(off.errors,
             QByteArray("systemeventctl: the daemon stores nothing: logLocal is off; "
                        "nothing is announced\n"));
    device->stop();
    device->config.values.insert("SystemeventLoglevel"_s, "4"_s);
    QVERIFY(device->start());
    const CtlRun low = runCtl({"emit"_s, "three"_s, "a"_s, "b"_s, "c"_s, "--wait"_s});
    QCOMPARE(low.status, 4);
    QCOMPARE(low.errors,
             QByteArray("systemeventctl: the daemon stores no events up to level 4: loglevel is "
                        "4; nothing is announced\n"));
    device->settle();
    QCOMPARE(listener.ids, QList<int>());
    device->config.values.remove("SystemeventLoglevel"_s);
}

void CtlEmitTest::needsTheDaemon()
{
    device->stop();
    listener.ids.clear();
    const CtlRun run = runCtl({"emit"_s, "none"_s});
    QCOMPARE(run.status, 4);
    QCOMPARE(run.errors,
             QByteArray("systemeventctl: the daemon does not run; start it, with "
                        "\"systemctl start systemeventlogger\"\n"));
    QVERIFY(device->start());
    device->settle();
    QCOMPARE(listener.ids, QList<int>());
}

void CtlEmitTest::needsTheBus_data()
{
    QTest::addColumn<bool>("isMute");
    QTest::newRow("one that is not there is no bus") << false;
    QTest::newRow("one that never says anything is none") << true;
}

void CtlEmitTest::needsTheBus()
{
    QFETCH(bool, isMute);
    const QTemporaryDir folder;
    const QString path = folder.filePath("bus"_s);
    QLocalServer server;
    QVERIFY(!isMute || server.listen(path));
    const CtlRun run
        = runShell("DBUS_SYSTEM_BUS_ADDRESS=unix:path=%1 \"$CTL\" emit none"_s.arg(path));
    QCOMPARE(run.status, 4);
    QCOMPARE(run.errors, QByteArray("systemeventctl: the system bus cannot be reached\n"));
}

QTEST_GUILESS_MAIN(CtlEmitTest)
#include "tst_ctlemit.moc"

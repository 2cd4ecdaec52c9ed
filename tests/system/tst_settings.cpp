// SPDX-License-Identifier: Apache-2.0

// Settings: loaded from the configuration service, stored there by every write.

#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QFile>
#include <QTest>

namespace
{

const QStringList loading{"getTrimmed SystemeventLogLocal"_s, "getTrimmed SystemeventLogNetwork"_s,
                          "getTrimmed SystemeventLogNetworkaddress"_s,
                          "getTrimmed SystemeventLogtail"_s, "getTrimmed SystemeventLoglevel"_s};

QVariantMap defaults()
{
    return {{"loglocal"_s, false},
            {"lognetwork"_s, false},
            {"lognetworkaddress"_s, QString()},
            {"logtail"_s, 10},
            {"loglevel"_s, -1},
            {"loglang"_s, "en"_s},
            {"minLogNr"_s, QVariant::fromValue(~quint64(0))},
            {"maxLogNr"_s, QVariant::fromValue(quint64(0))}};
}

QVariantMap changed(const QString &key, const QVariant &value)
{
    QVariantMap values = defaults();
    values.insert(key, value);
    return values;
}

} // namespace

class SettingsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void storedValue_data();
    void storedValue();
    void defaultsHold_data();
    void defaultsHold();
    void slowServiceIsWaitedFor();
    void vanishingServiceIsGivenUp();
    void propertyWrite_data();
    void propertyWrite();
    void switchFromAnotherType_data();
    void switchFromAnotherType();
    void numberFromAnotherType_data();
    void numberFromAnotherType();
    void textFromAnotherType_data();
    void textFromAnotherType();
    void addressNotation_data();
    void addressNotation();
    void refusedType_data();
    void refusedType();
    void loglevelWriteDeletesFiles();
    void writesWithoutServiceTakeEffect();
    void everythingSurvivesARestartButTheLanguage();
    void astronomicalLogtailIsHarmless();

private:
    QVariantMap allValues();
    void checkWrite(const QString &property, const QVariant &value, const QVariantMap &values,
                    const QString &stored);

    TestBus bus;
    std::unique_ptr<Device> device;
};

void SettingsTest::init()
{
    device = std::make_unique<Device>();
}

void SettingsTest::cleanup()
{
    device.reset();
}

QVariantMap SettingsTest::allValues()
{
    return qdbus_cast<QVariantMap>(device->result("allValues"_s));
}

void SettingsTest::storedValue_data()
{
    const QString local = "SystemeventLogLocal"_s;
    const QString network = "SystemeventLogNetwork"_s;
    const QString address = "SystemeventLogNetworkaddress"_s;
    const QString logtail = "SystemeventLogtail"_s;
    const QString loglevel = "SystemeventLoglevel"_s;
    const auto writtenBack = [](const QString &key, const char *value) {
        return QStringList{"set "_s + key + "="_s + QString::fromLatin1(value), "save"_s};
    };
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QVariantMap>("values");
    QTest::addColumn<QStringList>("calls"); // besides those that load
    const QStringList none;

    QTest::newRow("1 switches local logging on")
        << local << "1"_s << changed("loglocal"_s, true) << writtenBack(local, "true");
    QTest::newRow("TRUE is written back in lower case")
        << local << "TRUE"_s << changed("loglocal"_s, true) << writtenBack(local, "true");
    QTest::newRow("any other text is true")
        << local << "nonsense"_s << changed("loglocal"_s, true) << writtenBack(local, "true");
    QTest::newRow("0 is false and written back")
        << local << "0"_s << defaults() << writtenBack(local, "false");
    QTest::newRow("False is false in any case")
        << local << "False"_s << defaults() << writtenBack(local, "false");
    QTest::newRow("an empty text leaves it off and writes nothing")
        << local << QString() << defaults() << none;
    QTest::newRow("network logging on")
        << network << "true"_s << changed("lognetwork"_s, true) << writtenBack(network, "true");
    QTest::newRow("network logging off")
        << network << "FALSE"_s << defaults() << writtenBack(network, "false");
    QTest::newRow("address is not written back")
        << address << "192.0.2.7"_s << changed("lognetworkaddress"_s, "192.0.2.7"_s) << none;
    QTest::newRow("IPv6 address") << address << "2001:DB8:0::1"_s
                                  << changed("lognetworkaddress"_s, "2001:db8::1"_s) << none;
    QTest::newRow("a text that is no address") << address << "receiver"_s << defaults() << none;
    QTest::newRow("logtail is not written back")
        << logtail << "3"_s << changed("logtail"_s, 3) << none;
    QTest::newRow("logtail 0 is ignored") << logtail << "0"_s << defaults() << none;
    QTest::newRow("logtail abc is ignored") << logtail << "abc"_s << defaults() << none;
    QTest::newRow("logtail -4 is ignored") << logtail << "-4"_s << defaults() << none;
    QTest::newRow("loglevel is not written back")
        << loglevel << "4"_s << changed("loglevel"_s, 4) << none;
    QTest::newRow("loglevel abc is 0") << loglevel << "abc"_s << changed("loglevel"_s, 0) << none;
    QTest::newRow("loglevel may be negative")
        << loglevel << "-3"_s << changed("loglevel"_s, -3) << none;
}

void SettingsTest::storedValue()
{
    QFETCH(QString, key);
    QFETCH(QString, stored);
    QFETCH(QVariantMap, values);
    QFETCH(QStringList, calls);
    device->config.values.insert(key, stored);
    QVERIFY(device->start());
    QCOMPARE(allValues(), values);
    QTRY_COMPARE(device->config.calls, loading + calls);
}

void SettingsTest::defaultsHold_data()
{
    QTest::addColumn<int>("manner");
    QTest::addColumn<QStringList>("calls");
    QTest::newRow("nothing stored") << int(ConfigService::Manner::Answers) << loading;
    QTest::newRow("the service errs") << int(ConfigService::Manner::Errs) << loading;
    QTest::newRow("the service talks nonsense")
        << int(ConfigService::Manner::TalksNonsense) << loading;
    QTest::newRow("no service") << int(ConfigService::Manner::IsAbsent) << QStringList{};
}

void SettingsTest::defaultsHold()
{
    QFETCH(int, manner);
    QFETCH(QStringList, calls);
    device->config.behave(ConfigService::Manner(manner));
    QVERIFY(device->start());
    QCOMPARE(allValues(), defaults());
    QCOMPARE(device->config.calls, calls);
    QCOMPARE(device->outputLines("dbus"_s), QStringList{}); // not listening, and no complaint
}

void SettingsTest::slowServiceIsWaitedFor()
{
    device->config.values.insert("SystemeventLogtail"_s, "4"_s);
    device->config.behave(ConfigService::Manner::IsSilent);
    device->launch();
    QTRY_COMPARE(device->config.calls.size(), 5);
    device->config.release();
    QTRY_VERIFY(device->isServing());
    QCOMPARE(allValues(), changed("logtail"_s, 4));
}

void SettingsTest::vanishingServiceIsGivenUp()
{
    device->config.behave(ConfigService::Manner::IsSilent);
    device->launch();
    QTRY_COMPARE(device->config.calls.size(), 5);
    device->config.leaveTheBus(); // the bus tells callers that no answer will come
    QTRY_VERIFY(device->isServing());
    QCOMPARE(allValues(), defaults());
}

void SettingsTest::propertyWrite_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QVariantMap>("values");
    QTest::addColumn<QString>("stored");
    QTest::newRow("logLocal") << "logLocal"_s << QVariant(true) << changed("loglocal"_s, true)
                              << "SystemeventLogLocal=true"_s;
    QTest::newRow("logLocal off") << "logLocal"_s << QVariant(false) << defaults()
                                  << "SystemeventLogLocal=false"_s;
    QTest::newRow("logNetwork") << "logNetwork"_s << QVariant(true) << changed("lognetwork"_s, true)
                                << "SystemeventLogNetwork=true"_s;
    QTest::newRow("logNetworkAddress") << "logNetworkAddress"_s << QVariant("192.0.2.1"_s)
                                       << changed("lognetworkaddress"_s, "192.0.2.1"_s)
                                       << "SystemeventLogNetworkaddress=192.0.2.1"_s;
    QTest::newRow("logNetworkAddress in canonical text")
        << "logNetworkAddress"_s << QVariant("2001:DB8::0001"_s)
        << changed("lognetworkaddress"_s, "2001:db8::1"_s)
        << "SystemeventLogNetworkaddress=2001:db8::1"_s;
    QTest::newRow("logNetworkAddress that is none stores an empty text")
        << "logNetworkAddress"_s << QVariant("nowhere"_s) << defaults()
        << "SystemeventLogNetworkaddress="_s;
    QTest::newRow("logNetworkLang stores the address under an empty key")
        << "logNetworkLang"_s << QVariant("de"_s) << changed("loglang"_s, "de"_s) << "="_s;
    QTest::newRow("logtail") << "logtail"_s << QVariant(7) << changed("logtail"_s, 7)
                             << "SystemeventLogtail=7"_s;
    QTest::newRow("logtail 0 is stored but ignored")
        << "logtail"_s << QVariant(0) << defaults() << "SystemeventLogtail=0"_s;
    QTest::newRow("an unchanged logtail is stored again")
        << "logtail"_s << QVariant(10) << defaults() << "SystemeventLogtail=10"_s;
    QTest::newRow("loglevel changes logtail and is only stored")
        << "loglevel"_s << QVariant(5) << changed("logtail"_s, 5) << "SystemeventLoglevel=5"_s;
    QTest::newRow("loglevel below 1 changes nothing but is stored")
        << "loglevel"_s << QVariant(-1) << defaults() << "SystemeventLoglevel=-1"_s;
}

void SettingsTest::propertyWrite()
{
    QFETCH(QString, property);
    QFETCH(QVariant, value);
    QFETCH(QVariantMap, values);
    QFETCH(QString, stored);
    checkWrite(property, value, values, stored);
}

void SettingsTest::checkWrite(const QString &property, const QVariant &value,
                              const QVariantMap &values, const QString &stored)
{
    // A stored switch is written back, which may arrive after the daemon's first answer.
    const int writtenBack = device->config.values.contains("SystemeventLogLocal"_s) ? 2 : 0;
    QVERIFY(device->start());
    QTRY_COMPARE(int(device->config.calls.size()), int(loading.size()) + writtenBack);
    device->config.calls.clear();
    QVERIFY(device->setProperty(property, value));
    QCOMPARE(allValues(), values);
    QTRY_COMPARE(device->config.calls, (QStringList{"set "_s + stored, "save"_s}));
}

// From here on: what docs/dbus.md says under "Values of another type".

void SettingsTest::switchFromAnotherType_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("on");
    QTest::newRow("i 0 is false") << QVariant(0) << false;
    QTest::newRow("i 2 is true") << QVariant(2) << true;
    QTest::newRow("i -1 is true") << QVariant(-1) << true;
    QTest::newRow("t 0 is false") << QVariant(quint64(0)) << false;
    QTest::newRow("x 2^32 is true") << QVariant(qint64(1) << 32) << true;
    QTest::newRow("n 0 is false") << QVariant::fromValue(short(0)) << false;
    QTest::newRow("q 1 is true") << QVariant::fromValue(ushort(1)) << true;
    QTest::newRow("d 0 is false") << QVariant(0.0) << false;
    QTest::newRow("d 0.5 is true") << QVariant(0.5) << true;
    QTest::newRow("the text 0 is false") << QVariant("0"_s) << false;
    QTest::newRow("the text False is false in any case") << QVariant("False"_s) << false;
    QTest::newRow("the empty text is false") << QVariant(""_s) << false;
    QTest::newRow("the text 1 is true") << QVariant("1"_s) << true;
    QTest::newRow("the text off is true") << QVariant("off"_s) << true;
    QTest::newRow("the text no is true") << QVariant("no"_s) << true;
    QTest::newRow("the text 00 is true") << QVariant("00"_s) << true;
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0) // refusedType: before
    QTest::newRow("y 0 is false") << QVariant::fromValue(uchar(0)) << false;
    QTest::newRow("y 3 is true") << QVariant::fromValue(uchar(3)) << true;
#endif
    QTest::newRow("bytes are a text: false") << QVariant(QByteArray("false")) << false;
    QTest::newRow("bytes are a text: true") << QVariant(QByteArray(1, '\0')) << true;
}

void SettingsTest::switchFromAnotherType()
{
    QFETCH(QVariant, value);
    QFETCH(bool, on);
    // It is the other way round before.
    device->config.values.insert("SystemeventLogLocal"_s, on ? "false"_s : "true"_s);
    const QString stored = on ? "SystemeventLogLocal=true"_s : "SystemeventLogLocal=false"_s;
    checkWrite("logLocal"_s, value, changed("loglocal"_s, on), stored);
}

void SettingsTest::numberFromAnotherType_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<int>("number");
    const quint64 beyond = (quint64(1) << 32) + 5;
    QTest::newRow("b true is 1") << QVariant(true) << 1;
    QTest::newRow("b false is 0") << QVariant(false) << 0;
    QTest::newRow("y 5 is 5") << QVariant::fromValue(uchar(5)) << 5;
    QTest::newRow("n 5 is 5") << QVariant::fromValue(short(5)) << 5;
    QTest::newRow("q 65535 is 65535") << QVariant::fromValue(ushort(65535)) << 65535;
    QTest::newRow("u 4294967295 is -1") << QVariant(4294967295U) << -1;
    QTest::newRow("x keeps its low 32 bits") << QVariant(qint64(beyond)) << 5;
    QTest::newRow("t keeps its low 32 bits") << QVariant(beyond) << 5;
    QTest::newRow("x 2147483648 is negative") << QVariant(qint64(1) << 31) << -2147483647 - 1;
    QTest::newRow("d is rounded down") << QVariant(3.4) << 3;
    QTest::newRow("d is rounded up from one half on") << QVariant(3.5) << 4;
    QTest::newRow("d keeps the low 32 bits") << QVariant(double(beyond)) << 5;
    QTest::newRow("a text in decimal digits") << QVariant("7"_s) << 7;
    QTest::newRow("a text with blanks around") << QVariant(" 7 "_s) << 7;
    QTest::newRow("a text with a sign") << QVariant("+7"_s) << 7;
    QTest::newRow("a text with leading zeros is decimal") << QVariant("010"_s) << 10;
    QTest::newRow("a text keeps the low 32 bits") << QVariant(QString::number(beyond)) << 5;
    QTest::newRow("bytes are a text") << QVariant(QByteArray("7")) << 7;
}

void SettingsTest::numberFromAnotherType()
{
    QFETCH(QVariant, value);
    QFETCH(int, number);
    checkWrite("logtail"_s, value, number < 1 ? defaults() : changed("logtail"_s, number),
               "SystemeventLogtail=%1"_s.arg(number));
}

void SettingsTest::textFromAnotherType_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("language"); // any text is one
    QTest::newRow("b true") << QVariant(true) << "true"_s;
    QTest::newRow("i -5") << QVariant(-5) << "-5"_s;
    QTest::newRow("n 5") << QVariant::fromValue(short(5)) << "5"_s;
    QTest::newRow("t 18446744073709551615") << QVariant(~quint64(0)) << "18446744073709551615"_s;
    QTest::newRow("d 1.50") << QVariant(1.50) << "1.5"_s;
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0) // refusedType: before
    QTest::newRow("y 65 is a character") << QVariant::fromValue(uchar(65)) << "A"_s;
#endif
    QTest::newRow("bytes in UTF-8") << QVariant(QByteArray("d\xC3\xA9")) << "d\u00E9"_s;
    QTest::newRow("an array of one text") << QVariant(QStringList{"de"_s}) << "de"_s;
}

void SettingsTest::textFromAnotherType()
{
    QFETCH(QVariant, value);
    QFETCH(QString, language);
    checkWrite("logNetworkLang"_s, value, changed("loglang"_s, language), "="_s);
}

void SettingsTest::addressNotation_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("address");
    QTest::newRow("two numbers") << QVariant("10.1"_s) << "10.0.0.1"_s;
    QTest::newRow("three numbers") << QVariant("10.1.2"_s) << "10.1.0.2"_s;
    QTest::newRow("one number") << QVariant("2130706433"_s) << "127.0.0.1"_s;
    QTest::newRow("the last number fills the rest") << QVariant("10.258"_s) << "10.0.1.2"_s;
    QTest::newRow("octal") << QVariant("010.0.0.1"_s) << "8.0.0.1"_s;
    QTest::newRow("hexadecimal") << QVariant("0x7f.0.0.1"_s) << "127.0.0.1"_s;
    QTest::newRow("blanks around it") << QVariant(" 192.0.2.1 "_s) << "192.0.2.1"_s;
    QTest::newRow("an interface behind it") << QVariant("fe80::1%eth0"_s) << "fe80::1%eth0"_s;
    QTest::newRow("no octal digit, no address") << QVariant("10.0.0.08"_s) << QString();
    QTest::newRow("beyond 255, no address") << QVariant("10.0.0.256"_s) << QString();
    QTest::newRow("with a port, no address") << QVariant("192.0.2.1:514"_s) << QString();
    QTest::newRow("in brackets, no address") << QVariant("[::1]"_s) << QString();
    QTest::newRow("i 5 is read as its text") << QVariant(5) << "0.0.0.5"_s;
    QTest::newRow("d 10.25 is read as its text") << QVariant(10.25) << "10.0.0.25"_s;
    QTest::newRow("b true is no address") << QVariant(true) << QString();
}

void SettingsTest::addressNotation()
{
    QFETCH(QVariant, value);
    QFETCH(QString, address);
    device->config.values.insert("SystemeventLogNetworkaddress"_s, "192.0.2.9"_s);
    checkWrite("logNetworkAddress"_s, value, changed("lognetworkaddress"_s, address),
               "SystemeventLogNetworkaddress="_s + address);
}

void SettingsTest::refusedType_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QVariant>("value");
    const auto rows = [](const char *name, const QVariant &value, const QStringList &properties) {
        for (const QString &property : properties) {
            QTest::addRow("%s for %s", name, qPrintable(property)) << property << value;
        }
    };
    const QStringList all{"logLocal"_s, "logtail"_s, "logNetworkAddress"_s};
    const QStringList number{"logtail"_s};
    QDBusArgument structure;
    structure.beginStructure();
    structure << 1 << "10.0.0.1"_s;
    structure.endStructure();
    rows("an empty text", ""_s, number);
    rows("a text that is no number", "7x"_s, number);
    rows("a text with a fraction", "7.0"_s, number);
    rows("a text in hexadecimal", "0x7"_s, number);
    rows("empty bytes", QByteArray(), number);
    rows("two texts", QStringList{"10.0.0.1"_s, "10.0.0.2"_s}, all);
    rows("no text in an array", QStringList(), all);
    rows("one text in an array", QStringList{"1"_s}, {"logLocal"_s, "logtail"_s});
    rows("an object path", QVariant::fromValue(QDBusObjectPath("/a"_s)), all);
    rows("a signature", QVariant::fromValue(QDBusSignature("i"_s)), all);
    rows("a descriptor", QVariant::fromValue(QDBusUnixFileDescriptor(0)), all);
    rows("a variant in the variant", QVariant::fromValue(QDBusVariant(1)), all);
    rows("an array of variants", QVariantList{1}, all);
    rows("an array of numbers", QVariant::fromValue(QList<int>{1}), all);
    rows("a structure", QVariant::fromValue(structure), all);
    rows("a dictionary", QVariantMap{{"a"_s, 1}}, all);
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    rows("a byte", QVariant::fromValue(uchar(1)), {"logLocal"_s, "logNetworkAddress"_s});
#endif
}

void SettingsTest::refusedType()
{
    QFETCH(QString, property);
    QFETCH(QVariant, value);
    device->config.values.insert("SystemeventLogNetworkaddress"_s, "192.0.2.9"_s);
    QVERIFY(device->start());
    device->config.calls.clear();
    QVERIFY(!device->setProperty(property, value));
    QCOMPARE(allValues(), changed("lognetworkaddress"_s, "192.0.2.9"_s));
    QVERIFY(device->setProperty("logtail"_s, 9)); // would be stored after it
    QTRY_COMPARE(device->config.calls.count("save"_s), 1);
    QCOMPARE(device->config.calls.constFirst(), "set SystemeventLogtail=9"_s);
}

void SettingsTest::loglevelWriteDeletesFiles()
{
    for (int i = 1; i <= 5; ++i) {
        Device::writeLogFile(i, RecordBytes::record(quint64(100 - i)));
    }
    QVERIFY(device->start());
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), 95ULL);
    QVERIFY(device->setProperty("loglevel"_s, 3));
    QCOMPARE(device->property("loglevel"_s).toInt(), -1);
    QVERIFY(QFile::exists(Device::logPath(3)));
    QVERIFY(!QFile::exists(Device::logPath(4)));
    QVERIFY(!QFile::exists(Device::logPath(5)));
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), 97ULL);
    QTRY_COMPARE(device->config.values.value("SystemeventLoglevel"_s), "3"_s);
    device->stop();
    QVERIFY(device->start());
    QCOMPARE(device->property("loglevel"_s).toInt(), 3);
    QCOMPARE(device->property("logtail"_s).toInt(), 10);
}

void SettingsTest::writesWithoutServiceTakeEffect()
{
    device->config.behave(ConfigService::Manner::IsAbsent);
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logtail"_s, 2));
    QVERIFY(device->setProperty("logLocal"_s, true));
    QCOMPARE(device->property("logtail"_s).toInt(), 2);
    QVERIFY(device->fillBundle());
}

void SettingsTest::everythingSurvivesARestartButTheLanguage()
{
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logLocal"_s, true));
    QVERIFY(device->setProperty("logNetwork"_s, true));
    QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
    QVERIFY(device->setProperty("logNetworkLang"_s, "de"_s));
    QVERIFY(device->setProperty("logtail"_s, 6));
    QCOMPARE(allValues().value("loglang"_s).toString(), "de"_s);
    device->settle();
    QTRY_COMPARE(device->config.calls.count("save"_s), 5);
    device->stop();
    QVERIFY(device->start());
    QVariantMap expected = defaults();
    expected.insert("loglocal"_s, true);
    expected.insert("lognetwork"_s, true);
    expected.insert("lognetworkaddress"_s, "127.0.0.1"_s);
    expected.insert("logtail"_s, 6);
    QCOMPARE(allValues(), expected);
}

void SettingsTest::astronomicalLogtailIsHarmless()
{
    device->config.values.insert("SystemeventLogtail"_s, "2147483647"_s);
    device->config.values.insert("SystemeventLogLocal"_s, "1"_s);
    Device::writeLogFile(12, RecordBytes::record(1));
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logtail"_s, 1)); // within the time limit of the call
    QVERIFY(!QFile::exists(Device::logPath(12)));
    QVERIFY(device->setProperty("logtail"_s, 2147483647));
    QCOMPARE(device->call("clearLogfiles"_s).type(), QDBusMessage::ReplyMessage);
}

QTEST_GUILESS_MAIN(SettingsTest)
#include "tst_settings.moc"

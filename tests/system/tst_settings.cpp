// SPDX-License-Identifier: Apache-2.0

// Settings: loaded from the configuration service, stored there by every write.

#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QDBusArgument>
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
    void loglevelWriteDeletesFiles();
    void writesWithoutServiceTakeEffect();
    void everythingSurvivesARestartButTheLanguage();
    void astronomicalLogtailIsHarmless();

private:
    QVariantMap allValues();

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
    QVERIFY(device->start());
    device->config.calls.clear();
    QVERIFY(device->setProperty(property, value));
    QCOMPARE(allValues(), values);
    QTRY_COMPARE(device->config.calls, (QStringList{"set "_s + stored, "save"_s}));
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

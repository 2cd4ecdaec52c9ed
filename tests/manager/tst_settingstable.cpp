// SPDX-License-Identifier: Apache-2.0

// Every setting: what a write does and stores, and what a stored text does at a start.

#include "binlog/binaryloginterface.h"
#include "catalog/systemeventcatalogue.h"
#include "manager/settings.h"
#include "support/literals.h"
#include "udp/udploginterface.h"

#include <QTemporaryDir>
#include <QTest>

namespace
{

//! Settings with the outputs they act on, and a store that writes down what it gets.
struct Bench {
    Bench()
        : log(2560, 30, 10, 102400, QDir(folder.path()))
        , sender(&catalogue)
        , settings(
              log, sender,
              [this](const QString &key, const QString &text) {
                  events.append("store "_s + key + "="_s + text);
              },
              [this] { events.append("switched"_s); })
    {
    }

    //! What holds for a setting, by its name for clients.
    [[nodiscard]] QVariant value(int setting) const
    {
        const QStringList names{"loglocal"_s, "lognetwork"_s, "lognetworkaddress"_s,
                                "loglang"_s,  "logtail"_s,    "loglevel"_s};
        return settings.values().value(names.value(setting));
    }

    QTemporaryDir folder;
    SystemeventCatalogue catalogue;
    BinaryLogInterface log;
    UdpLogInterface sender;
    QStringList events;
    Settings settings;
};

} // namespace

class SettingsTableTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaults();
    void written_data();
    void written();
    void loaded_data();
    void loaded();
    void questionsAtAStart();
    void levelOfARunStays();
    void logtailActsOnTheLog();
};

void SettingsTableTest::defaults()
{
    const Bench bench;
    QCOMPARE(bench.settings.values(),
             (QVariantMap{{"loglocal"_s, false},
                          {"lognetwork"_s, false},
                          {"lognetworkaddress"_s, QString()},
                          {"loglang"_s, "en"_s},
                          {"logtail"_s, 10},
                          {"loglevel"_s, -1}}));
    QCOMPARE(bench.events, QStringList{});
}

void SettingsTableTest::written_data()
{
    QTest::addColumn<int>("setting");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QVariant>("holds");
    QTest::addColumn<QStringList>("events");
    const QString local = "store SystemeventLogLocal="_s;
    const QString network = "store SystemeventLogNetwork="_s;
    const QString address = "store SystemeventLogNetworkaddress="_s;
    const QString tail = "store SystemeventLogtail="_s;
    const QString level = "store SystemeventLoglevel="_s;
    const QString switched = "switched"_s;

    QTest::newRow("a switch is stored before anybody is told")
        << int(Settings::LogLocal) << QVariant(true) << QVariant(true)
        << QStringList{local + "true"_s, switched};
    QTest::newRow("an unchanged switch is stored and told again")
        << int(Settings::LogLocal) << QVariant(false) << QVariant(false)
        << QStringList{local + "false"_s, switched};
    QTest::newRow("the other switch")
        << int(Settings::LogNetwork) << QVariant(true) << QVariant(true)
        << QStringList{network + "true"_s, switched};
    QTest::newRow("an address is stored as it is read back")
        << int(Settings::LogNetworkAddress) << QVariant("192.168.001.2"_s)
        << QVariant("192.168.1.2"_s) << QStringList{address + "192.168.1.2"_s};
    QTest::newRow("what is no address leaves none")
        << int(Settings::LogNetworkAddress) << QVariant("receiver"_s) << QVariant(QString())
        << QStringList{address};
    QTest::newRow("a language stores the address under no key")
        << int(Settings::LogNetworkLang) << QVariant("de"_s) << QVariant("de"_s)
        << QStringList{"store ="_s};
    QTest::newRow("logtail") << int(Settings::Logtail) << QVariant(3) << QVariant(3)
                             << QStringList{tail + "3"_s};
    QTest::newRow("a logtail below 1 is only stored")
        << int(Settings::Logtail) << QVariant(0) << QVariant(10) << QStringList{tail + "0"_s};
    QTest::newRow("a level is only stored")
        << int(Settings::Loglevel) << QVariant(5) << QVariant(-1) << QStringList{level + "5"_s};
}

void SettingsTableTest::written()
{
    QFETCH(int, setting);
    QFETCH(QVariant, value);
    QFETCH(QStringList, events);
    Bench bench;
    bench.settings.write(Settings::Name(setting), value);
    QTEST(bench.value(setting), "holds");
    QCOMPARE(bench.events, events);
}

void SettingsTableTest::loaded_data()
{
    QTest::addColumn<int>("setting");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QVariant>("holds");
    QTest::addColumn<QStringList>("events");
    const QStringList nothing;
    const QString local = "store SystemeventLogLocal="_s;

    QTest::newRow("a switch is stored anew in one spelling")
        << int(Settings::LogLocal) << "1"_s << QVariant(true)
        << QStringList{local + "true"_s, "switched"_s};
    QTest::newRow("false is off in any case")
        << int(Settings::LogLocal) << "FALSE"_s << QVariant(false)
        << QStringList{local + "false"_s, "switched"_s};
    QTest::newRow("any other text is on") << int(Settings::LogLocal) << "no"_s << QVariant(true)
                                          << QStringList{local + "true"_s, "switched"_s};
    QTest::newRow("no text leaves a switch alone")
        << int(Settings::LogLocal) << QString() << QVariant(false) << nothing;
    QTest::newRow("an address is not stored anew")
        << int(Settings::LogNetworkAddress) << "::1"_s << QVariant("::1"_s) << nothing;
    QTest::newRow("logtail is not stored anew")
        << int(Settings::Logtail) << "4"_s << QVariant(4) << nothing;
    QTest::newRow("a logtail that is no number is ignored")
        << int(Settings::Logtail) << "four"_s << QVariant(10) << nothing;
    QTest::newRow("a level counts at once")
        << int(Settings::Loglevel) << "4"_s << QVariant(4) << nothing;
    QTest::newRow("a level that is no number is 0")
        << int(Settings::Loglevel) << "warning"_s << QVariant(0) << nothing;
}

void SettingsTableTest::loaded()
{
    QFETCH(int, setting);
    QFETCH(QString, text);
    QFETCH(QStringList, events);
    Bench bench;
    bench.settings.load(Settings::Name(setting), text);
    QTEST(bench.value(setting), "holds");
    QCOMPARE(bench.events, events);
}

void SettingsTableTest::questionsAtAStart()
{
    QStringList keys;
    const auto stored = Settings::storedOnes();
    for (const Settings::Name setting : stored) {
        keys.append(Settings::key(setting));
    }
    QCOMPARE(keys,
             (QStringList{"SystemeventLogLocal"_s, "SystemeventLogNetwork"_s,
                          "SystemeventLogNetworkaddress"_s, "SystemeventLogtail"_s,
                          "SystemeventLoglevel"_s}));
}

void SettingsTableTest::levelOfARunStays()
{
    Bench bench;
    bench.settings.load(Settings::Loglevel, "4"_s);
    bench.settings.write(Settings::Loglevel, 6);
    QCOMPARE(bench.settings.highestDroppedLevel(), 4);
    QCOMPARE(bench.value(Settings::Logtail), QVariant(6));
}

void SettingsTableTest::logtailActsOnTheLog()
{
    Bench bench;
    bench.settings.write(Settings::Logtail, 2);
    QCOMPARE(bench.log.getLogtail(), 2);
    bench.settings.load(Settings::Logtail, "7"_s);
    QCOMPARE(bench.log.getLogtail(), 7);
    bench.settings.write(Settings::LogNetworkLang, "fr"_s);
    QCOMPARE(bench.sender.getLanguage(), "fr"_s);
}

QTEST_GUILESS_MAIN(SettingsTableTest)
#include "tst_settingstable.moc"

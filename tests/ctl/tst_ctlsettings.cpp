// SPDX-License-Identifier: Apache-2.0

// The tool's "settings" and "clear" on a device.

#include "ctl/ctlprocess.h"
#include "ctl/terminal.h"
#include "support/device.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QJsonObject>
#include <QTest>

class CtlSettingsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void showsAll();
    void showsOne();
    void showsThemAsObjects();
    void storedIsUnknown_data();
    void storedIsUnknown();
    void changeMayNotBeKept();
    void changes_data();
    void changes();
    void refused_data();
    void refused();
    void warnsOfQuirks_data();
    void warnsOfQuirks();
    void deletesOnlyWhenAgreed_data();
    void deletesOnlyWhenAgreed();
    void asks_data();
    void asks();
    void nothingToDelete_data();
    void nothingToDelete();
    void clears();
    void clearsOnlyWhenAgreed_data();
    void clearsOnlyWhenAgreed();
    void needsTheDaemon_data();
    void needsTheDaemon();

private:
    [[nodiscard]] static QList<int> files();

    TestBus bus;
    std::unique_ptr<Device> device;
};

void CtlSettingsTest::init()
{
    device = std::make_unique<Device>();
    device->config.values = {{"SystemeventLogLocal"_s, "true"_s},
                             {"SystemeventLogNetworkaddress"_s, "192.0.2.1"_s},
                             {"SystemeventLogtail"_s, "8"_s}};
    QVERIFY(device->start());
    device->config.calls.clear();
}

void CtlSettingsTest::cleanup()
{
    device.reset();
}

//! The indices of the log files that are there.
QList<int> CtlSettingsTest::files()
{
    QList<int> found;
    for (int i = 0; i < 20; ++i) {
        if (QFile::exists(Device::logPath(i))) {
            found.append(i);
        }
    }
    return found;
}

void CtlSettingsTest::showsAll()
{
    QVERIFY(device->setProperty("loglevel"_s, -5));
    QVERIFY(device->setProperty("logNetworkLang"_s, "de"_s));
    device->settle();
    QTRY_COMPARE_WITH_TIMEOUT(device->config.values.value("SystemeventLoglevel"_s), "-5"_s,
                              busPatience);
    const CtlRun run = runCtl({"settings"_s});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out,
             QByteArray("SETTING           NOW                       STORED\n"
                        "logLocal          true                      true\n"
                        "logNetwork        false                     -\n"
                        "logNetworkAddress 192.0.2.1                 192.0.2.1\n"
                        "logNetworkLang    de                        (not kept)\n"
                        "logtail           8                         8\n"
                        "loglevel          -1                        -5 (from the next "
                        "start on)\n"));
}

void CtlSettingsTest::showsOne()
{
    const CtlRun run = runCtl({"settings"_s, "logtail"_s});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out,
             QByteArray("SETTING           NOW                       STORED\n"
                        "logtail           8                         8\n"));
    QCOMPARE(device->config.calls, QStringList{"getTrimmed SystemeventLogtail"_s});
}

void CtlSettingsTest::showsThemAsObjects()
{
    const CtlRun run = runCtl({"settings"_s, "-o"_s, "json"_s});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out,
             QByteArray("{\"name\":\"logLocal\",\"value\":true,\"stored\":\"true\"}\n"
                        "{\"name\":\"logNetwork\",\"value\":false,\"stored\":\"\"}\n"
                        "{\"name\":\"logNetworkAddress\",\"value\":\"192.0.2.1\","
                        "\"stored\":\"192.0.2.1\"}\n"
                        "{\"name\":\"logNetworkLang\",\"value\":\"en\",\"stored\":null}\n"
                        "{\"name\":\"logtail\",\"value\":8,\"stored\":\"8\"}\n"
                        "{\"name\":\"loglevel\",\"value\":-1,\"stored\":\"\"}\n"));
    QCOMPARE(run.objects().size(), 6);
}

void CtlSettingsTest::storedIsUnknown_data()
{
    QTest::addColumn<int>("manner");
    QTest::addColumn<QString>("reason");
    QTest::newRow("a service that is not there")
        << int(ConfigService::Manner::IsAbsent) << "com.tovel.fwconfig"_s;
    QTest::newRow("a service that errs")
        << int(ConfigService::Manner::Errs) << "no such variable"_s;
    QTest::newRow("a service that is silent is asked once")
        << int(ConfigService::Manner::IsSilent) << "Did not receive a reply"_s;
    QTest::newRow("a service that answers otherwise")
        << int(ConfigService::Manner::TalksNonsense) << "the answer is no text"_s;
}

void CtlSettingsTest::storedIsUnknown()
{
    QFETCH(int, manner);
    QFETCH(QString, reason);
    device->config.behave(ConfigService::Manner(manner));
    const CtlRun run = runCtl({"settings"_s});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors.count('\n'), QByteArray::size_type(1));
    QVERIFY2(run.errors.startsWith("systemeventctl: what is stored cannot be seen: "
                                   "com.tovel.fwconfig: "),
             run.errors.constData());
    QVERIFY2(run.errors.contains(reason.toUtf8()), run.errors.constData());
    QVERIFY(run.out.contains("\nlogtail           8                         ?\n"));
    QVERIFY(device->config.calls.size() <= 1);
    if (ConfigService::Manner(manner) == ConfigService::Manner::IsSilent) {
        device->config.release();
    }
}

//! What the daemon cannot have stored is told, though it is changed.
void CtlSettingsTest::changeMayNotBeKept()
{
    device->config.behave(ConfigService::Manner::IsAbsent);
    const CtlRun run = runCtl({"settings"_s, "logtail"_s, "9"_s});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors,
             QByteArray("systemeventctl: logtail is changed, and may not be kept over a start: "
                        "com.tovel.fwconfig is not there\n"));
    QCOMPARE(runCtl({"settings"_s, "logtail"_s, "8"_s, "-q"_s}).errors, QByteArray());
    QCOMPARE(device->property("logtail"_s).toInt(), 8);
}

void CtlSettingsTest::changes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("stored");
    const auto row
        = [](const char *name, const QString &setting, const QString &typed, const QVariant &value,
             const QString &stored) { QTest::newRow(name) << setting << typed << value << stored; };
    row("a switch off", "logLocal"_s, "false"_s, false, "SystemeventLogLocal=false"_s);
    row("a switch off by a number", "logLocal"_s, "0"_s, false, "SystemeventLogLocal=false"_s);
    row("a switch on", "logNetwork"_s, "true"_s, true, "SystemeventLogNetwork=true"_s);
    row("a switch on by a number", "logNetwork"_s, "1"_s, true, "SystemeventLogNetwork=true"_s);
    row("an IPv4 address", "logNetworkAddress"_s, "192.0.2.7"_s, "192.0.2.7"_s,
        "SystemeventLogNetworkaddress=192.0.2.7"_s);
    row("an IPv6 address", "logNetworkAddress"_s, "2001:db8::1"_s, "2001:db8::1"_s,
        "SystemeventLogNetworkaddress=2001:db8::1"_s);
    row("an IPv6 address at an interface", "logNetworkAddress"_s, "fe80::1%lo"_s, "fe80::1%lo"_s,
        "SystemeventLogNetworkaddress=fe80::1%lo"_s);
    row("no address", "logNetworkAddress"_s, ""_s, ""_s, "SystemeventLogNetworkaddress="_s);
    row("a language", "logNetworkLang"_s, "de"_s, "de"_s, "=192.0.2.1"_s);
    row("a higher logtail", "logtail"_s, "12"_s, 12, "SystemeventLogtail=12"_s);
    row("a level that leaves logtail alone", "loglevel"_s, "-7"_s, -1, "SystemeventLoglevel=-7"_s);
}

void CtlSettingsTest::changes()
{
    QFETCH(QString, name);
    QFETCH(QString, typed);
    QFETCH(QVariant, value);
    QFETCH(QString, stored);
    const CtlRun run = runCtl({"settings"_s, name, typed, "-q"_s});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(device->property(name), value);
    const QStringList calls{"set "_s + stored, "save"_s};
    QTRY_COMPARE_WITH_TIMEOUT(device->config.calls, calls, busPatience);
    QCOMPARE(device->property("logtail"_s).toInt(), name == "logtail"_s ? 12 : 8);
}

void CtlSettingsTest::refused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("complaint");
    const auto row = [](const char *name, const QStringList &arguments, const QString &complaint) {
        QTest::newRow(name) << arguments << complaint;
    };
    const QString address = "takes an IPv4 address of four decimal numbers"_s;
    row("an unknown name", {"logLevel"_s},
        "there is no setting \"logLevel\"; there are logLocal, logNetwork, logNetworkAddress, "
        "logNetworkLang, logtail, loglevel"_s);
    row("an unknown name with a value", {"maxLogNr"_s, "1"_s}, "no setting \"maxLogNr\""_s);
    row("a word for a switch", {"logLocal"_s, "on"_s},
        "\"on\" does not fit logLocal, which takes true, false, 1 or 0"_s);
    row("a number for a switch", {"logLocal"_s, "2"_s}, "does not fit"_s);
    row("an empty switch", {"logLocal"_s, ""_s}, "does not fit"_s);
    row("a name of a host", {"logNetworkAddress"_s, "localhost"_s}, address);
    row("an address with a port", {"logNetworkAddress"_s, "192.0.2.1:514"_s}, address);
    row("an address that is octal", {"logNetworkAddress"_s, "010.0.0.1"_s}, address);
    row("a short address", {"logNetworkAddress"_s, "10.1"_s}, address);
    row("an address with a blank", {"logNetworkAddress"_s, " 192.0.2.1"_s}, address);
    row("an interface behind IPv4", {"logNetworkAddress"_s, "192.0.2.1%lo"_s}, address);
    row("an address in brackets", {"logNetworkAddress"_s, "[::1]"_s}, address);
    row("no interface behind its sign", {"logNetworkAddress"_s, "fe80::1%"_s}, address);
    row("no language", {"logNetworkLang"_s, ""_s}, "takes the code of a language"_s);
    row("a logtail that the daemon ignores", {"logtail"_s, "0"_s},
        "takes a whole number from 1 to 2147483647"_s);
    row("a logtail with a fraction", {"logtail"_s, "3.0"_s}, "takes a whole number"_s);
    row("a logtail of more than 32 bits", {"logtail"_s, "4294967301"_s}, "takes a whole number"_s);
    row("a level that is no number", {"loglevel"_s, "warning"_s}, "takes a whole number"_s);
    row("a level with a blank", {"loglevel"_s, "4 "_s}, "takes a whole number"_s);
    row("a level of more than 32 bits", {"loglevel"_s, "4294967301"_s}, "takes a whole number"_s);
    row("two values", {"loglevel"_s, "4"_s, "5"_s}, "settings takes [NAME [VALUE]]"_s);
}

void CtlSettingsTest::refused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, complaint);
    const CtlRun run = runCtl(QStringList{"settings"_s} + arguments);
    QVERIFY2(QString::fromUtf8(run.errors).contains(complaint), run.errors.constData());
    QCOMPARE(run.status, 2);
    QCOMPARE(run.out, QByteArray());
    device->settle();
    QCOMPARE(device->config.calls, QStringList());
}

void CtlSettingsTest::warnsOfQuirks_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QByteArray>("warning");
    QTest::newRow("the level counts from the next start on, and sets logtail")
        << "loglevel"_s
        << "9"_s
        << QByteArray("systemeventctl: loglevel counts from the daemon's next start on; until "
                      "then it stays -1. Writing it also sets logtail to 9, at once\n");
    QTest::newRow("a level below 1 leaves logtail alone")
        << "loglevel"_s
        << "0"_s
        << QByteArray("systemeventctl: loglevel counts from the daemon's next start on; until "
                      "then it stays -1\n");
    QTest::newRow("the language is not kept")
        << "logNetworkLang"_s
        << "de"_s
        << QByteArray("systemeventctl: logNetworkLang is not kept: when the daemon starts again "
                      "it is en. What the daemon stores with it is the network address, under an "
                      "empty key\n");
    QTest::newRow("a switch has no quirk") << "logLocal"_s
                                           << "false"_s << QByteArray();
}

void CtlSettingsTest::warnsOfQuirks()
{
    QFETCH(QString, name);
    QFETCH(QString, value);
    QFETCH(QByteArray, warning);
    const CtlRun run = runCtl({"settings"_s, name, value});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, warning);
    QTRY_COMPARE_WITH_TIMEOUT(device->config.calls.value(1), "save"_s, busPatience);
}

void CtlSettingsTest::deletesOnlyWhenAgreed_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("a smaller logtail") << "logtail"_s;
    QTest::newRow("a level that sets logtail") << "loglevel"_s;
}

void CtlSettingsTest::deletesOnlyWhenAgreed()
{
    QFETCH(QString, name);
    for (const int index : {3, 6, 8, 9}) { // the daemon leaves those above logtail alone
        Device::writeLogFile(index, "x");
    }
    const CtlRun refusal = runCtl({"settings"_s, name, "5"_s, "-q"_s});
    QCOMPARE(refusal.status, 2);
    QCOMPARE(refusal.errors,
             QByteArray("systemeventctl: this deletes the 2 oldest log files, zib6.log and above; "
                        "say --yes if that is meant\n"));
    QCOMPARE(device->property("logtail"_s).toInt(), 8);
    QCOMPARE(files(), (QList<int>{0, 3, 6, 8, 9}));
    const CtlRun agreed = runCtl({"settings"_s, name, "5"_s, "-q"_s, "--yes"_s});
    QCOMPARE(agreed.errors, QByteArray());
    QCOMPARE(agreed.status, 0);
    QCOMPARE(device->property("logtail"_s).toInt(), 5);
    QCOMPARE(files(), (QList<int>{0, 3, 9}));
}

void CtlSettingsTest::asks_data()
{
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<int>("status");
    QTest::newRow("yes is agreed") << QByteArray("yes\n") << 0;
    QTest::newRow("a large letter is, too") << QByteArray("Y\n") << 0;
    QTest::newRow("no is not") << QByteArray("no\n") << 1;
    QTest::newRow("nothing is not") << QByteArray("\n") << 1;
    QTest::newRow("a yes in a second line is not") << QByteArray("\ny\n") << 1;
    QTest::newRow("the end is not") << QByteArray("\x04") << 1;
}

void CtlSettingsTest::asks()
{
    QFETCH(QByteArray, typed);
    QFETCH(int, status);
    Device::writeLogFile(6, "x");
    Terminal terminal("\"$CTL\" settings logtail 5"_s, 120);
    terminal.type(typed);
    const QByteArray shown = terminal.finish();
    QVERIFY2(shown.contains("this deletes the 1 oldest log files, zib6.log and above. Go on? "
                            "[y/N]\n"),
             shown.constData());
    QCOMPARE(shown.contains("nothing is changed"), status == 1);
    QCOMPARE(terminal.status(), status);
    QCOMPARE(files().contains(6), status == 1);
}

void CtlSettingsTest::nothingToDelete_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("value");
    QTest::newRow("a smaller logtail above all files") << "logtail"_s
                                                       << "4"_s;
    QTest::newRow("a level that sets it so") << "loglevel"_s
                                             << "4"_s;
    QTest::newRow("a level that leaves logtail alone") << "loglevel"_s
                                                       << "0"_s;
    QTest::newRow("a higher logtail") << "logtail"_s
                                      << "20"_s;
}

void CtlSettingsTest::nothingToDelete()
{
    QFETCH(QString, name);
    QFETCH(QString, value);
    Device::writeLogFile(3, "x");
    const CtlRun run = runCtl({"settings"_s, name, value, "-q"_s});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.status, 0);
    QCOMPARE(files(), (QList<int>{0, 3}));
}

void CtlSettingsTest::clears()
{
    QVERIFY(device->fillBundle());
    Device::writeLogFile(3, "x");
    QVERIFY(device->result("getMaxLogNr"_s).toULongLong() > 0);
    const CtlRun run = runCtl({"clear"_s, "--yes"_s});
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(files(), QList<int>{0});
    QCOMPARE(Device::logFile(0), QByteArray());
}

void CtlSettingsTest::clearsOnlyWhenAgreed_data()
{
    QTest::addColumn<bool>("isTerminal");
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<int>("status");
    QTest::newRow("without a terminal --yes is wanted") << false << QByteArray() << 2;
    QTest::newRow("yes at the terminal is agreed") << true << QByteArray("y\n") << 0;
    QTest::newRow("no at the terminal is not") << true << QByteArray("n\n") << 1;
}

void CtlSettingsTest::clearsOnlyWhenAgreed()
{
    QFETCH(bool, isTerminal);
    QFETCH(QByteArray, typed);
    QFETCH(int, status);
    QVERIFY(device->fillBundle());
    QByteArray shown;
    if (isTerminal) {
        Terminal terminal("\"$CTL\" clear"_s, 120);
        terminal.type(typed);
        shown = terminal.finish();
        QCOMPARE(terminal.status(), status);
    } else {
        const CtlRun run = runCtl({"clear"_s});
        shown = run.errors;
        QCOMPARE(run.status, status);
    }
    QVERIFY2(shown.contains("this deletes all log files of the device"), shown.constData());
    QCOMPARE(shown.contains("--yes"), !isTerminal);
    QCOMPARE(Device::logFile(0).isEmpty(), status == 0);
}

void CtlSettingsTest::needsTheDaemon_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("to show settings") << QStringList{"settings"_s};
    QTest::newRow("to change one") << QStringList{"settings"_s, "logtail"_s, "5"_s};
    QTest::newRow("to clear the log") << QStringList{"clear"_s, "--yes"_s};
}

void CtlSettingsTest::needsTheDaemon()
{
    QFETCH(QStringList, arguments);
    device->stop();
    const CtlRun run = runCtl(arguments);
    QVERIFY(device->start());
    QCOMPARE(run.status, 4);
    QCOMPARE(run.errors,
             QByteArray("systemeventctl: the daemon does not run; start it, with "
                        "\"systemctl start systemeventlogger\"\n"));
}

QTEST_GUILESS_MAIN(CtlSettingsTest)
#include "tst_ctlsettings.moc"

// SPDX-License-Identifier: Apache-2.0

// The tool on a device: the log in its usual place, beside the daemon and without it.

#include "ctl/ctlprocess.h"
#include "support/device.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDir>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

class CtlOnBusTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void refusedBesideTheDaemon();
    void namedFolderNeedsNoBus();
    void noPageAmongTheLog();
    void goesOnWithTheRightNumber();

private:
    TestBus bus;
};

void CtlOnBusTest::refusedBesideTheDaemon()
{
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    QVERIFY(device.start());
    QVERIFY(device.fillBundle());
    QCOMPARE(runCtl({"verify"_s}).status, 0);
    const CtlRun beside = runCtl({"repair"_s});
    QCOMPARE(beside.status, 4);
    QVERIFY2(beside.errors.contains("stop"), beside.errors.constData());
    // With a named folder, which asks no bus, the folder's lock tells.
    const CtlRun named = runCtl({"repair"_s, "-D"_s, "/srv/public/log"_s});
    QCOMPARE(named.status, 4);
    QVERIFY2(named.errors.contains("/srv/public/log"), named.errors.constData());
    device.stop();
    const CtlRun alone = runCtl({"repair"_s});
    QVERIFY2(alone.status == 0, alone.errors.constData());

    // The name alone is enough, whoever has it.
    QDBusConnection connection = QDBusConnection::systemBus();
    QVERIFY(connection.registerService("com.tovel.systemeventlogger"_s));
    const CtlRun refused = runCtl({"repair"_s, "--dry-run"_s});
    QVERIFY(connection.unregisterService("com.tovel.systemeventlogger"_s));
    QCOMPARE(refused.status, 4);
    QCOMPARE(refused.errors,
             QByteArray("systemeventctl: the daemon runs; stop it first, with \"systemctl stop "
                        "systemeventlogger\"\n"));
}

void CtlOnBusTest::namedFolderNeedsNoBus()
{
    Device device;
    QVERIFY(QDir("/srv/public"_s).mkdir("log"_s));
    QDBusConnection connection = QDBusConnection::systemBus();
    QVERIFY(connection.registerService("com.tovel.systemeventlogger"_s));
    const CtlRun run = runCtl({"repair"_s, "-D"_s, "/srv/public/log"_s});
    QVERIFY(connection.unregisterService("com.tovel.systemeventlogger"_s));
    QVERIFY2(run.status == 0, run.errors.constData());
}

//! Nobody but the daemon writes there, whatever is read.
void CtlOnBusTest::noPageAmongTheLog()
{
    Device device;
    QVERIFY(QDir("/srv/public"_s).mkpath("log"_s));
    QTemporaryDir elsewhere;
    for (const QString &folder : {"/srv/public/log"_s, elsewhere.path()}) {
        const CtlRun run = runCtl({"report"_s, "/srv/public/log/page.html"_s, "-D"_s, folder});
        QCOMPARE(run.status, 2);
        QVERIFY2(run.errors.contains("is a place of log files"), run.errors.constData());
    }
    QCOMPARE(QDir("/srv/public/log"_s).entryList(QDir::Files), QStringList());
}

void CtlOnBusTest::goesOnWithTheRightNumber()
{
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    QVERIFY(device.start());
    QVERIFY(device.fillBundle());
    device.stop();
    const QByteArray whole = Device::logFile(0);
    Device::writeLogFile(0, whole + whole.left(20));
    const CtlRun run = runCtl({"repair"_s, "-D"_s, "/srv/public/log"_s});
    QVERIFY2(run.status == 0, run.errors.constData());
    QCOMPARE(Device::logFile(0), whole);
    QVERIFY(device.start());
    const quint64 last = device.result("getMaxLogNr"_s).toULongLong();
    QVERIFY(device.fillBundle());
    QVERIFY(device.result("getMaxLogNr"_s).toULongLong() > last);
    device.stop();
    const CtlRun check = runCtl({"verify"_s, "-o"_s, "json"_s});
    QCOMPARE(check.status, 0);
    const QJsonObject summary = check.objects().last().value("summary"_s).toObject();
    QCOMPARE(summary.value("missing"_s), QJsonValue(QJsonArray()));
    QCOMPARE(summary.value("repeated"_s), QJsonValue(QJsonArray()));
}

QTEST_GUILESS_MAIN(CtlOnBusTest)
#include "tst_ctlonbus.moc"

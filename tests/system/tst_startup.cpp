// SPDX-License-Identifier: Apache-2.0

// Starting and ending: the order of things, the fatal messages, the way to syslog.

#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/syslogsocket.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <memory>

#include <sys/resource.h>

namespace
{

const char serviceName[] = "com.tovel.systemeventlogger";

bool nameIsTaken()
{
    return QDBusConnection::systemBus().interface()->isServiceRegistered(
        QString::fromLatin1(serviceName));
}

QDBusPendingCall ask(const QString &path, const QString &interface, const QString &method,
                     const QVariantList &arguments = {})
{
    QDBusMessage message
        = QDBusMessage::createMethodCall(QString::fromLatin1(serviceName), path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection::systemBus().asyncCall(message);
}

} // namespace

class StartupTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void secondInstanceTouchesNothing();
    void nameIsOfTheConnectionForCalls();
    void callsAreAnsweredOnlyWhenAllIsBuilt();
    void fatalMessages_data();
    void fatalMessages();
    void damagedLogDoesNotKeepItFromStarting();
    void warningsReachSyslog();
    void terminationDropsTheQueue();
    void numbersGoOnAfterARestart();
    void numbersGoOnAfterARotation();
    void openFilesLimitIsRaised();
    void standardDescriptorsMayBeMissing_data();
    void standardDescriptorsMayBeMissing();

private:
    TestBus bus;
    std::unique_ptr<Device> device;
};

void StartupTest::init()
{
    device = std::make_unique<Device>();
}

void StartupTest::cleanup()
{
    device.reset();
}

void StartupTest::secondInstanceTouchesNothing()
{
    SyslogSocket syslog;
    QDBusConnection first = QDBusConnection::connectToBus(bus.address(), "first"_s);
    QVERIFY(first.registerService(QString::fromLatin1(serviceName)));
    device->launch();
    QCOMPARE(device->waitForEnd(), "abort"_s);
    QVERIFY(first.unregisterService(QString::fromLatin1(serviceName)));
    QCOMPARE(device->output(), "Registering dbus connection failed.\n"_s);
    QVERIFY(!QFile::exists("/srv/public/log"_s));
    QCOMPARE(device->config.calls, QStringList{});
    QCOMPARE(syslog.received(), QList<QByteArray>{}); // even the fatal message does not get there
}

//! The other one only queues for it, which neither a client nor a second instance notices.
void StartupTest::nameIsOfTheConnectionForCalls()
{
    const QString name = QString::fromLatin1(serviceName);
    const auto askBus = [&name](const QString &method) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            "org.freedesktop.DBus"_s, "/org/freedesktop/DBus"_s, "org.freedesktop.DBus"_s, method);
        message << name;
        return callAndServe(QDBusConnection::systemBus(), message).arguments().value(0);
    };
    QVERIFY(device->start());
    const QString owner = askBus("GetNameOwner"_s).toString();
    const auto inQueue = [&] { return askBus("ListQueuedOwners"_s).toStringList(); };
    QCOMPARE(inQueue(), QStringList{owner});

    QVERIFY(device->setProperty("logLocal"_s, true));
    QTRY_COMPARE_WITH_TIMEOUT(inQueue().size(), 2, busPatience);
    QCOMPARE(inQueue().constFirst(), owner);
    QCOMPARE(askBus("GetNameOwner"_s).toString(), owner);
    QVERIFY(device->isServing());

    QProcess second;
    second.setProcessChannelMode(QProcess::MergedChannels);
    second.start(QString::fromLocal8Bit(qgetenv("SEL_DAEMON")), QStringList());
    QVERIFY(second.waitForFinished(busPatience));
    QCOMPARE(second.exitStatus(), QProcess::CrashExit);
    QCOMPARE(second.readLine(), QByteArray("Registering dbus connection failed.\n"));
    QCOMPARE(inQueue().size(), 2);

    QVERIFY(device->setProperty("logLocal"_s, false));
    QTRY_COMPARE_WITH_TIMEOUT(inQueue(), QStringList{owner}, busPatience);
}

void StartupTest::callsAreAnsweredOnlyWhenAllIsBuilt()
{
    device->config.values.insert("SystemeventLogtail"_s, "4"_s);
    device->config.behave(ConfigService::Manner::IsSilent);
    device->launch();
    QTRY_COMPARE(device->config.calls.size(), 5);
    QVERIFY(nameIsTaken());
    QVERIFY(QFile::exists(Device::logPath(0)));
    const QString properties = "org.freedesktop.DBus.Properties"_s;
    QDBusPendingReply<QVariant> logtail
        = ask("/system/eventlog"_s, properties, "Get"_s, {"local.LogManager"_s, "logtail"_s});
    QDBusPendingReply<QVariant> githash
        = ask("/version"_s, properties, "Get"_s, {"local.Version"_s, "githash"_s});
    // A round trip to another service: the two would have been refused by now.
    QVERIFY(nameIsTaken());
    QVERIFY(!logtail.isFinished() && !githash.isFinished());
    device->config.release();
    QTRY_VERIFY(logtail.isFinished() && githash.isFinished());
    QCOMPARE(qdbus_cast<QDBusVariant>(logtail.reply().arguments().value(0)).variant().toInt(), 4);
    QVERIFY(!githash.isError());
}

void StartupTest::fatalMessages_data()
{
    QTest::addColumn<QString>("removed"); // what is taken away first
    QTest::addColumn<QString>("folder");  // and what folder is put somewhere
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("logFolderIsMade");
    const QString catalogue = "/var/www/data/systemevent.xml"_s;
    const QString noCatalogue
        = "LogManager: can't read systemevents file: /var/www/data/systemevent.xml\n"_s;
    QTest::newRow("no catalogue") << catalogue << QString() << noCatalogue << true;
    QTest::newRow("catalogue is a folder") << catalogue << catalogue << noCatalogue << true;
    QTest::newRow("no /srv/public")
        << "/srv/public"_s << QString() << "/srv/public/log does not exist and cannot be created."_s
        << false;
    QTest::newRow("current file is a folder") << QString() << "/srv/public/log/zib0.log"_s
                                              << "failed to open log file"_s << true;
}

void StartupTest::fatalMessages()
{
    QFETCH(QString, removed);
    QFETCH(QString, folder);
    QFETCH(QString, message);
    QFETCH(bool, logFolderIsMade);
    if (!removed.isEmpty() && !QFile::remove(removed)) {
        QVERIFY(QDir(removed).removeRecursively());
    }
    if (!folder.isEmpty()) {
        QVERIFY(QDir("/"_s).mkpath(folder));
    }
    device->launch();
    QCOMPARE(device->waitForEnd(), "abort"_s);
    QVERIFY2(device->output().contains(message), qPrintable(device->output()));
    QCOMPARE(QFile::exists("/srv/public/log"_s), logFolderIsMade);
    QVERIFY(!nameIsTaken());
    if (!folder.isEmpty()) {
        QVERIFY(QDir(folder).removeRecursively());
    }
}

void StartupTest::damagedLogDoesNotKeepItFromStarting()
{
    Device::writeLogFile(0, QByteArray(1, 'x'));
    Device::writeLogFile(1, QByteArray(4711, '\xFF'));
    Device::writeLogFile(2, RecordBytes::record(77));
    QVERIFY(device->start());
    QVERIFY(device->json().contains("{\"eventnr\":77,"_s));
    QVERIFY(device->setProperty("logLocal"_s, true));
    QVERIFY(device->fillBundle());
    QVERIFY(device->isRunning());
}

void StartupTest::warningsReachSyslog()
{
    SyslogSocket syslog;
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logLocal"_s, true)); // says something at debug level
    device->change("/x"_s, 1005, {QVariant::fromValue(quint64(1))});
    device->settle();
    const QList<QByteArray> lines = syslog.received();
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines[0].startsWith("<172>"), lines[0].constData()); // local5, warning
    QVERIFY2(lines[0].endsWith(" com.tovel.systemeventlogger: Unhandled type"),
             lines[0].constData());
    QCOMPARE(device->outputLines("Unhandled type"_s).size(), 1);
    QCOMPARE(device->outputLines("startet listening"_s).size(), 1);
}

void StartupTest::terminationDropsTheQueue()
{
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    QVERIFY(device->start());
    QVERIFY(device->fillBundle());
    const QByteArray written = Device::logFile(0);
    device->change("/x"_s, 1003, {});
    device->settle();
    device->stop();
    QCOMPARE(Device::logFile(0), written);
}

void StartupTest::numbersGoOnAfterARestart()
{
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    QVERIFY(device->start());
    QVERIFY(device->fillBundle());
    const quint64 last = device->result("getMaxLogNr"_s).toULongLong();
    QVERIFY(last > 1);
    device->stop();
    QVERIFY(device->start());
    const QString message
        = "existing logfile, starting with log nr: "_s + QString::number(last + 1);
    QCOMPARE(device->outputLines(message).size(), 2);
    QVERIFY(device->fillBundle());
    QVERIFY(device->json().contains("{\"eventnr\":%1,"_s.arg(last + 1)));
    QVERIFY(!device->json().contains(",\n,\n"_s));
}

void StartupTest::numbersGoOnAfterARotation()
{
    // What a device finds that lost power right after a rotation.
    Device::writeLogFile(0, {});
    Device::writeLogFile(1, RecordBytes::record(500));
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    QVERIFY(device->start());
    QVERIFY(device->fillBundle());
    QCOMPARE(Device::logFile(0).left(8), RecordBytes::number(501, 8));
}

void StartupTest::openFilesLimitIsRaised()
{
    rlimit before{};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit low = before;
    low.rlim_cur = 200;
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &low), 0);
    const bool started = device->start();
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &before), 0);
    QVERIFY(started);

    rlimit raised{};
    QCOMPARE(prlimit(pid_t(device->processId()), RLIMIT_NOFILE, nullptr, &raised), 0);
    QCOMPARE(raised.rlim_cur, raised.rlim_max);
    QVERIFY(raised.rlim_cur > 200);
}

void StartupTest::standardDescriptorsMayBeMissing_data()
{
    QTest::addColumn<QString>("redirections");
    QTest::addColumn<QList<int>>("missing");
    QTest::newRow("all of them") << "<&- >&- 2>&-"_s << QList<int>{0, 1, 2};
    QTest::newRow("standard error") << "2>&-"_s << QList<int>{2};
    QTest::newRow("standard input and output") << "<&- >&-"_s << QList<int>{0, 1};
}

//! As a bare init script starts it. What it writes there goes nowhere, above all not to the bus.
void StartupTest::standardDescriptorsMayBeMissing()
{
    QFETCH(QString, redirections);
    QFETCH(QList<int>, missing);
    if (qgetenv("SEL_DAEMON").endsWith("emulated-daemon")) {
        QSKIP("the emulator opens descriptors of its own first");
    }
    const SyslogSocket syslog;
    device->launch(redirections);
    QTRY_VERIFY_WITH_TIMEOUT(device->isServing() || !device->isRunning(), busPatience);
    QVERIFY(device->setProperty("logLocal"_s, true)); // says something at debug level
    device->change("/x"_s, 1005, {QVariant::fromValue(quint64(1))});
    device->change("/power/supply"_s, 1001, {true, 12});
    QVERIFY(device->fillBundle());
    QVERIFY(device->json().contains("\"msg\":\"Supply mains 1 at 12 percent\"}"_s));
    const QList<QByteArray> lines = syslog.received();
    QCOMPARE(lines.value(0).mid(lines.value(0).lastIndexOf(": ")), QByteArray(": Unhandled type"));
    for (const int descriptor : missing) {
        const QString path = "/proc/%1/fd/%2"_s.arg(device->processId()).arg(descriptor);
        QCOMPARE(QFile::symLinkTarget(path), "/dev/null"_s);
    }
}

QTEST_GUILESS_MAIN(StartupTest)
#include "tst_startup.moc"

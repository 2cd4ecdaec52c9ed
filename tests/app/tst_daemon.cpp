// SPDX-License-Identifier: Apache-2.0

// An orderly end, which no signal brings about: only the application's own quit().

#include "app/daemon.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QTest>
#include <QTimer>

class DaemonTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endsWithTheApplicationsStatus();

private:
    [[nodiscard]] QDBusConnection client() const;
    //! Asks an object of the daemon to describe itself, as another client of the bus.
    [[nodiscard]] QDBusPendingCall introspect(const QString &path) const;
    //! Has an event queued in the daemon's memory, before it answers the client's next call.
    void queueAnEvent() const;

    TestBus bus;
};

QDBusConnection DaemonTest::client() const
{
    return QDBusConnection::connectToBus(bus.address(), "client"_s);
}

void DaemonTest::queueAnEvent() const
{
    QDBusMessage on
        = QDBusMessage::createMethodCall("com.tovel.systemeventlogger"_s, "/system/eventlog"_s,
                                         "org.freedesktop.DBus.Properties"_s, "Set"_s);
    on << "local.LogManager"_s
       << "logLocal"_s << QVariant::fromValue(QDBusVariant(true));
    QDBusMessage change = QDBusMessage::createSignal("/x"_s, "com.tovel.status"_s, "change"_s);
    change << 1 << QVariant::fromValue(QDBusVariant(QVariantList()));
    const QDBusPendingCall call = client().asyncCall(on);
    QTRY_VERIFY(call.isFinished() && !call.isError()); // it listens
    QVERIFY(client().send(change));
}

QDBusPendingCall DaemonTest::introspect(const QString &path) const
{
    const QDBusMessage message
        = QDBusMessage::createMethodCall("com.tovel.systemeventlogger"_s, path,
                                         "org.freedesktop.DBus.Introspectable"_s, "Introspect"_s);
    return client().asyncCall(message);
}

void DaemonTest::endsWithTheApplicationsStatus()
{
    QVERIFY(QDir("/srv"_s).mkpath("public/log"_s));
    QFile catalogue("/var/www/data/systemevent.xml"_s);
    QVERIFY(catalogue.open(QIODevice::WriteOnly));
    catalogue.close();

    QString description;
    QTimer::singleShot(0, [&] {
        queueAnEvent();
        auto *const watcher = new QDBusPendingCallWatcher(introspect("/system/eventlog"_s), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, [&](QDBusPendingCallWatcher *call) {
            description = call->reply().arguments().value(0).toString();
            QCoreApplication::exit(3);
        });
    });
    QCOMPARE(runDaemon(*QCoreApplication::instance()), 3);
    QVERIFY(description.contains("local.LogManager"_s));
    // What was queued is lost, on purpose.
    QCOMPARE(QFile("/srv/public/log/zib0.log"_s).size(), 0);
    QVERIFY(QFile::exists("/srv/public/log/zib0.log"_s));

    for (const QString &path : {"/system/eventlog"_s, "/version"_s}) {
        const QDBusPendingCall call = introspect(path);
        QTRY_VERIFY(call.isFinished());
        QVERIFY(!call.reply().arguments().value(0).toString().contains("\"local."_s));
    }
    // The name is not given back before the process ends.
    QVERIFY(QDBusConnection::systemBus().interface()->isServiceRegistered(
        "com.tovel.systemeventlogger"_s));
}

QTEST_GUILESS_MAIN(DaemonTest)
#include "tst_daemon.moc"

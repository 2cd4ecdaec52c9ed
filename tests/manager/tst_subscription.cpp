// SPDX-License-Identifier: Apache-2.0

// The subscription to status changes where QtDBus refuses it. A bus cannot make it do
// so: QtDBus sends the match and looks at no answer (tst_intake shows what comes of
// it). So its two functions stand here, in front of those of the library.

#include "manager/logmanager.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QTest>

#include <memory>

namespace
{

bool bindingRefuses = false;
QStringList said; // at debug level, about the subscription

void listen(QtMsgType type, const QMessageLogContext & /*context*/, const QString &message)
{
    if (type == QtDebugMsg && message.startsWith("systemeventlogger:"_s)) {
        said.append(message);
    }
}

QString started(const char *listening)
{
    return "systemeventlogger: startet listening on dbus listening: "_s
        + QString::fromLatin1(listening);
}

QString stopped(const char *listening)
{
    return "systemeventlogger: stopped listening on dbus listening: "_s
        + QString::fromLatin1(listening);
}

} // namespace

bool QDBusConnection::connect(const QString &service, const QString &path, const QString &interface,
                              const QString &name, const QString &signature, QObject *receiver,
                              const char *slot)
{
    return !bindingRefuses
        && connect(service, path, interface, name, QStringList(), signature, receiver, slot);
}

bool QDBusConnection::disconnect(const QString &service, const QString &path,
                                 const QString &interface, const QString &name,
                                 const QString &signature, QObject *receiver, const char *slot)
{
    return !bindingRefuses
        && disconnect(service, path, interface, name, QStringList(), signature, receiver, slot);
}

class SubscriptionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void refusedConnectIsTriedAgainAtTheNextChange();
    void refusedDisconnectIsTriedAgainAtTheNextChange();
    void refusedDisconnectLeavesItListening();

private:
    TestBus bus;
    std::unique_ptr<LogManager> manager;
};

void SubscriptionTest::init()
{
    QVERIFY(QDir("/"_s).mkpath("/srv/public"_s));
    QFile catalogue("/var/www/data/systemevent.xml"_s);
    QVERIFY(catalogue.open(QIODevice::WriteOnly));
    manager = std::make_unique<LogManager>("/system"_s, "eventlog"_s);
    said.clear();
    qInstallMessageHandler(listen);
}

void SubscriptionTest::cleanup()
{
    qInstallMessageHandler(nullptr);
    bindingRefuses = false;
    manager.reset();
}

void SubscriptionTest::refusedConnectIsTriedAgainAtTheNextChange()
{
    bindingRefuses = true;
    manager->setLogLocal(true);
    QCOMPARE(said, QStringList{started("false")});
    manager->setLogNetwork(true);
    QCOMPARE(said, (QStringList{started("false"), started("false")}));
    bindingRefuses = false;
    said.clear();
    manager->setLogLocal(true); // changes nothing else
    QCOMPARE(said, QStringList{started("true")});
    manager->setLogNetwork(true);
    QCOMPARE(said, QStringList{started("true")});
}

void SubscriptionTest::refusedDisconnectIsTriedAgainAtTheNextChange()
{
    manager->setLogLocal(true);
    QCOMPARE(said, QStringList{started("true")});
    said.clear();
    bindingRefuses = true;
    manager->setLogLocal(false);
    QCOMPARE(said, QStringList{stopped("true")});
    manager->setLogNetwork(false);
    QCOMPARE(said, (QStringList{stopped("true"), stopped("true")}));
    bindingRefuses = false;
    said.clear();
    manager->setLogLocal(false);
    QCOMPARE(said, QStringList{stopped("false")});
    manager->setLogLocal(false);
    QCOMPARE(said, QStringList{stopped("false")});
}

void SubscriptionTest::refusedDisconnectLeavesItListening()
{
    manager->setLogLocal(true);
    bindingRefuses = true;
    manager->setLogLocal(false);
    bindingRefuses = false;
    said.clear();
    manager->setLogLocal(true); // not connected a second time
    QCOMPARE(said, QStringList());
    manager->setLogLocal(false);
    QCOMPARE(said, QStringList{stopped("false")});
}

QTEST_GUILESS_MAIN(SubscriptionTest)
#include "tst_subscription.moc"

// SPDX-License-Identifier: Apache-2.0
#include "devicelib/datanode.h"

#include "devicelib/factorymanager.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QtTest>

#include <memory>

class DataNodeTest : public QObject
{
    Q_OBJECT

    TestBus bus;
    zib::FactoryManager claim{"test"_s, "^/test(/|$)"_s};

private Q_SLOTS:
    void initTestCase();
    void init();

    void nothingIsExportedBeforeRegistering();
    void registeringExportsSlots();
    void registeringExportsProperties();
    void unclaimedPathIsExportedWithAWarning();
    void takenPathIsRefused();
    void unregisteringLeavesTheChildren();
    void unregisteringTheTreeTakesTheChildren();
    void nodeMayReturnToTheBus();
    void destructionLeavesTheBus();
};

namespace
{

class SampleNode : public zib::DataNode
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "local.Sample")
    Q_PROPERTY(int level READ level WRITE setLevel)

public:
    using DataNode::DataNode;

    [[nodiscard]] int level() const { return currentLevel; }
    void setLevel(int level) { currentLevel = level; }

private:
    int currentLevel = 3;

public Q_SLOTS:
    QString greeting(const QString &name) { return "hello "_s + name; }
};

//! Calls as another process would: over a connection of its own.
QDBusMessage callNode(const QString &path, const QString &interface, const QString &method,
                      const QVariantList &arguments)
{
    const QDBusConnection client = QDBusConnection::connectToBus(
        QString::fromLocal8Bit(qgetenv("DBUS_SYSTEM_BUS_ADDRESS")), "client"_s);
    QDBusMessage message = QDBusMessage::createMethodCall(
        QDBusConnection::systemBus().baseService(), path, interface, method);
    message.setArguments(arguments);
    return callAndServe(client, message); // the node answers meanwhile
}

bool isServed(const QString &path)
{
    return callNode(path, "local.Sample"_s, "greeting"_s, {"you"_s}).type()
        == QDBusMessage::ReplyMessage;
}

const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");

} // namespace

void DataNodeTest::initTestCase()
{
    QVERIFY(QDBusConnection::systemBus().isConnected());
    claim.takeIntoService();
}

void DataNodeTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
}

void DataNodeTest::nothingIsExportedBeforeRegistering()
{
    const SampleNode node("/test"_s, "a"_s);

    QVERIFY(!isServed("/test/a"_s));
}

void DataNodeTest::registeringExportsSlots()
{
    SampleNode node("/test"_s, "a"_s);

    QVERIFY(node.dbusRegister());

    const QDBusMessage reply = callNode("/test/a"_s, "local.Sample"_s, "greeting"_s, {"you"_s});
    QCOMPARE(reply.arguments(), QVariantList{"hello you"_s});
}

void DataNodeTest::registeringExportsProperties()
{
    SampleNode node("/test"_s, "a"_s);
    QVERIFY(node.dbusRegister());

    const QDBusMessage read
        = callNode("/test/a"_s, properties, "Get"_s, {"local.Sample"_s, "level"_s});
    QCOMPARE(read.arguments().value(0).value<QDBusVariant>().variant(), QVariant(3));

    const QVariant five = QVariant::fromValue(QDBusVariant(5));
    const QDBusMessage written
        = callNode("/test/a"_s, properties, "Set"_s, {"local.Sample"_s, "level"_s, five});
    QCOMPARE(written.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(node.level(), 5);
}

void DataNodeTest::unclaimedPathIsExportedWithAWarning()
{
    SampleNode node("/elsewhere"_s, "a"_s);

    QTest::ignoreMessage(QtWarningMsg, "DataNode: nobody claims the object path /elsewhere/a");
    QVERIFY(node.dbusRegister());

    QVERIFY(isServed("/elsewhere/a"_s));
}

void DataNodeTest::takenPathIsRefused()
{
    SampleNode first("/test"_s, "a"_s);
    SampleNode second("/test"_s, "a"_s);
    QVERIFY(first.dbusRegister());

    QVERIFY(!second.dbusRegister());

    QVERIFY(isServed("/test/a"_s));
}

void DataNodeTest::unregisteringLeavesTheChildren()
{
    SampleNode parent("/test"_s, "a"_s);
    SampleNode child("/test/a"_s, "b"_s);
    QVERIFY(parent.dbusRegister());
    QVERIFY(child.dbusRegister());

    parent.dbusUnregister();

    QVERIFY(!isServed("/test/a"_s));
    QVERIFY(isServed("/test/a/b"_s));
}

void DataNodeTest::unregisteringTheTreeTakesTheChildren()
{
    SampleNode parent("/test"_s, "a"_s);
    SampleNode child("/test/a"_s, "b"_s);
    SampleNode neighbour("/test"_s, "ab"_s);
    QVERIFY(parent.dbusRegister());
    QVERIFY(child.dbusRegister());
    QVERIFY(neighbour.dbusRegister());

    parent.dbusUnregisterTree();

    QVERIFY(!isServed("/test/a"_s));
    QVERIFY(!isServed("/test/a/b"_s));
    QVERIFY(isServed("/test/ab"_s));
}

void DataNodeTest::nodeMayReturnToTheBus()
{
    SampleNode node("/test"_s, "a"_s);
    QVERIFY(node.dbusRegister());
    node.dbusUnregister();

    QVERIFY(node.dbusRegister());

    QVERIFY(isServed("/test/a"_s));
}

void DataNodeTest::destructionLeavesTheBus()
{
    auto node = std::make_unique<SampleNode>("/test"_s, "a"_s);
    QVERIFY(node->dbusRegister());
    QVERIFY(isServed("/test/a"_s));

    node.reset();

    QVERIFY(!isServed("/test/a"_s));
    SampleNode next("/test"_s, "a"_s);
    QVERIFY(next.dbusRegister()); // the path is free again
}

QTEST_GUILESS_MAIN(DataNodeTest)

#include "tst_datanode.moc"

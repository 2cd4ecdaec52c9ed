// SPDX-License-Identifier: Apache-2.0
#include "devicelib/factorymanager.h"

#include "support/literals.h"

#include <QtTest>

using zib::FactoryManager;

class FactoryManagerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void nothingIsClaimedAtFirst();
    void claimCountsOnceInService();
    void claimsOfAllManagersCount();
    void claimOfTheDaemon_data();
    void claimOfTheDaemon();
};

void FactoryManagerTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
}

void FactoryManagerTest::nothingIsClaimedAtFirst()
{
    QVERIFY(!FactoryManager::isClaimed("/system"_s));
    QVERIFY(!FactoryManager::isClaimed(QString()));
}

void FactoryManagerTest::claimCountsOnceInService()
{
    FactoryManager manager("system"_s, "^/a$"_s);

    QVERIFY(!FactoryManager::isClaimed("/a"_s));
    manager.takeIntoService();
    QVERIFY(FactoryManager::isClaimed("/a"_s));
    QVERIFY(!FactoryManager::isClaimed("/b"_s));
}

void FactoryManagerTest::claimsOfAllManagersCount()
{
    FactoryManager first("system"_s, "^/b$"_s);
    FactoryManager second("other"_s, "^/c$"_s);
    first.takeIntoService();
    second.takeIntoService();

    QVERIFY(FactoryManager::isClaimed("/b"_s));
    QVERIFY(FactoryManager::isClaimed("/c"_s));
    QVERIFY(!FactoryManager::isClaimed("/d"_s));
}

void FactoryManagerTest::claimOfTheDaemon_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("claimed");

    QTest::newRow("the domain's own node") << "/system"_s << true;
    QTest::newRow("the log node") << "/system/eventlog"_s << true;
    QTest::newRow("a node below the log node") << "/system/eventlog/a"_s << true;
    QTest::newRow("a node whose name begins like the log node") << "/system/eventlogs"_s << true;
    QTest::newRow("not another node of the domain") << "/system/network"_s << false;
    QTest::newRow("not another domain whose name begins alike") << "/systems"_s << false;
    QTest::newRow("not the domain's name alone") << "system"_s << false;
    QTest::newRow("not the node below another one") << "/a/system"_s << false;
    QTest::newRow("not the root") << "/"_s << false;
    QTest::newRow("not the version node") << "/version"_s << false;
    QTest::newRow("not an empty path") << ""_s << false;
}

void FactoryManagerTest::claimOfTheDaemon()
{
    QFETCH(QString, path);
    FactoryManager manager("system"_s, R"(^\/system($|\/eventlog.*))"_s);
    manager.takeIntoService();

    QTEST(FactoryManager::isClaimed(path), "claimed");
}

QTEST_GUILESS_MAIN(FactoryManagerTest)

#include "tst_factorymanager.moc"

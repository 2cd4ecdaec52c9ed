// SPDX-License-Identifier: Apache-2.0
#include "devicelib/bareboxconfigproxy.h"

#include "devicelib/constants.h"
#include "support/configservice.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QtTest>

#include <memory>

using zib::BareboxConfigProxy;

class BareboxConfigProxyTest : public QObject
{
    Q_OBJECT

    TestBus bus;
    std::unique_ptr<ConfigService> service;
    std::unique_ptr<BareboxConfigProxy> proxy;

private Q_SLOTS:
    void init();
    void cleanup();

    void storedTextIsAskedFor_data();
    void storedTextIsAskedFor();
    void textIsStored();
    void savingIsAskedFor();
    void callsArriveInTheirOrder();
    void callsDoNotWaitForAnswers();
    void errorOfTheServiceIsAnErrorOfTheReply();
    void absentServiceIsAnErrorOfTheReply();
    void answerOfAnotherTypeIsAnErrorOfTheReply();
};

void BareboxConfigProxyTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
    service = std::make_unique<ConfigService>();
    proxy = std::make_unique<BareboxConfigProxy>(zib::FwConfigGlobals::SERVICE_PATH_NAME,
                                                 zib::FwConfigGlobals::SYSTEMVARIABLES_PATH,
                                                 QDBusConnection::systemBus());
}

void BareboxConfigProxyTest::cleanup()
{
    proxy.reset();
    service.reset();
}

void BareboxConfigProxyTest::storedTextIsAskedFor_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("text");

    QTest::newRow("stored text") << "SystemeventLogtail"_s
                                 << "7"_s;
    QTest::newRow("text beyond ASCII") << "Name"_s
                                       << "Tür"_s;
    QTest::newRow("nothing stored gives an empty text") << "Missing"_s
                                                        << ""_s;
}

void BareboxConfigProxyTest::storedTextIsAskedFor()
{
    QFETCH(QString, key);
    service->values = {{"SystemeventLogtail"_s, "7"_s}, {"Name"_s, "Tür"_s}};

    const QDBusPendingReply<QString> reply = proxy->getTrimmed(key);

    QTRY_VERIFY(reply.isFinished());
    QVERIFY(reply.isValid());
    QTEST(reply.value(), "text");
    QCOMPARE(service->calls, QStringList{"getTrimmed "_s + key});
}

void BareboxConfigProxyTest::textIsStored()
{
    const QDBusPendingReply<> reply = proxy->set("SystemeventLogtail"_s, "7"_s);

    QTRY_VERIFY(reply.isFinished());
    QVERIFY(reply.isValid());
    QCOMPARE(service->values.value("SystemeventLogtail"_s), "7"_s);
}

void BareboxConfigProxyTest::savingIsAskedFor()
{
    const QDBusPendingReply<> reply = proxy->save();

    QTRY_VERIFY(reply.isFinished());
    QVERIFY(reply.isValid());
    QCOMPARE(service->calls, QStringList{"save"_s});
}

void BareboxConfigProxyTest::callsArriveInTheirOrder()
{
    proxy->set("a"_s, "1"_s);
    proxy->set("b"_s, "2"_s);
    proxy->save();
    proxy->getTrimmed("a"_s);

    QTRY_COMPARE(service->calls,
                 (QStringList{"set a=1"_s, "set b=2"_s, "save"_s, "getTrimmed a"_s}));
}

void BareboxConfigProxyTest::callsDoNotWaitForAnswers()
{
    service->behave(ConfigService::Manner::IsSilent);
    service->values.insert("a"_s, "1"_s);

    const QDBusPendingReply<QString> reply = proxy->getTrimmed("a"_s);
    QVERIFY(!reply.isFinished());
    QTRY_COMPARE(service->calls.size(), 1);
    QVERIFY(!reply.isFinished());

    service->release();
    QTRY_VERIFY(reply.isFinished());
    QCOMPARE(reply.value(), "1"_s);
}

void BareboxConfigProxyTest::errorOfTheServiceIsAnErrorOfTheReply()
{
    service->behave(ConfigService::Manner::Errs);

    const QDBusPendingReply<QString> reply = proxy->getTrimmed("a"_s);

    QTRY_VERIFY(reply.isFinished());
    QVERIFY(reply.isError());
    QCOMPARE(reply.error().type(), QDBusError::Failed);
}

void BareboxConfigProxyTest::absentServiceIsAnErrorOfTheReply()
{
    service->behave(ConfigService::Manner::IsAbsent);

    const QDBusPendingReply<QString> asked = proxy->getTrimmed("a"_s);
    const QDBusPendingReply<> stored = proxy->set("a"_s, "1"_s);
    const QDBusPendingReply<> saved = proxy->save();

    QTRY_VERIFY(asked.isFinished() && stored.isFinished() && saved.isFinished());
    QCOMPARE(asked.error().type(), QDBusError::ServiceUnknown);
    QCOMPARE(stored.error().type(), QDBusError::ServiceUnknown);
    QCOMPARE(saved.error().type(), QDBusError::ServiceUnknown);
    QVERIFY(service->calls.isEmpty());
}

void BareboxConfigProxyTest::answerOfAnotherTypeIsAnErrorOfTheReply()
{
    service->behave(ConfigService::Manner::TalksNonsense);

    const QDBusPendingReply<QString> reply = proxy->getTrimmed("a"_s);

    QTRY_VERIFY(reply.isFinished());
    QVERIFY(!reply.isValid());
    QVERIFY(reply.isError());
}

QTEST_GUILESS_MAIN(BareboxConfigProxyTest)

#include "tst_bareboxconfigproxy.moc"

// SPDX-License-Identifier: Apache-2.0

// What comes over QtDBus's connection is told of just before and after it is handled. That the
// order of everything follows from it shows tst_order, and that a flood does not make the daemon
// deaf tst_intake.

#include "intake/callwatch.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDBusVariant>
#include <QSignalSpy>
#include <QTest>

//! Notes what reaches it.
class Target : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "test.Target")

public:
    QStringList notes;

public Q_SLOTS:
    void called() { notes += "called"_s; }
    void changed(int id, const QDBusVariant & /*values*/)
    {
        notes += QStringLiteral("change %1").arg(id);
    }
};

class CallWatchTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { target.notes.clear(); }
    void connectionWithoutNotifierIsWarnedOf();
    void callIsToldOfBeforeAndAfter();
    void changeForEverybodyIsToldOfAsSuch();
    void answersAreToldInTheirOrder();
    void nothingIsToldAfterwards();

private:
    [[nodiscard]] std::unique_ptr<CallWatch> watch();
    void callTarget();
    void announce(int id, const QString &to = {});

    TestBus bus;
    Target target;
    QList<quint32> questions;
    QDBusConnection client{QString()};
};

void CallWatchTest::initTestCase()
{
    qRegisterMetaType<QDBusVariant>();
    QDBusConnection daemon = QDBusConnection::systemBus();
    QVERIFY(daemon.registerObject("/target"_s, &target, QDBusConnection::ExportAllSlots));
    QVERIFY(daemon.connect({}, {}, "com.tovel.status"_s, "change"_s, "iv"_s, &target,
                           SLOT(changed(int, QDBusVariant))));
    client = QDBusConnection::connectToBus(bus.address(), "client"_s);
    QVERIFY(client.isConnected());
    // QtDBus keeps back what comes before the event loop has run, and does not tell so.
    callTarget();
}

std::unique_ptr<CallWatch> CallWatchTest::watch()
{
    const auto note = [this](const char *when) {
        return [this, when](const MessageMark &mark) {
            const bool isOurs = mark.sender == client.baseService().toLatin1() && mark.serial > 0;
            target.notes += QLatin1String(when) + (isOurs ? QString() : " another's"_s)
                + (mark.isForEverybody ? " everybody's"_s : QString());
        };
    };
    const auto noteAnswer = [this](const BusAnswer &answer) {
        if (questions.contains(answer.question)) { // the test asks the bus besides
            target.notes += answer.isRefusal ? "refusal"_s : "answer"_s;
        }
    };
    return std::make_unique<CallWatch>(
        QDBusConnection::systemBus(),
        CallWatch::Listener{&target, note("before"), note("after"), noteAnswer});
}

void CallWatchTest::callTarget()
{
    const QDBusMessage answer
        = callAndServe(client,
                       QDBusMessage::createMethodCall(QDBusConnection::systemBus().baseService(),
                                                      "/target"_s, "test.Target"_s, "called"_s));
    QCOMPARE(answer.type(), QDBusMessage::ReplyMessage);
}

void CallWatchTest::announce(int id, const QString &to)
{
    QDBusMessage change = to.isEmpty()
        ? QDBusMessage::createSignal("/p"_s, "com.tovel.status"_s, "change"_s)
        : QDBusMessage::createTargetedSignal(to, "/p"_s, "com.tovel.status"_s, "change"_s);
    change << id << QVariant::fromValue(QDBusVariant(QVariantList()));
    QVERIFY(client.send(change));
}

void CallWatchTest::connectionWithoutNotifierIsWarnedOf()
{
    QTest::ignoreMessage(QtWarningMsg,
                         "QtDBus's connection cannot be watched: status changes come over it.");
    CallWatch none(QDBusConnection("never connected"_s), {});
    QVERIFY(!none.isWatching());
    QVERIFY(none.ask("GetId") != 0); // without an answer
    none.keepReading();              // has nothing to do
}

void CallWatchTest::callIsToldOfBeforeAndAfter()
{
    const auto watching = watch();
    callTarget();
    announce(1, QDBusConnection::systemBus().baseService());
    QTRY_VERIFY_WITH_TIMEOUT(target.notes.size() >= 6, busPatience);
    QCOMPARE(target.notes,
             (QStringList{"before"_s, "called"_s, "after"_s, "before"_s, "change 1"_s, "after"_s}));
}

void CallWatchTest::changeForEverybodyIsToldOfAsSuch()
{
    const auto watching = watch();
    announce(1);
    announce(2, QDBusConnection::systemBus().baseService());
    QTRY_VERIFY_WITH_TIMEOUT(target.notes.size() >= 6, busPatience);
    QCOMPARE(target.notes,
             (QStringList{"before everybody's"_s, "change 1"_s, "after everybody's"_s, "before"_s,
                          "change 2"_s, "after"_s}));
}

void CallWatchTest::answersAreToldInTheirOrder()
{
    const auto watching = watch();
    QVERIFY(watching->isWatching());
    questions.append(watching->ask("GetId"));
    questions.append(watching->ask("RemoveMatch", "type='signal',member='never'")); // an error
    QTRY_VERIFY_WITH_TIMEOUT(target.notes.size() >= 2, busPatience);
    callTarget();
    bus.refuse("GetId"_s);
    questions.append(watching->ask("GetId"));
    QTRY_VERIFY_WITH_TIMEOUT(target.notes.size() >= 6, busPatience);
    bus.refuse({});
    QCOMPARE(target.notes,
             (QStringList{"answer"_s, "answer"_s, "before"_s, "called"_s, "after"_s, "refusal"_s}));
}

void CallWatchTest::nothingIsToldAfterwards()
{
    watch().reset();
    callTarget();
    announce(1);
    QTRY_VERIFY_WITH_TIMEOUT(target.notes.size() >= 2, busPatience);
    QCOMPARE(target.notes, (QStringList{"called"_s, "change 1"_s}));
}

QTEST_GUILESS_MAIN(CallWatchTest)
#include "tst_callwatch.moc"

// SPDX-License-Identifier: Apache-2.0

// A connection is looked after, or a warning says that it cannot be. That a flood does not
// make the daemon deaf shows tst_intake.

#include "devicelib/busreading.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QSignalSpy>
#include <QTest>

class BusReadingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void connectionWithoutNotifierIsWarnedOf();
    void messagesAreNoticedAfterAWhile();

private:
    TestBus bus;
};

void BusReadingTest::connectionWithoutNotifierIsWarnedOf()
{
    QTest::ignoreMessage(QtWarningMsg, "The connection to the bus has no notifier to look after.");
    const zib::BusReading reading(QDBusConnection("never connected"_s));
}

void BusReadingTest::messagesAreNoticedAfterAWhile()
{
    bool warned = false;
    static bool *const warnedOf = &warned;
    const QtMessageHandler before
        = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &message) {
              *warnedOf = *warnedOf || message.contains("no notifier"_s);
          });
    const zib::BusReading reading(QDBusConnection::systemBus());
    qInstallMessageHandler(before);
    QVERIFY(!warned);

    QSignalSpy processed(&reading, &zib::BusReading::processed);
    QVERIFY(processed.wait(busPatience)); // what came before it was made
    QMetaObject::invokeMethod(
        this, [] {}, Qt::QueuedConnection); // as QtDBus delivers
    QVERIFY(processed.wait(busPatience));
}

QTEST_GUILESS_MAIN(BusReadingTest)
#include "tst_busreading.moc"

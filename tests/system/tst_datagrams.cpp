// SPDX-License-Identifier: Apache-2.0

// Network logging of the whole daemon: what arrives at port 514, and what does not.

#include "support/device.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusVariant>
#include <QHostAddress>
#include <QRegularExpression>
#include <QTest>
#include <QUdpSocket>

namespace
{

constexpr quint16 syslogPort = 514;

class Receiver
{
public:
    explicit Receiver(const QString &address)
    {
        if (!socket.bind(QHostAddress(address), syslogPort)) {
            qFatal("cannot bind port 514 of %s", qPrintable(address));
        }
    }

    //! The datagrams that have arrived; on loopback they are there once sent.
    QList<QByteArray> received()
    {
        QList<QByteArray> all;
        while (socket.hasPendingDatagrams()) {
            QByteArray datagram(int(socket.pendingDatagramSize()), '\0');
            socket.readDatagram(datagram.data(), datagram.size());
            all.append(datagram);
        }
        return all;
    }

private:
    QUdpSocket socket;
};

} // namespace

class DatagramsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void wholeDatagram();
    void nothingWithoutReceiver();
    void nothingWhileOffOrFilteredOrUnknown();
    void languageIsTheSetting();
    void protocolMayChangeAtRunTime();
    void bothOutputs();
    void explodingValuesAreSurvived();

private:
    QList<QByteArray> after(int id, const QVariantList &values, Receiver &receiver);

    TestBus bus;
    std::unique_ptr<Device> device;
};

void DatagramsTest::init()
{
    device = std::make_unique<Device>();
    QVERIFY(device->start());
    QVERIFY(device->setProperty("logNetwork"_s, true));
}

void DatagramsTest::cleanup()
{
    device.reset();
}

//! What arrives when one status change is emitted.
QList<QByteArray> DatagramsTest::after(int id, const QVariantList &values, Receiver &receiver)
{
    device->change("/some/path"_s, id, values);
    device->settle();
    return receiver.received();
}

void DatagramsTest::wholeDatagram()
{
    Receiver receiver("127.0.0.1"_s);
    QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
    const QVariant wrapped = QVariant::fromValue(QDBusVariant("abc"_s));
    const auto datagrams = after(1004, {wrapped}, receiver);
    QCOMPARE(datagrams.size(), 1);
    const QRegularExpression layout("^<30> 1 \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d  zib - 1004 "
                                    "- \uFEFF\\[/some/path\\] Value "
                                    "\"abc\" rejected$"_s);
    const QString text = QString::fromUtf8("x" + datagrams[0]).mid(1);
    QVERIFY2(layout.match(text).hasMatch(), datagrams[0].constData());
    QVERIFY(datagrams[0].contains("\xEF\xBB\xBF["));
    QVERIFY(after(1001, {true, 5}, receiver).value(0).endsWith("Supply mains true at 5 percent"));
    QVERIFY(after(1001, {1000000.0, 5}, receiver).value(0).startsWith("<28> 1 "));
}

void DatagramsTest::nothingWithoutReceiver()
{
    Receiver receiver("127.0.0.1"_s);
    QCOMPARE(after(1003, {}, receiver), QList<QByteArray>{});
    QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
    QCOMPARE(after(1003, {}, receiver).size(), 1);
    QVERIFY(device->setProperty("logNetworkAddress"_s, "not an address"_s));
    QCOMPARE(after(1003, {}, receiver), QList<QByteArray>{});
}

void DatagramsTest::nothingWhileOffOrFilteredOrUnknown()
{
    Receiver receiver("127.0.0.1"_s);
    QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
    QCOMPARE(after(4711, {}, receiver), QList<QByteArray>{});
    QVERIFY(device->setProperty("logNetwork"_s, false));
    QVERIFY(device->setProperty("logLocal"_s, true)); // so that changes are still heard
    QCOMPARE(after(1003, {}, receiver), QList<QByteArray>{});
    QVERIFY(device->setProperty("logNetwork"_s, true));
    QVERIFY(device->setProperty("loglevel"_s, 4)); // counts from the next start on
    QCOMPARE(after(1003, {}, receiver).size(), 1);
    QTRY_COMPARE(device->config.values.value("SystemeventLoglevel"_s), "4"_s);
    device->stop();
    QVERIFY(device->start());
    QCOMPARE(after(1003, {}, receiver), QList<QByteArray>{});
    QCOMPARE(after(1002, {"x"_s}, receiver).size(), 1);
}

void DatagramsTest::languageIsTheSetting()
{
    Receiver receiver("127.0.0.1"_s);
    QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
    QVERIFY(device->setProperty("logNetworkLang"_s, "de"_s));
    QVERIFY(after(1001, {false, 7}, receiver)
                .value(0)
                .endsWith("] Versorgung Netz false bei 7 Prozent"));
    QVERIFY(device->setProperty("logNetworkLang"_s, "fr"_s));
    QVERIFY(after(1001, {false, 7}, receiver).value(0).endsWith("Supply mains false at 7 percent"));
}

void DatagramsTest::protocolMayChangeAtRunTime()
{
    Receiver four("127.0.0.1"_s);
    Receiver six("::1"_s);
    for (int round = 0; round < 2; ++round) {
        QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
        QCOMPARE(after(1003, {}, four).size(), 1);
        QVERIFY(device->setProperty("logNetworkAddress"_s, "::1"_s));
        QCOMPARE(after(1003, {}, six).size(), 1);
        QCOMPARE(four.received().size(), 0);
    }
}

void DatagramsTest::bothOutputs()
{
    Receiver receiver("127.0.0.1"_s);
    QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
    QVERIFY(device->setProperty("logLocal"_s, true));
    QCOMPARE(after(1002, {"both"_s}, receiver).size(), 1);
    QVERIFY(device->fillBundle());
    QVERIFY(device->json().contains("\"msg\":\"Message both\""_s));
}

void DatagramsTest::explodingValuesAreSurvived()
{
    Receiver receiver("127.0.0.1"_s);
    QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
    QVERIFY(device->setProperty("logLocal"_s, true));
    const QString many = "%1"_s.repeated(3500);
    device->change("/p"_s, 1002, {many, many, many, many});
    const QString shown = device->result("jsonLogfile"_s, {quint64(1), quint64(1)}).toString();
    QCOMPARE(shown.count("%1"_s), 3500); // the event declares one argument
    QCOMPARE(receiver.received().size(), 1);
    // Each value keeps a long text open for the next one.
    QVariantList endless{QString(500000, QLatin1Char('x')) + "%1"_s};
    for (int i = 0; i < 100000; ++i) {
        endless.append("%1"_s);
    }
    device->change("/p"_s, 1002, endless);
    device->settle();
    QCOMPARE(receiver.received().size(), 0); // too long for a datagram
    QCOMPARE(after(1003, {}, receiver).size(), 1);
}

QTEST_GUILESS_MAIN(DatagramsTest)
#include "tst_datagrams.moc"

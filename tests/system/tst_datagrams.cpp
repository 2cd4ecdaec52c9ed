// SPDX-License-Identifier: Apache-2.0

// Network logging of the whole daemon: what arrives at port 514, and what does not.

#include "support/device.h"
#include "support/literals.h"
#include "support/receiver.h"
#include "support/testbus.h"

#include <QDBusVariant>
#include <QRegularExpression>
#include <QSysInfo>
#include <QTest>

namespace
{

QByteArray inWindows1252(const QString &text)
{
    QByteArray bytes;
    for (const QChar character : text) {
        switch (character.unicode()) {
        case 0x20AC:
            bytes += '\x80';
            break;
        case 0x201E:
            bytes += '\x84';
            break;
        case 0x201C:
            bytes += '\x93';
            break;
        default:
            bytes += character.toLatin1();
        }
    }
    return bytes;
}

//! With a byte-order mark in front.
QByteArray inUtf16(const QString &text, QSysInfo::Endian order)
{
    QByteArray bytes;
    const QString marked = QChar(QChar::ByteOrderMark) + text;
    for (const QChar unit : marked) {
        const char low = char(unit.unicode() & 0xFF);
        const char high = char(unit.unicode() >> 8);
        bytes += order == QSysInfo::LittleEndian ? low : high;
        bytes += order == QSysInfo::LittleEndian ? high : low;
    }
    return bytes;
}

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
    void encodingOfTheCatalogue_data();
    void encodingOfTheCatalogue();
    void explodingValuesAreSurvived();
    void sendingGoesOnAfterItFailed_data();
    void sendingGoesOnAfterItFailed();
    void textsDoNotDependOnTheLocale_data();
    void textsDoNotDependOnTheLocale();

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

void DatagramsTest::encodingOfTheCatalogue_data()
{
    const auto xml = [](const QString &declaration, const QString &text) {
        return declaration + R"(<x><event id="1002"><description lang="en">)"_s + text
            + R"(</description><argument type="string" name="value"/></event></x>)"_s;
    };
    const auto declared = [](const QString &encoding) {
        return R"(<?xml version="1.0" encoding="%1"?>)"_s.arg(encoding);
    };
    // Each has characters that another encoding would read as others.
    const QString text = "T\u00FCr %1 zu, \u00D7"_s;
    const QString euro = "T\u00FCr %1 zu, \u20AC \u201Ehier\u201C"_s;
    QTest::addColumn<QByteArray>("catalogue");
    QTest::addColumn<QString>("text");
    QTest::newRow("UTF-8 without a declaration") << xml({}, euro).toUtf8() << euro;
    QTest::newRow("UTF-8") << xml(declared("UTF-8"_s), euro).toUtf8() << euro;
    QTest::newRow("ISO-8859-1") << xml(declared("ISO-8859-1"_s), text).toLatin1() << text;
    QTest::newRow("windows-1252") << inWindows1252(xml(declared("windows-1252"_s), euro)) << euro;
    const QString utf16 = xml(declared("UTF-16"_s), euro);
    QTest::newRow("UTF-16, little-endian") << inUtf16(utf16, QSysInfo::LittleEndian) << euro;
    QTest::newRow("UTF-16, big-endian") << inUtf16(utf16, QSysInfo::BigEndian) << euro;
    QTest::newRow("UTF-16 without a declaration")
        << inUtf16(xml({}, euro), QSysInfo::LittleEndian) << euro;
    QTest::newRow("UTF-16, big-endian, without a declaration")
        << inUtf16(xml({}, euro), QSysInfo::BigEndian) << euro;
}

void DatagramsTest::encodingOfTheCatalogue()
{
    QFETCH(QByteArray, catalogue);
    QFETCH(QString, text);
    Receiver receiver("127.0.0.1"_s);
    QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
    QVERIFY(device->setProperty("logLocal"_s, true));
    QTRY_COMPARE(device->config.calls.count("save"_s), 3); // with the one of init()
    device->stop();
    Device::writeCatalogue(catalogue);
    QVERIFY(device->start());
    const QString message = text.arg("\u00E4"_s);
    const QByteArray datagram = after(1002, {"\u00E4"_s}, receiver).value(0);
    QVERIFY2(datagram.endsWith("] " + message.toUtf8()), datagram.constData());
    QVERIFY(device->fillBundle());
    const QString json = device->json();
    QVERIFY2(json.contains("\"msg\":\""_s + message + "\"}"_s), qPrintable(json));
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

void DatagramsTest::sendingGoesOnAfterItFailed_data()
{
    QTest::addColumn<bool>("sentBefore");
    QTest::addColumn<bool>("hasNoWay");
    QTest::newRow("as nobody listened") << true << false;
    QTest::newRow("as nobody listened from the beginning on") << false << false;
    QTest::newRow("as there was no way to the receiver") << true << true;
    QTest::newRow("as there was no way to it from the beginning on") << false << true;
}

void DatagramsTest::sendingGoesOnAfterItFailed()
{
    QFETCH(bool, sentBefore);
    QFETCH(bool, hasNoWay);
    // Without an address of its own the host has no way to it, and the sending fails.
    const auto ip
        = [](const QString &command) { return !runClient("ip"_s, command.split(u' ')).isNull(); };
    const QString takeWay = "address flush dev lo to 192.0.2.1/32"_s;
    const QString giveWay = "address add 192.0.2.1/32 dev lo"_s;
    QVERIFY(ip(takeWay));
    if (sentBefore || !hasNoWay) {
        QVERIFY(ip(giveWay));
    }
    auto receiver = std::make_unique<Receiver>("0.0.0.0"_s);
    QVERIFY(device->setProperty("logNetworkAddress"_s, "192.0.2.1"_s));
    if (sentBefore) {
        QCOMPARE(after(1002, {"before"_s}, *receiver).size(), 1);
    }
    if (!hasNoWay) {
        receiver.reset();
    } else if (sentBefore) {
        QVERIFY(ip(takeWay));
    }
    for (int i = 0; i < 3; ++i) {
        device->change("/some/path"_s, 1002, {"lost"_s});
        device->settle();
    }
    if (hasNoWay) {
        QVERIFY(ip(giveWay));
    } else {
        receiver = std::make_unique<Receiver>("0.0.0.0"_s);
    }
    for (int i = 0; i < 2; ++i) {
        const QList<QByteArray> datagrams = after(1002, {"afterwards"_s}, *receiver);
        QCOMPARE(datagrams.size(), 1);
        QVERIFY(datagrams[0].endsWith("] Message afterwards"));
    }
}

void DatagramsTest::textsDoNotDependOnTheLocale_data()
{
    QTest::addColumn<QByteArray>("variable");
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("LC_ALL is C.UTF-8") << QByteArray("LC_ALL") << QByteArray("C.UTF-8");
    QTest::newRow("LC_ALL is C") << QByteArray("LC_ALL") << QByteArray("C");
    QTest::newRow("LC_ALL names no locale") << QByteArray("LC_ALL") << QByteArray("xx_XX");
    QTest::newRow("LANG is C") << QByteArray("LANG") << QByteArray("C");
    QTest::newRow("no variable names a locale") << QByteArray() << QByteArray();
}

void DatagramsTest::textsDoNotDependOnTheLocale()
{
    QFETCH(QByteArray, variable);
    QFETCH(QByteArray, value);
    const QByteArray localeBefore = qgetenv("LC_ALL");
    device->stop();
    for (const char *const each : {"LC_ALL", "LC_CTYPE", "LANG", "LANGUAGE"}) {
        qunsetenv(each);
    }
    if (!variable.isEmpty()) {
        qputenv(variable.constData(), value);
    }
    QByteArray xml = Device::catalogue();
    Device::writeCatalogue(xml.replace("Message %1", "Täglich: %1 für 5 €"));
    const bool started = device->start();
    qunsetenv("LANG");
    qputenv("LC_ALL", localeBefore);
    QVERIFY(started);
    QVERIFY(device->setProperty("logLocal"_s, true));
    QVERIFY(device->setProperty("logNetwork"_s, true));
    QVERIFY(device->setProperty("logNetworkAddress"_s, "127.0.0.1"_s));

    const QString text = "Größe ÄÖÜ ß €, 1.5, \u65E5, \U0001F600"_s;
    Receiver receiver("127.0.0.1"_s);
    const QByteArray datagram = after(1002, {text}, receiver).value(0);
    QVERIFY2(datagram.endsWith("[/some/path] Täglich: " + text.toUtf8() + " für 5 €"),
             datagram.constData());
    QVERIFY(
        after(1001, {true, 1234.5}, receiver).value(0).endsWith("mains true at 1234.5 percent"));
    QVERIFY(device->fillBundle());
    QVERIFY(Device::logFile(0).contains(text.toUtf8()));
    const QString log = device->json();
    QVERIFY2(log.contains("\"msg\":\"Täglich: %1 für 5 €\"}"_s.arg(text)), qPrintable(log));
}

QTEST_GUILESS_MAIN(DatagramsTest)
#include "tst_datagrams.moc"

// SPDX-License-Identifier: Apache-2.0
#include "logformat/encoding.h"
#include "udp/udploginterface.h"

#include "catalog/systemeventcatalogue.h"
#include "support/literals.h"

#include <QDBusObjectPath>
#include <QNetworkDatagram>
#include <QUdpSocket>
#include <QtTest>

#include <ctime>
#include <limits>

class UdpLogInterfaceTest : public QObject
{
    Q_OBJECT

    SystemeventCatalogue catalogue;

private Q_SLOTS:
    void initTestCase();
    void init();

    void wholeDatagram();
    void everySecondIsFormattedOnce();
    void priority_data();
    void priority();
    void eventId_data();
    void eventId();
    void path_data();
    void path();

    void language_data();
    void language();
    void englishUntilALanguageIsSet();
    void missingTextIsSaidSo();
    void values_data();
    void values();
    void surplusValueIsDropped();
    void lineFeedsStay();

    void unknownEventIsNotSent();
    void twoEventsAreIndependent();
    void textBeyondADatagramIsLostAlone();

    void withoutReceiverNothingIsSent();
    void receiverTakenAwayEndsTheSending();
    void receiverOfTheOtherProtocolKeepsThePort();
    void targetMayChange();
    void invalidTargetIsNone_data();
    void invalidTargetIsNone();
    void addressAsText_data();
    void addressAsText();

    void hostFieldIsEmptyUntilTheHostNameIsRead();
};

namespace
{

const QHostAddress ipv4Loopback(QHostAddress::LocalHost);
const QHostAddress ipv6Loopback(QHostAddress::LocalHostIPv6);

QVariant wrapped(const QVariant &value)
{
    return QVariant::fromValue(WrappedValue{value});
}

class Receiver
{
public:
    explicit Receiver(const QHostAddress &address = ipv4Loopback, quint16 port = 0)
    {
        bound = socket.bind(address, port);
    }

    [[nodiscard]] bool isBound() const { return bound; }
    [[nodiscard]] QString address() const { return socket.localAddress().toString(); }
    [[nodiscard]] quint16 port() const { return socket.localPort(); }

    //! The next datagram, null when none comes.
    QByteArray next()
    {
        constexpr int patience = 5000; // milliseconds
        const auto hasDatagram = [this] { return socket.hasPendingDatagrams(); };
        return QTest::qWaitFor(hasDatagram, patience) ? socket.receiveDatagram().data()
                                                      : QByteArray();
    }
    [[nodiscard]] bool isEmpty() const { return !socket.hasPendingDatagrams(); }

private:
    QUdpSocket socket;
    bool bound;
};

//! A sender aimed at a receiver.
class AimedSender : public UdpLogInterface
{
public:
    AimedSender(const SystemeventCatalogue *systemevents, const Receiver &receiver)
        : UdpLogInterface(systemevents)
    {
        if (!setTarget(receiver.address(), receiver.port())) {
            qFatal("cannot aim at the receiver");
        }
    }
};

constexpr uint pairId = 1001;

//! Sends the event of two values and gives what arrives.
QByteArray sendPair(UdpLogInterface &sender, Receiver &receiver, const QVariantList &values)
{
    sender.logEvent(int(pairId), QVariantList{"/power"_s} + values);
    return receiver.next();
}

//! What stands behind the byte-order mark.
QByteArray messageOf(const QByteArray &datagram)
{
    const QByteArray mark("\xEF\xBB\xBF");
    const auto at = datagram.indexOf(mark);
    return at < 0 ? QByteArray() : datagram.mid(at + mark.size());
}

//! What stands in front of the time stamp.
QByteArray headOf(const QByteArray &datagram)
{
    return datagram.left(datagram.indexOf(' ') + 3);
}

} // namespace

void UdpLogInterfaceTest::initTestCase()
{
    SystemeventDescription pair(pairId, "supplyChanged"_s, "warning"_s, "power"_s);
    pair.logLevel = 4;
    pair.arguments = {{"source"_s, ArgumentType::Enum}, {"voltage"_s, ArgumentType::Double}};
    pair.descriptions = {{"en"_s, "Supply %1 at %2"_s}, {"de"_s, "Spannungsfühler %1 bei %2"_s}};
    catalogue.events.insert(pairId, pair);
}

void UdpLogInterfaceTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
}

void UdpLogInterfaceTest::wholeDatagram()
{
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);
    sender.setLanguage("de"_s);

    const QDateTime before = QDateTime::currentDateTime();
    sender.logEvent(1001, {"/power/supply"_s, wrapped("abc"_s), 5});
    const QDateTime after = QDateTime::currentDateTime();
    const QByteArray datagram = receiver.next();

    QByteArrayList possible; // one for every second that the sending may have seen
    for (QDateTime time = before; time <= after.addSecs(1); time = time.addSecs(1)) {
        possible += "<28> 1 " + time.toString("yyyy-MM-ddTHH:mm:ss"_s).toUtf8()
            + "  zib - 1001 - \xEF\xBB\xBF[/power/supply] Spannungsf\xC3\xBChler \"abc\" bei 5";
    }
    QVERIFY2(possible.contains(datagram), datagram.constData());
    QVERIFY(receiver.isEmpty());
}

//! A change of the time zone shows which datagrams carry a time stamp of their own.
void UdpLogInterfaceTest::everySecondIsFormattedOnce()
{
    const auto changeZone = [](const char *zone) {
        qputenv("TZ", zone);
        tzset();
    };
    const auto beginOfSecond = [] {
        const qint64 second = QDateTime::currentSecsSinceEpoch();
        while (QDateTime::currentSecsSinceEpoch() == second) {
            QThread::msleep(1);
        }
    };
    const auto hourOf
        = [](const QByteArray &datagram) { return datagram.mid(datagram.indexOf('T') + 1, 2); };
    const QByteArray zoneBefore = qgetenv("TZ");
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);

    beginOfSecond();
    changeZone("AAA0");
    const QByteArray first = sendPair(sender, receiver, {});
    changeZone("BBB-5");
    const QByteArray sameSecond = sendPair(sender, receiver, {});
    beginOfSecond();
    const QByteArray nextSecond = sendPair(sender, receiver, {});
    zoneBefore.isNull() ? qunsetenv("TZ") : qputenv("TZ", zoneBefore);
    tzset();

    QCOMPARE(hourOf(sameSecond), hourOf(first));
    QVERIFY(hourOf(nextSecond) != hourOf(first));
}

void UdpLogInterfaceTest::priority_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QByteArray>("head");

    QTest::newRow("level 0 gives 24") << 0 << QByteArray("<24> 1 ");
    QTest::newRow("level 4 gives 28") << 4 << QByteArray("<28> 1 ");
    QTest::newRow("level 7 gives 31") << 7 << QByteArray("<31> 1 ");
    QTest::newRow("level 8 lands in the next facility") << 8 << QByteArray("<32> 1 ");
    QTest::newRow("level 100 is not bounded") << 100 << QByteArray("<124> 1 ");
    QTest::newRow("level -1 lands in the facility before") << -1 << QByteArray("<23> 1 ");
    QTest::newRow("level -30 gives a negative number") << -30 << QByteArray("<-6> 1 ");
    QTest::newRow("largest level does not overflow")
        << std::numeric_limits<int>::max() << QByteArray("<2147483671> 1 ");
}

void UdpLogInterfaceTest::priority()
{
    QFETCH(int, level);
    SystemeventCatalogue levels;
    levels.events.insert(1, SystemeventDescription(1, "one"_s, "any"_s, "any"_s));
    levels.events[1].logLevel = level;
    Receiver receiver;
    AimedSender sender(&levels, receiver);

    sender.logEvent(1, {"/a"_s});

    QTEST(headOf(receiver.next()), "head");
}

void UdpLogInterfaceTest::eventId_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<uint>("key");

    QTest::newRow("zero") << 0 << 0U;
    QTest::newRow("largest") << 2147483647 << 2147483647U;
    QTest::newRow("negative id is written with its sign") << -5 << 4294967291U;
    QTest::newRow("smallest") << std::numeric_limits<int>::min() << 2147483648U;
}

void UdpLogInterfaceTest::eventId()
{
    QFETCH(int, id);
    QFETCH(uint, key);
    SystemeventCatalogue ids;
    ids.events.insert(key, SystemeventDescription(key, "one"_s, "any"_s, "any"_s));
    ids.events[key].descriptions.insert("en"_s, "Text"_s);
    Receiver receiver;
    AimedSender sender(&ids, receiver);

    sender.logEvent(id, {"/a"_s});

    const QByteArray end = "  zib - " + QByteArray::number(id) + " - \xEF\xBB\xBF[/a] Text";
    const QByteArray datagram = receiver.next();
    QVERIFY2(datagram.endsWith(end), datagram.constData());
}

void UdpLogInterfaceTest::path_data()
{
    QTest::addColumn<QVariant>("path");
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("path of an object")
        << QVariant("/power/supply"_s) << QByteArray("[/power/supply] ");
    QTest::newRow("empty path") << QVariant(""_s) << QByteArray("[] ");
    QTest::newRow("path is Latin-1") << QVariant("/Tür"_s) << QByteArray("[/T\xFCr] ");
    QTest::newRow("character beyond Latin-1 is a question mark")
        << QVariant("/\u20AC"_s) << QByteArray("[/?] ");
    QTest::newRow("number is its text") << QVariant(5) << QByteArray("[5] ");
    QTest::newRow("placeholder in the path stays") << QVariant("/%1"_s) << QByteArray("[/%1] ");
}

void UdpLogInterfaceTest::path()
{
    QFETCH(QVariant, path);
    QFETCH(QByteArray, bytes);
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);

    sender.logEvent(int(pairId), {path, "Tür"_s, 2});

    QCOMPARE(messageOf(receiver.next()), bytes + "Supply T\xC3\xBCr at 2");
}

void UdpLogInterfaceTest::language_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("German") << "de"_s << QByteArray("[/power] Spannungsf\xC3\xBChler 1 bei 2");
    QTest::newRow("English") << "en"_s << QByteArray("[/power] Supply 1 at 2");
    QTest::newRow("missing language falls back to English")
        << "fr"_s << QByteArray("[/power] Supply 1 at 2");
    QTest::newRow("empty language falls back to English")
        << ""_s << QByteArray("[/power] Supply 1 at 2");
    QTest::newRow("upper case falls back to English")
        << "DE"_s << QByteArray("[/power] Supply 1 at 2");
}

void UdpLogInterfaceTest::language()
{
    QFETCH(QString, language);
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);

    sender.setLanguage(language);

    QCOMPARE(sender.getLanguage(), language);
    QTEST(messageOf(sendPair(sender, receiver, {1, 2})), "message");
}

void UdpLogInterfaceTest::englishUntilALanguageIsSet()
{
    QCOMPARE(UdpLogInterface(&catalogue).getLanguage(), "en"_s);
}

void UdpLogInterfaceTest::missingTextIsSaidSo()
{
    SystemeventCatalogue texts;
    texts.events.insert(7, SystemeventDescription(7, "one"_s, "any"_s, "any"_s));
    texts.events[7].descriptions.insert("de"_s, "Text"_s);
    Receiver receiver;
    AimedSender sender(&texts, receiver);

    sender.logEvent(7, {"/a"_s});

    QCOMPARE(messageOf(receiver.next()),
             QByteArray("[/a] Meta-Error: Id:7 No log description found, this should not happen!"));
}

void UdpLogInterfaceTest::values_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("plain number has no quotes")
        << QVariantList{5, 6} << QByteArray("[/power] Supply 5 at 6");
    QTest::newRow("wrapped number has quotes")
        << QVariantList{wrapped(5), 6} << QByteArray("[/power] Supply \"5\" at 6");
    QTest::newRow("twice wrapped value is two quotes")
        << QVariantList{wrapped(wrapped(5)), 6} << QByteArray("[/power] Supply \"\" at 6");
    QTest::newRow("declared types are not consulted")
        << QVariantList{0, "12"_s} << QByteArray("[/power] Supply 0 at 12");
    QTest::newRow("double is written out")
        << QVariantList{1000000.0, 0.1} << QByteArray("[/power] Supply 1000000 at 0.1");
    QTest::newRow("bool is a word")
        << QVariantList{true, false} << QByteArray("[/power] Supply true at false");
    QTest::newRow("byte array is Latin-1 and leaves as UTF-8")
        << QVariantList{QByteArray("\xFC"), 6} << QByteArray("[/power] Supply \xC3\xBC at 6");
    QTest::newRow("object path is empty")
        << QVariantList{QVariant::fromValue(QDBusObjectPath("/a"_s)), 6}
        << QByteArray("[/power] Supply  at 6");
    QTest::newRow("missing value leaves its placeholder")
        << QVariantList{5} << QByteArray("[/power] Supply 5 at %2");
    QTest::newRow("no values leave both placeholders")
        << QVariantList() << QByteArray("[/power] Supply %1 at %2");
}

void UdpLogInterfaceTest::values()
{
    QFETCH(QVariantList, values);
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);

    QTEST(messageOf(sendPair(sender, receiver, values)), "message");
}

void UdpLogInterfaceTest::surplusValueIsDropped()
{
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^QString::arg: Argument missing: "_s));
    const QByteArray datagram = sendPair(sender, receiver, {1, 2, 3, 4});

    QCOMPARE(messageOf(datagram), QByteArray("[/power] Supply 1 at 2"));
}

void UdpLogInterfaceTest::lineFeedsStay()
{
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);

    QCOMPARE(messageOf(sendPair(sender, receiver, {"a\nb"_s, "\t"_s})),
             QByteArray("[/power] Supply a\nb at \t"));
}

void UdpLogInterfaceTest::unknownEventIsNotSent()
{
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);

    sender.logEvent(9999, {"/power"_s, 1, 2});

    QCOMPARE(messageOf(sendPair(sender, receiver, {3, 4})),
             QByteArray("[/power] Supply 3 at 4")); // and not the one before it
    QVERIFY(receiver.isEmpty());
}

void UdpLogInterfaceTest::twoEventsAreIndependent()
{
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);

    const QByteArray first = sendPair(sender, receiver, {"a long value"_s, "and another"_s});
    const QByteArray second = sendPair(sender, receiver, {"a"_s, "b"_s});

    QCOMPARE(messageOf(first), QByteArray("[/power] Supply a long value at and another"));
    QCOMPARE(messageOf(second), QByteArray("[/power] Supply a at b"));
    QCOMPARE(headOf(second), QByteArray("<28> 1 "));
    QCOMPARE(second.count("zib"), 1);
}

void UdpLogInterfaceTest::textBeyondADatagramIsLostAlone()
{
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);

    sender.logEvent(int(pairId), {"/power"_s, QString(70000, u'x'), 1});

    QCOMPARE(messageOf(sendPair(sender, receiver, {3, 4})), QByteArray("[/power] Supply 3 at 4"));
    QVERIFY(receiver.isEmpty());
}

void UdpLogInterfaceTest::withoutReceiverNothingIsSent()
{
    Receiver receiver;
    UdpLogInterface sender(&catalogue);
    QVERIFY(sender.getAddress().isEmpty());
    QVERIFY(!sender.setTarget(""_s, receiver.port())); // with the port alone

    sender.logEvent(int(pairId), {"/power"_s, 1, 2});

    QVERIFY(sender.setTarget(receiver.address(), receiver.port()));
    QCOMPARE(messageOf(sendPair(sender, receiver, {3, 4})), QByteArray("[/power] Supply 3 at 4"));
    QVERIFY(receiver.isEmpty());
}

void UdpLogInterfaceTest::receiverTakenAwayEndsTheSending()
{
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);
    QVERIFY(!sendPair(sender, receiver, {1, 2}).isNull());

    QVERIFY(!sender.setAddress(""_s));
    sender.logEvent(int(pairId), {"/power"_s, "lost"_s, 2});

    QVERIFY(sender.setAddress(receiver.address()));
    QCOMPARE(messageOf(sendPair(sender, receiver, {3, 4})), QByteArray("[/power] Supply 3 at 4"));
    QVERIFY(receiver.isEmpty());
}

void UdpLogInterfaceTest::receiverOfTheOtherProtocolKeepsThePort()
{
    Receiver ipv6(ipv6Loopback);
    if (!ipv6.isBound()) {
        QSKIP("no IPv6 here");
    }
    Receiver ipv4(ipv4Loopback, ipv6.port());
    if (!ipv4.isBound()) {
        QSKIP("the port is taken on the other protocol");
    }
    AimedSender sender(&catalogue, ipv4);

    QCOMPARE(messageOf(sendPair(sender, ipv4, {1, 2})), QByteArray("[/power] Supply 1 at 2"));
    QVERIFY(sender.setAddress("::1"_s));
    QCOMPARE(messageOf(sendPair(sender, ipv6, {3, 4})), QByteArray("[/power] Supply 3 at 4"));
    QVERIFY(sender.setAddress("127.0.0.1"_s));
    QCOMPARE(messageOf(sendPair(sender, ipv4, {5, 6})), QByteArray("[/power] Supply 5 at 6"));
    QVERIFY(ipv4.isEmpty());
    QVERIFY(ipv6.isEmpty());
}

void UdpLogInterfaceTest::targetMayChange()
{
    Receiver first;
    Receiver second;
    AimedSender sender(&catalogue, first);

    QCOMPARE(messageOf(sendPair(sender, first, {1, 2})), QByteArray("[/power] Supply 1 at 2"));
    QVERIFY(sender.setTarget(second.address(), second.port()));
    QCOMPARE(messageOf(sendPair(sender, second, {3, 4})), QByteArray("[/power] Supply 3 at 4"));
    QVERIFY(sender.setTarget(first.address(), first.port()));
    QCOMPARE(messageOf(sendPair(sender, first, {5, 6})), QByteArray("[/power] Supply 5 at 6"));
    QVERIFY(first.isEmpty());
    QVERIFY(second.isEmpty());
    QCOMPARE(sender.findChildren<QUdpSocket *>().size(), 1); // old sockets are gone
}

void UdpLogInterfaceTest::invalidTargetIsNone_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("word") << "nonsense"_s;
    QTest::newRow("host name") << "localhost"_s;
    QTest::newRow("number beyond a byte") << "127.0.0.256"_s;
    QTest::newRow("address with a port") << "127.0.0.1:514"_s;
    QTest::newRow("empty text") << ""_s;
    QTest::newRow("null text") << QString();
}

void UdpLogInterfaceTest::invalidTargetIsNone()
{
    QFETCH(QString, text);
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);

    QVERIFY(!sender.setTarget(text, receiver.port()));
    QCOMPARE(sender.getAddress(), ""_s);
    sender.logEvent(int(pairId), {"/power"_s, "lost"_s, 2});

    QVERIFY(sender.setAddress(receiver.address()));
    QCOMPARE(messageOf(sendPair(sender, receiver, {3, 4})), QByteArray("[/power] Supply 3 at 4"));
    QVERIFY(receiver.isEmpty());
}

void UdpLogInterfaceTest::addressAsText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QString>("address");

    QTest::newRow("IPv4") << "192.0.2.7"_s << true << "192.0.2.7"_s;
    QTest::newRow("IPv6 is shortened") << "2001:db8:0:0:0:0:0:1"_s << true << "2001:db8::1"_s;
    QTest::newRow("blanks around are dropped") << " 192.0.2.7 "_s << true << "192.0.2.7"_s;
    QTest::newRow("nonsense leaves none") << "nonsense"_s << false << ""_s;
    QTest::newRow("empty text leaves none") << ""_s << false << ""_s;
}

void UdpLogInterfaceTest::addressAsText()
{
    QFETCH(QString, text);
    UdpLogInterface sender(&catalogue);
    QVERIFY(sender.setAddress("192.0.2.99"_s));

    QTEST(sender.setAddress(text), "valid");
    QTEST(sender.getAddress(), "address");
}

void UdpLogInterfaceTest::hostFieldIsEmptyUntilTheHostNameIsRead()
{
    QFile file("/proc/sys/kernel/hostname"_s);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray hostName = file.readAll().trimmed();
    Receiver receiver;
    AimedSender sender(&catalogue, receiver);
    const auto host = [](const QByteArray &datagram) { return datagram.split(' ').value(3); };

    QCOMPARE(host(sendPair(sender, receiver, {1, 2})), QByteArray());
    sender.readHostName();
    QCOMPARE(host(sendPair(sender, receiver, {1, 2})), hostName);
}

QTEST_GUILESS_MAIN(UdpLogInterfaceTest)

#include "tst_udploginterface.moc"

// SPDX-License-Identifier: Apache-2.0

// The tool's "watch" on a bus: what it prints of what is announced, beside the daemon's
// datagrams, and what senders can do to it.

#include "ctl/ctlprocess.h"
#include "reliability/processfigures.h"
#include "reliability/randommessages.h"
#include "support/device.h"
#include "support/literals.h"
#include "support/receiver.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDateTime>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace
{

const char catalogue[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<systemevents>
  <enum name="LogLevel">
    <item value="3" name="error"/><item value="4" name="warning"/><item value="6" name="info"/>
  </enum>
  <enum name="Mode"><item value="0" name="day"/><item value="1" name="night"/><item value="7" name="dusk"/></enum>
  <service name="power">
    <event id="1001" name="supply" loglevel="warning"><argument type="bool" name="mains"/><argument type="int32" name="load"/><description lang="en">Mains %1 at %2 percent</description><description lang="de">Netz %1 bei %2 Prozent</description></event>
    <event id="1002" name="message" loglevel="info"><argument type="string" name="text"/><description lang="en">Message %1</description><description lang="de">Nachricht %1</description></event>
    <event id="1003" name="failure" loglevel="error"><description lang="en">Failure</description></event>
  </service>
  <service name="all">
    <event id="1004" name="variant" loglevel="info"><argument type="variant" name="v"/><description lang="en">%1 and %2%3</description></event>
    <event id="1005" name="odd" loglevel="info"><argument type="double" name="v"/><description lang="en">%2, %1, %L1 and %%1</description></event>
    <event id="1" name="byte" loglevel="info"><argument type="byte" name="v"/><description lang="en">%1</description></event>
    <event id="2" name="int16" loglevel="info"><argument type="int16" name="v"/><description lang="en">%1</description></event>
    <event id="3" name="int64" loglevel="info"><argument type="int64" name="v"/><description lang="en">%1</description></event>
    <event id="4" name="uint64" loglevel="info"><argument type="uint64" name="v"/><description lang="en">%1</description></event>
    <event id="5" name="float" loglevel="info"><argument type="float" name="v"/><description lang="en">%1</description></event>
    <event id="6" name="double" loglevel="info"><argument type="double" name="v"/><description lang="en">%1</description></event>
    <event id="7" name="bytearray" loglevel="info"><argument type="bytearray" name="v"/><description lang="en">%1</description></event>
    <event id="8" name="enum" loglevel="info"><argument type="enum" enum="Mode" name="v"/><description lang="en">%1</description></event>
    <event id="9" name="none" loglevel="info"><argument type="none" name="v"/><description lang="en">%1</description></event>
    <event id="10" name="enumFirst" loglevel="info"><argument type="enum" enum="Mode" name="mode"/><argument type="double" name="volts"/><description lang="en">%1 %2</description></event>
    <event id="11" name="byteFirst" loglevel="info"><argument type="byte" name="a"/><argument type="double" name="b"/><description lang="en">%1 %2</description></event>
    <event id="9999" name="filler"><description lang="en">Filler</description></event>
  </service>
</systemevents>
)";

QVariant wrap(const QVariant &value)
{
    return QVariant::fromValue(QDBusVariant(value));
}

#ifdef __SANITIZE_ADDRESS__
constexpr int mostGrowth = 600000; // KiB; the sanitizer keeps freed memory
#else
constexpr int mostGrowth = 40960; // KiB
#endif

//! A status change from a process that needs no daemon.
void announce(const QString &path, int id, const QVariant &payload)
{
    QDBusMessage signal = QDBusMessage::createSignal(path, "com.tovel.status"_s, "change"_s);
    signal << id << wrap(payload);
    if (!QDBusConnection::systemBus().send(signal)) {
        qFatal("cannot send");
    }
}

//! The tool, listening.
class Watching
{
public:
    explicit Watching(const QStringList &arguments = {}, const QString &locale = "C.UTF-8"_s)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("LC_ALL"_s, locale);
        process.setProcessEnvironment(environment);
        process.start(ctlProgram(), QStringList{"watch"_s} + arguments);
        if (!process.waitForStarted()) {
            qFatal("the tool does not start");
        }
    }
    ~Watching()
    {
        process.terminate();
        process.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(Watching)

    //! Repeats something until the tool prints a text, and drops all up to that line.
    template <typename Action>
    void repeatUntil(const QByteArray &text, Action &&action)
    {
        constexpr int pause = 100; // milliseconds
        for (int tries = 0; tries < busPatience / pause; ++tries) {
            action();
            if (QTest::qWaitFor([&] { return lineWith(text); }, pause)) {
                (void)takeUpTo(text);
                return;
            }
        }
        qFatal("it does not listen: %s", process.readAllStandardError().constData());
    }
    //! Repeats something until the tool has ended.
    template <typename Action>
    bool repeatUntilItEnds(Action &&action)
    {
        constexpr int pause = 100; // milliseconds
        const auto hasEnded = [&] { return process.state() == QProcess::NotRunning; };
        for (int tries = 0; tries < busPatience / pause; ++tries) {
            action();
            if (QTest::qWaitFor(hasEnded, pause)) {
                return true;
            }
        }
        return false;
    }
    //! Once it has ended: whole lines that have not been taken.
    QList<QByteArray> allLines()
    {
        output += process.readAllStandardOutput();
        QList<QByteArray> lines = output.split('\n');
        lines.removeLast();
        return lines;
    }
    [[nodiscard]] int exitCode() const { return process.exitCode(); }
    //! Drops what comes until it listens.
    void waitUntilReady()
    {
        repeatUntil("/ready", [] { announce("/ready"_s, 1003, QVariantList()); });
    }
    //! The lines in front of the first one with a text, once that has come.
    QList<QByteArray> linesUpTo(const QByteArray &text)
    {
        if (!QTest::qWaitFor([&] { return lineWith(text); }, busPatience)) {
            qFatal("%s does not come, but: %s", text.constData(), output.left(2000).constData());
        }
        return takeUpTo(text);
    }
    //! What comes of status changes that an action announces.
    template <typename Action>
    QList<QByteArray> linesOf(Action &&action)
    {
        action();
        const QByteArray end = "/end/" + QByteArray::number(++ends);
        announce(QString::fromLatin1(end), 1003, QVariantList());
        QList<QByteArray> lines = linesUpTo(end);
        for (int i = int(lines.size()) - 1; i >= 0; --i) {
            if (lines.at(i).contains("/ready")) {
                lines.removeAt(i); // one of several that was late
            }
        }
        return lines;
    }

    QProcess process;

private:
    bool lineWith(const QByteArray &text)
    {
        output += process.readAllStandardOutput();
        const auto found = output.indexOf(text);
        return found >= 0 && output.indexOf('\n', found) >= 0;
    }
    QList<QByteArray> takeUpTo(const QByteArray &text)
    {
        const auto end = output.indexOf('\n', output.indexOf(text)) + 1;
        QList<QByteArray> lines = output.left(end).split('\n');
        output.remove(0, end);
        lines.removeLast(); // behind the last line feed
        lines.removeLast(); // with the text
        return lines;
    }

    QByteArray output;
    int ends = 0;
};

/*!
 * Has the bus deal with all that was sent. It is asked again and again: where it has kept
 * 127 MiB of a sender's it leaves what it has read until more comes.
 */
bool settle(WireBus &sender)
{
    constexpr int pause = 1000; // milliseconds
    for (int tries = 0; tries < busPatience / pause; ++tries) {
        const quint32 serial = sender.nextSerial();
        if (!sender.sendBytes(callOfBus("GetId").toBytes(serial))) {
            return false;
        }
        if (sender.waitFor(serial, pause)) {
            return true;
        }
    }
    return false;
}

QJsonObject object(const QByteArray &line)
{
    const QJsonDocument document = QJsonDocument::fromJson(line);
    if (!document.isObject()) {
        qFatal("no JSON object: %s", line.left(2000).constData());
    }
    return document.object();
}

} // namespace

class CtlWatchTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void textsAreThoseOfDatagrams();
    void randomTextsAreThoseOfDatagrams();
    void marks_data();
    void marks();
    void printsAsText();
    void printsAsObject();
    void printsAsTable();
    void printsBytes();
    void textCannotMoveTheCursor();
    void selects_data();
    void selects();
    void endsByItself_data();
    void endsByItself();
    void language_data();
    void language();
    void tellsWhatIsNotHeard();
    void unknownWithoutCatalogue();
    void endsByInterrupt();
    void nobodyWaitsForItsReader();
    void endsWithItsReader();
    void endsWithTheBus();
    void needsTheBus();
    void wrongUsage_data();
    void wrongUsage();
    void outlivesHostileSenders();

private:
    TestBus bus;
    std::unique_ptr<Device> device;
};

void CtlWatchTest::init()
{
    device.reset();
    device = std::make_unique<Device>();
    Device::writeCatalogue(catalogue);
}

void CtlWatchTest::textsAreThoseOfDatagrams()
{
    const QVariantList values{
        true,
        -7,
        4294967295U,
        Q_INT64_C(-9007199254740993),
        Q_UINT64_C(18446744073709551615),
        QVariant::fromValue<uchar>(228),
        QVariant::fromValue<short>(-5),
        QVariant::fromValue<ushort>(65535),
        0.1,
        1e300,
        "Tür %1 zu"_s,
        "\uFEFFmark"_s,
        QString(),
        QByteArray("Latin \xE4\0behind", 14),
        QStringList{"one"_s},
        QStringList{"one"_s, "two"_s},
        QVariant::fromValue(QDBusObjectPath("/a"_s)),
        wrap(5),
        wrap("%2"_s),
        wrap(wrap(5)),
        QVariantMap{{"a"_s, 1}},
        QVariant::fromValue(QList<int>{1, 2}),
    };
    device->config.values = {{"SystemeventLogNetwork"_s, "true"_s},
                             {"SystemeventLogNetworkaddress"_s, "127.0.0.1"_s}};
    QVERIFY(device->start());
    Receiver receiver("127.0.0.1"_s);
    Watching watching({"-o"_s, "json"_s});
    watching.waitUntilReady();
    int compared = 0;
    for (const int id : {1001, 1002, 1003, 1004, 1005}) {
        for (int i = 0; i < values.size(); ++i) {
            device->settle();
            (void)receiver.received();
            const QList<QByteArray> lines = watching.linesOf([&] {
                device->change("/one"_s, id, {values.at(i)});
                for (const QVariant &second : values) {
                    device->change("/two"_s, id, {values.at(i), second});
                }
                device->change("/three"_s, id, {values.at(i), "%1"_s, values.at(i), 3});
            });
            device->settle();
            QList<QByteArray> datagrams = receiver.received();
            datagrams.removeLast(); // of the end
            QCOMPARE(lines.size(), datagrams.size());
            for (int line = 0; line < lines.size(); ++line) {
                const QByteArray &sent = datagrams.at(line);
                const QJsonObject shown = object(lines.at(line));
                const QByteArray text = ("["_s + shown.value("path"_s).toString() + "] "_s).toUtf8()
                    + shown.value("message"_s).toString().toUtf8();
                QCOMPARE(sent.mid(sent.indexOf("\xEF\xBB\xBF[") + 3), text);
                ++compared;
            }
        }
    }
    QCOMPARE(compared, 5 * 22 * 24);
}

//! Many datagrams at a time, of which large ones may be lost.
void CtlWatchTest::randomTextsAreThoseOfDatagrams()
{
    constexpr quint32 batches = 60;
    constexpr quint32 batchSize = 20;
    device->config.values = {{"SystemeventLogNetwork"_s, "true"_s},
                             {"SystemeventLogNetworkaddress"_s, "127.0.0.1"_s}};
    QVERIFY(device->start());
    Receiver receiver("127.0.0.1"_s);
    Watching watching({"-o"_s, "json"_s, "-q"_s});
    watching.waitUntilReady();
    WireBus sender(bus.address());
    const int passed = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    quint32 compared = 0;
    for (quint32 batch = 0; batch < batches; ++batch) {
        device->settle();
        (void)receiver.received();
        for (quint32 i = 0; i < batchSize; ++i) {
            Dice dice(20261122, batch * batchSize + i);
            RandomMessages messages(&dice);
            WireMessage message = messages.signal();
            message.path = "/random/" + QByteArray::number(i);
            message.destination.clear();
            QVERIFY(sender.send(message, passed));
        }
        QVERIFY(settle(sender));             // as the next message is another sender's
        QHash<QByteArray, QByteArray> texts; // by path
        const QList<QByteArray> lines = watching.linesOf([] {});
        for (const QByteArray &line : lines) {
            const QJsonObject shown = object(line);
            texts.insert(shown.value("path"_s).toString().toUtf8(),
                         shown.value("message"_s).toString().toUtf8());
        }
        device->settle();
        const QList<QByteArray> datagrams = receiver.received();
        for (const QByteArray &datagram : datagrams) {
            const QByteArray text = datagram.mid(datagram.indexOf("\xEF\xBB\xBF[") + 4);
            if (text.startsWith("/random/")) {
                const QByteArray path = text.left(text.indexOf(']'));
                QCOMPARE(text.mid(path.size() + 2), texts.value(path));
                ++compared;
            }
        }
    }
    ::close(passed);
    QVERIFY2(compared > batches * batchSize / 10, qPrintable(QString::number(compared)));
}

// NOLINTNEXTLINE(readability-function-size): a table
void CtlWatchTest::marks_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<QVariant>("payload");
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("reason");
    const auto fits = [](const char *name, int id, const QVariantList &values) {
        QTest::newRow(name) << id << QVariant(values) << "whole"_s << QString();
    };
    const auto row
        = [](const char *name, int id, const QVariantList &values, const QString &reason) {
              QTest::newRow(name) << id << QVariant(values) << "unfit"_s << reason;
          };
    fits("a bool and an int32", 1001, {true, -5});
    fits("an int32 as unsigned", 1001, {true, 5U});
    fits("a string", 1002, {"x"_s});
    fits("an event without values", 1003, {});
    fits("a variant with a bool", 1004, {wrap(true)});
    fits("a variant with an int", 1004, {wrap(-5)});
    fits("a variant with an unsigned int", 1004, {wrap(5U)});
    fits("a variant with an int64", 1004, {wrap(Q_INT64_C(-5))});
    fits("a variant with a double", 1004, {wrap(0.5)});
    fits("a variant with a string", 1004, {wrap("x"_s)});
    fits("a byte as an int", 1, {255});
    fits("an int16 as an int", 2, {-32768});
    fits("an int64", 3, {Q_INT64_C(-2147483648)});
    fits("a uint64 as an int64", 4, {Q_INT64_C(2147483647)});
    fits("a double", 6, {0.5});
    fits("a bytearray as a string", 7, {"x"_s});
    fits("an enum as an int", 8, {7});
    fits("an enum as a bool", 8, {true});
    fits("an enum in front as a bool", 10, {false, 0.5});
    fits("a string that nearly fills a record", 1002, {QString(65400, QLatin1Char('x'))});
    row("a string that more than fills it", 1002, {QString(65535, QLatin1Char('x'))},
        "its record has 65578 bytes, and the log takes 65535 at most"_s);
    row("a value too few", 1001, {true}, "2 values are declared, and 1 sent"_s);
    row("a value too many", 1003, {true}, "0 values are declared, and 1 sent"_s);
    row("a bool as an int", 1001, {1, 5}, "mains: it is declared as bool and sent as i"_s);
    row("an int32 as a bool", 1001, {true, true}, "load: it is declared as int32 and sent as b"_s);
    row("an int32 as an int64", 1001, {true, Q_INT64_C(5)},
        "load: it is declared as int32 and sent as x"_s);
    row("an int32 that reads negative", 1001, {true, 2147483648U},
        "load: 2147483648 is not kept, but only numbers from -2147483648 to 2147483647"_s);
    row("a string as an int", 1002, {5}, "text: it is declared as string and sent as i"_s);
    row("a string as bytes", 1002, {QByteArray("x")},
        "text: it is declared as string and sent as ay"_s);
    row("a string too long", 1002, {QString(65536, QLatin1Char('x'))},
        "text: a text of more than 65535 bytes is not kept whole"_s);
    row("a variant without a variant", 1004, {5}, "v: it is declared as variant and sent as i"_s);
    row("a variant with a uint64", 1004, {wrap(Q_UINT64_C(5))},
        "v: it is declared as variant and sent as vt"_s);
    row("a variant in a variant", 1004, {wrap(wrap(5))},
        "v: it is declared as variant and sent as vvi"_s);
    row("a variant with lost bits", 1004, {wrap(Q_INT64_C(2147483648))},
        "v: 2147483648 is not kept, but only numbers from -2147483648 to 2147483647"_s);
    row("a byte as a byte", 1, {QVariant::fromValue<uchar>(65)},
        "v: it is declared as byte and sent as y"_s);
    row("a byte above 255", 1, {256}, "v: 256 is not kept, but only numbers from 0 to 255"_s);
    row("a byte in front", 11, {65, 0.5},
        "a: it is declared as byte and sent as i, which fits the last argument alone"_s);
    row("an int16 as an int16", 2, {QVariant::fromValue<short>(5)},
        "v: it is declared as int16 and sent as n"_s);
    row("an int16 too large", 2, {32768},
        "v: 32768 is not kept, but only numbers from -32768 to 32767"_s);
    row("an int64 with lost bits", 3, {Q_INT64_C(4294967297)},
        "v: 4294967297 is not kept, but only numbers from -2147483648 to 2147483647"_s);
    row("a uint64 as a uint64", 4, {Q_UINT64_C(5)}, "v: it is declared as uint64 and sent as t"_s);
    row("a uint64 with lost bits", 4, {Q_INT64_C(-1)},
        "v: -1 is not kept, but only numbers from 0 to 2147483647"_s);
    row("a float", 5, {0.5}, "v: it is declared as float and sent as d"_s);
    row("an enum without such an item", 8, {2}, "v: 2 is no item of the enum Mode"_s);
    row("an enum above 255", 8, {256}, "v: 256 is not kept, but only numbers from 0 to 255"_s);
    row("an enum as a string", 8, {"day"_s}, "v: it is declared as enum and sent as s"_s);
    row("an enum in front as an int", 10, {0, 0.5},
        "mode: it is declared as enum and sent as i, which fits the last argument alone"_s);
    row("an unknown type", 9, {5}, "v: it is declared as unknown and sent as i"_s);
    QTest::newRow("no list at all is no value") << 1002 << QVariant("x"_s) << "unfit"_s
                                                << "1 values are declared, and 0 sent"_s;
    QTest::newRow("a list of texts is no value")
        << 1002 << QVariant(QStringList{"x"_s}) << "unfit"_s
        << "1 values are declared, and 0 sent"_s;
    QTest::newRow("an event that the catalogue does not know")
        << 4711 << QVariant(QVariantList{5}) << "unknown"_s
        << "the catalogue does not know this event"_s;
    QTest::newRow("a negative event is another one")
        << -1001 << QVariant(QVariantList{true, 5}) << "unknown"_s
        << "the catalogue does not know this event"_s;
}

void CtlWatchTest::marks()
{
    QFETCH(int, id);
    QFETCH(QVariant, payload);
    QFETCH(QString, state);
    QFETCH(QString, reason);
    static std::unique_ptr<Watching> watching; // one for all rows
    if (!watching) {
        watching = std::make_unique<Watching>(QStringList{"-o"_s, "json"_s});
        watching->waitUntilReady();
    }
    const QList<QByteArray> lines
        = watching->linesOf([&] { announce("/some/path"_s, id, payload); });
    QCOMPARE(lines.size(), 1);
    const QJsonObject shown = object(lines.first());
    QCOMPARE(shown.value("event"_s).toInt(), id);
    QCOMPARE(shown.value("state"_s).toString(), state);
    QCOMPARE(shown.value("reason"_s).toString(), reason);
    QCOMPARE(shown.contains("reason"_s), !reason.isEmpty());
    QCOMPARE(shown.contains("name"_s), state != "unknown"_s);
    if (QLatin1String(QTest::currentDataTag())
        == QLatin1String("a negative event is another one")) {
        watching.reset();
    }
}

void CtlWatchTest::printsAsText()
{
    Watching watching;
    watching.waitUntilReady();
    const QList<QByteArray> lines = watching.linesOf([] {
        announce("/power/supply"_s, 1001, QVariantList{true, 5});
        announce("/power/supply"_s, 1001, QVariantList{true});
        announce("/power/supply"_s, 4711, QVariantList{true});
    });
    QCOMPARE(lines.size(), 3);
    static const QRegularExpression time("^\\d{4}-\\d\\d-\\d\\d.\\d\\d:\\d\\d:\\d\\d\\.\\d{6} "_s);
    const auto behindTime = [](const QByteArray &line) {
        const QString text = QString::fromUtf8(line);
        const QRegularExpressionMatch match = time.match(text);
        return match.hasMatch() ? text.mid(match.capturedEnd()).simplified() : "no time: "_s + text;
    };
    QCOMPARE(behindTime(lines.at(0)), "warning supply /power/supply Mains true at 5 percent"_s);
    QCOMPARE(behindTime(lines.at(1)),
             "warning supply /power/supply Mains true at %2 percent [unfit: 2 values are declared, "
             "and 1 sent]"_s);
    QCOMPARE(behindTime(lines.at(2)),
             "- 4711 /power/supply [unknown: the catalogue does not know this event]"_s);
}

void CtlWatchTest::printsAsObject()
{
    Watching watching({"-o"_s, "json"_s});
    watching.waitUntilReady();
    const QList<QByteArray> lines = watching.linesOf([] {
        announce("/power/supply"_s, 1001, QVariantList{true, 5});
        announce("/x"_s, 4711, QVariantList{5});
    });
    QCOMPARE(lines.size(), 2);
    const auto withoutTime = [](QByteArray line) {
        const auto begin = line.indexOf("\"time\":\"");
        return line.remove(begin, line.indexOf("\",", begin) + 2 - begin);
    };
    QCOMPARE(withoutTime(lines.at(0)),
             QByteArray("{\"event\":1001,\"name\":\"supply\",\"service\":\"power\",\"level\":"
                        "\"warning\",\"levelNumber\":4,\"path\":\"/power/supply\",\"message\":"
                        "\"Mains true at 5 percent\",\"values\":[{\"name\":\"mains\",\"type\":"
                        "\"bool\",\"value\":true},{\"name\":\"load\",\"type\":\"int32\","
                        "\"value\":5}],\"state\":\"whole\"}"));
    QCOMPARE(withoutTime(lines.at(1)),
             QByteArray("{\"event\":4711,\"path\":\"/x\",\"bytes\":\"05000000\",\"state\":"
                        "\"unknown\",\"reason\":\"the catalogue does not know this event\"}"));
    const QDateTime time
        = QDateTime::fromString(object(lines.at(0)).value("time"_s).toString(), Qt::ISODateWithMs);
    QVERIFY(qAbs(time.secsTo(QDateTime::currentDateTimeUtc())) < 3600);
}

void CtlWatchTest::printsAsTable()
{
    Watching watching({"-o"_s, "csv"_s, "--time"_s, "unix"_s});
    watching.waitUntilReady();
    const QList<QByteArray> lines = watching.linesOf([] {
        announce("/power/supply"_s, 1001, QVariantList{true, 5});
    });
    QCOMPARE(lines.size(), 1);
    static const QRegularExpression row("^,\\d+\\.\\d{6},1001,supply,power,warning,4,/power/supply,"
                                        "Mains true at 5 percent,whole\r$"_s);
    QVERIFY2(row.match(QString::fromUtf8(lines.first())).hasMatch(), lines.first().constData());
}

void CtlWatchTest::printsBytes()
{
    Watching watching({"-o"_s, "raw"_s});
    watching.waitUntilReady();
    const QByteArray all
        = watching.linesOf([] { announce("/some"_s, 1002, QVariantList{5}); }).join('\n');
    QVERIFY2(all.contains("meaning (as it would be stored, unfit: text: it is declared as string "
                          "and sent as i)"),
             all.constData());
    QVERIFY2(all.contains("event id 1002: message"), all.constData());
}

void CtlWatchTest::textCannotMoveTheCursor()
{
    Watching watching;
    watching.waitUntilReady();
    const QList<QByteArray> lines
        = watching.linesOf([] { announce("/a"_s, 1002, QVariantList{"\x1B[2J\n\u202E"_s}); });
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().endsWith("Message \\x1b[2J\\x0a\\u202e"), lines.first().constData());
}

void CtlWatchTest::selects_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("taken");
    const auto row = [](const char *name, const QStringList &arguments, const QStringList &taken) {
        QTest::newRow(name) << arguments << taken;
    };
    row("everything", {}, {"a1001"_s, "b1001"_s, "b1002"_s, "c8"_s, "c4711"_s});
    row("an event by its name", {"-e"_s, "supply"_s}, {"a1001"_s, "b1001"_s});
    row("several events", {"-e"_s, "1002"_s, "-e"_s, "4711"_s}, {"b1002"_s, "c4711"_s});
    row("a level and the more urgent ones", {"-p"_s, "warning"_s}, {"a1001"_s, "b1001"_s});
    row("a service", {"-s"_s, "all"_s}, {"c8"_s});
    row("paths", {"--path"_s, "*/b"_s, "--path"_s, "*/c"_s},
        {"b1001"_s, "b1002"_s, "c8"_s, "c4711"_s});
    row("texts as they are shown", {"-g"_s, "^Mains true|^Message"_s}, {"a1001"_s, "b1002"_s});
    row("everything together", {"-e"_s, "supply"_s, "--path"_s, "*/b"_s, "-g"_s, "false"_s},
        {"b1001"_s});
}

//! Of one round after another, as nothing tells when it listens.
void CtlWatchTest::selects()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, taken);
    Watching watching(QStringList{"-o"_s, "json"_s} + arguments);
    int round = 0;
    const auto announceAll = [&round] {
        const QString in = "/round%1/"_s.arg(++round);
        announce(in + "a"_s, 1001, QVariantList{true, 5});
        announce(in + "b"_s, 1001, QVariantList{false, 5});
        announce(in + "b"_s, 1002, QVariantList{"x"_s});
        announce(in + "c"_s, 8, QVariantList{7});
        announce(in + "c"_s, 4711, QVariantList{});
    };
    watching.repeatUntil("/round", announceAll);
    const QByteArray in = "/round" + QByteArray::number(round + 1) + '/';
    announceAll();
    const QByteArray behind = "/round" + QByteArray::number(round + 1) + '/';
    announceAll();
    QStringList shown;
    const QList<QByteArray> lines = watching.linesUpTo(behind);
    for (const QByteArray &line : lines) {
        const QJsonObject event = object(line);
        const QString path = event.value("path"_s).toString();
        if (path.startsWith(QString::fromLatin1(in))) {
            shown.append(path.right(1) + QString::number(event.value("event"_s).toInt()));
        }
    }
    QCOMPARE(shown, taken);
}

void CtlWatchTest::endsByItself_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("lines");
    QTest::addColumn<int>("status");
    const QString soon = QString::number(QDateTime::currentSecsSinceEpoch() + 2);
    QTest::newRow("after so many") << QStringList{"-n"_s, "3"_s} << 3 << 0;
    QTest::newRow("after so many of those selected")
        << QStringList{"-n"_s, "1"_s, "-e"_s, "1003"_s} << 1 << 0;
    QTest::newRow("before the first one") << QStringList{"-n"_s, "0"_s} << 0 << 1;
    QTest::newRow("at a time that has gone") << QStringList{"-U"_s, "1h"_s} << 0 << 1;
    QTest::newRow("at a time to come, with none of those selected")
        << QStringList{"-U"_s, QLatin1Char('@') + soon, "-e"_s, "1001"_s} << 0 << 1;
    QTest::newRow("what comes before the time is not selected")
        << QStringList{"-S"_s, "2999-01-01"_s, "-U"_s, QLatin1Char('@') + soon} << 0 << 1;
}

void CtlWatchTest::endsByItself()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, lines);
    QFETCH(int, status);
    Watching watching(QStringList{"-o"_s, "json"_s} + arguments);
    const bool isOver = watching.repeatUntilItEnds([] { announce("/a"_s, 1003, QVariantList()); });
    QVERIFY(isOver);
    QCOMPARE(watching.allLines().size(), lines);
    QCOMPARE(watching.exitCode(), status);
}

void CtlWatchTest::language_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("text");
    QTest::newRow("the locale's") << QStringList() << "de_DE.UTF-8"_s
                                  << "Nachricht x"_s;
    QTest::newRow("English without one") << QStringList() << "C"_s
                                         << "Message x"_s;
    QTest::newRow("the one that is named") << QStringList{"-l"_s, "de"_s} << "en_GB.UTF-8"_s
                                           << "Nachricht x"_s;
}

void CtlWatchTest::language()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, locale);
    QFETCH(QString, text);
    Watching watching(QStringList{"-o"_s, "json"_s} + arguments, locale);
    watching.waitUntilReady();
    const QList<QByteArray> lines
        = watching.linesOf([] { announce("/a"_s, 1002, QVariantList{"x"_s}); });
    QCOMPARE(object(lines.value(0)).value("message"_s).toString(), text);
}

void CtlWatchTest::tellsWhatIsNotHeard()
{
    Watching watching;
    Watching quiet({"-q"_s});
    watching.waitUntilReady();
    quiet.waitUntilReady();
    const auto announceOthers = [] {
        for (int i = 0; i < 100; ++i) {
            QDBusMessage signal
                = QDBusMessage::createSignal("/a"_s, "com.tovel.status"_s, "change"_s);
            signal << "text"_s << i;
            QVERIFY(QDBusConnection::systemBus().send(signal));
        }
    };
    QCOMPARE(watching.linesOf(announceOthers), QList<QByteArray>());
    QCOMPARE(quiet.linesOf(announceOthers), QList<QByteArray>());
    const QByteArray line = "systemeventctl: /a announces something with the signature \"si\"; the "
                            "daemon hears \"iv\" alone\n";
    QCOMPARE(watching.process.readAllStandardError(), line.repeated(10));
    QCOMPARE(quiet.process.readAllStandardError(), QByteArray());
}

void CtlWatchTest::unknownWithoutCatalogue()
{
    QVERIFY(QFile::remove("/var/www/data/systemevent.xml"_s));
    Watching watching({"-o"_s, "json"_s});
    watching.waitUntilReady();
    const QList<QByteArray> lines
        = watching.linesOf([] { announce("/a"_s, 1002, QVariantList{"x"_s}); });
    QCOMPARE(object(lines.value(0)).value("state"_s).toString(), "unknown"_s);
    QVERIFY(watching.process.readAllStandardError().contains("there is no catalogue"));
}

void CtlWatchTest::endsByInterrupt()
{
    Watching watching;
    watching.waitUntilReady();
    QCOMPARE(::kill(pid_t(watching.process.processId()), SIGINT), 0);
    QVERIFY(watching.process.waitForFinished(busPatience));
    QCOMPARE(watching.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(watching.process.exitCode(), 0);
    QCOMPARE(watching.process.readAllStandardError(), QByteArray());
}

/*!
 * Nobody reads what it prints. The bus must not keep for it what others send: beyond 127 MiB
 * it would take nothing more from them.
 */
void CtlWatchTest::nobodyWaitsForItsReader()
{
    constexpr int count = 300;
    Watching watching;
    watching.waitUntilReady();
    const qint64 process = watching.process.processId();
    const int before = memoryOf(process, "VmRSS");
    WireBus sender(bus.address());
    WireWriter body;
    body.fixed(1002, 4);
    body.signature("av");
    const WireWriter::Array list = body.beginArray(1);
    body.signature("s");
    body.text(QByteArray(1000000, 'x'));
    body.endArray(list);
    WireMessage signal;
    signal.path = "/large";
    signal.interface = "com.tovel.status";
    signal.member = "change";
    signal.signature = "iv";
    signal.body = body.bytes;
    for (int i = 0; i < count; ++i) {
        QVERIFY(sender.send(signal)); // blocks where the bus takes no more
    }
    QVERIFY(settle(sender));
    QVERIFY2(memoryOf(process, "VmRSS") - before < mostGrowth,
             qPrintable(QString::number(memoryOf(process, "VmRSS") - before)));
    watching.repeatUntil("/again", [] { announce("/again"_s, 1003, QVariantList()); });
    static const QRegularExpression leftOut(
        "^systemeventctl: \\d+ status changes are left out: standard output took no more\n$"_s);
    const QByteArray told = watching.process.readAllStandardError();
    QVERIFY2(leftOut.match(QString::fromUtf8(told)).hasMatch(), told.constData());
}

//! At once, though nothing is announced that could not be written.
void CtlWatchTest::endsWithItsReader()
{
    const CtlRun run = runShell("{ \"$CTL\" watch; echo \"ended with $?\" >&2; } | true"_s);
    QCOMPARE(run.errors, QByteArray("ended with 0\n"));
}

void CtlWatchTest::endsWithTheBus()
{
    auto other = std::make_unique<TestBus>();
    Watching watching({}, "C.UTF-8"_s);
    WireBus sender(other->address());
    WireMessage signal;
    signal.path = "/ready";
    signal.interface = "com.tovel.status";
    signal.member = "change";
    watching.repeatUntil("unknown", [&] {
        WireWriter body;
        body.fixed(4711, 4);
        body.signature("av");
        body.endArray(body.beginArray(1));
        signal.signature = "iv";
        signal.body = body.bytes;
        QVERIFY(sender.send(signal));
    });
    other.reset();
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().toLatin1());
    QVERIFY(watching.process.waitForFinished(busPatience));
    QCOMPARE(watching.process.exitCode(), 4);
    QCOMPARE(watching.process.readAllStandardError(),
             QByteArray("systemeventctl: the bus has gone\n"));
}

void CtlWatchTest::needsTheBus()
{
    const CtlRun run = runShell("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere \"$CTL\" watch"_s);
    QCOMPARE(run.status, 4);
    QCOMPARE(run.errors, QByteArray("systemeventctl: the system bus cannot be reached\n"));
}

void CtlWatchTest::wrongUsage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::newRow("an event that the catalogue does not know")
        << QStringList{"-e"_s, "nothing"_s} << 2;
    QTest::newRow("an expression that is none") << QStringList{"-g"_s, "("_s} << 2;
    QTest::newRow("a folder, as the bus is none") << QStringList{"-D"_s, "/srv/public/log"_s} << 2;
    QTest::newRow("a number, as there is none yet") << QStringList{"--number"_s, "5"_s} << 2;
    QTest::newRow("a catalogue that is not there") << QStringList{"-C"_s, "/nowhere.xml"_s} << 4;
}

void CtlWatchTest::wrongUsage()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    const CtlRun run = runCtl(QStringList{"watch"_s} + arguments);
    QCOMPARE(run.status, status);
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(run.errors.count('\n'), QByteArray::size_type(1));
}

//! Signals of random types, floods, and the largest messages that there can be.
void CtlWatchTest::outlivesHostileSenders()
{
    Watching watching({"-q"_s});
    watching.waitUntilReady();
    const qint64 process = watching.process.processId();
    const int before = memoryOf(process, "VmRSS");
    WireBus sender(bus.address());
    const int passed = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    for (quint32 round = 0; round < 2000; ++round) {
        Dice dice(7, round);
        RandomMessages messages(&dice);
        WireMessage message = messages.signal();
        message.destination.clear();
        QVERIFY(sender.send(message, passed));
    }
    ::close(passed);
    for (const int id : {1001, 1002, 4711}) {
        constexpr int large = 31 * 1048576;
        announce("/large"_s, id, QVariantList{QString(large, QLatin1Char('%'))});
        announce("/large"_s, id, QVariantList{QByteArray(large, '1'), 5});
        announce("/large"_s, id, QVariant(QByteArray(large, '1')));
        QVariantList many;
        for (int i = 0; i < 2000000; ++i) {
            many.append("%1"_s);
        }
        announce("/large"_s, id, many);
    }
    watching.repeatUntil("Message still here",
                         [] { announce("/good"_s, 1002, QVariantList{"still here"_s}); });
    const int after = memoryOf(process, "VmRSS");
    qInfo("memory before %d KiB, afterwards %d KiB, at most %d KiB", before, after,
          memoryOf(process, "VmHWM"));
    QVERIFY2(after - before < mostGrowth, qPrintable(QString::number(after - before)));
}

QTEST_GUILESS_MAIN(CtlWatchTest)
#include "tst_ctlwatch.moc"

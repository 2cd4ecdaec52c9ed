// SPDX-License-Identifier: Apache-2.0

// Clients in numbers, and one that never listens: 200 of them ask for the whole of a full
// log at once; then one asks for it again and again and reads nothing. The bus has the
// limits of a stock system bus where nothing else is said.

#include "reliability/processfigures.h"
#include "reliability/wirebus.h"
#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTest>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include <poll.h>

namespace
{

constexpr int fileCount = 11;
constexpr int fullSize = 102400;
constexpr int patience = 200000; // milliseconds; against a hang
constexpr int clientCount = 200;
constexpr int questionsOnTheWay = 128;              // as many as the bus lets one client have
constexpr int unreadOfStockBus = 127 * 1024 * 1024; // bytes
constexpr int eventsOfABundle = 100;
#ifdef __SANITIZE_ADDRESS__
constexpr int maxGrowth = 800000; // KiB; freed memory stays in the sanitizer's quarantine
constexpr int smallMemory = 1000000;
#else
constexpr int maxGrowth = 65536;
constexpr int smallMemory = 30000;
#endif

//! Fills the log folder; the answer that it makes.
QByteArray writeFullLog()
{
    const QByteArray text(300, 'x');
    QByteArrayList entries;
    quint64 logNr = 1;
    for (int index = fileCount - 1; index >= 0; --index) {
        QByteArray file;
        // The current one has to wait for one more bundle, or the start would rotate it.
        while (file.size() < fullSize - (index == 0 ? 600 : 0)) {
            RecordBytes::Fields fields;
            fields.logNr = logNr;
            fields.eventId = 1002;
            fields.values = RecordBytes::sized(text);
            file += RecordBytes::record(fields);
            entries += "{\"eventnr\":" + QByteArray::number(logNr)
                + ",\"secs\":\"1700000000.250000\",\"eventtype\":1002,\"loglevel\":\"info\","
                  "\"path\":\"/power/supply\",\"msg\":\"Message "
                + text + "\"}";
            ++logNr;
        }
        Device::writeLogFile(index, file);
    }
    return '[' + entries.join(",\n") + ']';
}

//! A client with one question under way.
struct Client {
    explicit Client(const QString &address)
        : bus(address)
    {
    }

    WireBus bus;
    quint32 question = 0;
    bool isAnswered = false;
};

using Clients = std::vector<std::unique_ptr<Client>>;

//! Takes what has come for a client; whether it was the right answer, or nothing yet.
bool takeAnswer(Client *client, const QByteArray &expected)
{
    if (!client->bus.readSome()) {
        return false;
    }
    while (const std::optional<WireAnswer> answer = client->bus.take()) {
        if (answer->replyTo == client->question) {
            client->isAnswered = true;
            return answer->type == WireMessage::Reply && answer->text() == expected;
        }
    }
    return true;
}

//! Reads for all of them until each has its answer; how many have the right one.
int countRightAnswers(const Clients &clients, const QByteArray &expected)
{
    int right = 0;
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < patience) {
        std::vector<pollfd> waiting;
        std::vector<Client *> whose;
        for (const auto &client : clients) {
            if (!client->isAnswered) {
                waiting.push_back({client->bus.descriptor(), POLLIN, 0});
                whose.push_back(client.get());
            }
        }
        if (waiting.empty() || poll(waiting.data(), waiting.size(), patience) <= 0) {
            break;
        }
        for (std::size_t i = 0; i < waiting.size(); ++i) {
            if (waiting[i].revents != 0) {
                if (!takeAnswer(whose[i], expected)) {
                    return right;
                }
                right += int(whose[i]->isAnswered);
            }
        }
    }
    return right;
}

/*!
 * Has the bus drop what is sent to a client with so much unread. Read anew by a bus that
 * runs, its configuration is where its socket is.
 */
bool limitUnread(const QString &busAddress, int bytes)
{
    const QString socketPath = busAddress.section("path="_s, 1).section(QLatin1Char(','), 0, 0);
    QFile file(QFileInfo(socketPath).dir().filePath("bus.conf"_s));
    if (!file.open(QIODevice::ReadWrite)) {
        return false;
    }
    QByteArray configuration = file.readAll();
    configuration.replace("</busconfig>",
                          "<limit name=\"max_outgoing_bytes\">" + QByteArray::number(bytes)
                              + "</limit></busconfig>");
    file.seek(0);
    if (file.write(configuration) != configuration.size() || !file.flush()) {
        return false;
    }
    const QDBusMessage reload
        = QDBusMessage::createMethodCall("org.freedesktop.DBus"_s, "/org/freedesktop/DBus"_s,
                                         "org.freedesktop.DBus"_s, "ReloadConfig"_s);
    return callAndServe(QDBusConnection::systemBus(), reload).type() == QDBusMessage::ReplyMessage;
}

/*!
 * Asks a few times what costs next to nothing; milliseconds to the latest answer, which
 * waits for the questions of others before it, or -1: one was not answered.
 */
qint64 askSmallQuestions(WireBus *bus)
{
    constexpr int questions = 5;
    qint64 longest = 0;
    for (int i = 0; i < questions; ++i) {
        QElapsedTimer timer;
        timer.start();
        const quint32 serial = bus->nextSerial();
        if (!bus->sendBytes(questionForMinimum().toBytes(serial))
            || !bus->waitFor(serial, patience)) {
            return -1;
        }
        longest = std::max(longest, timer.elapsed());
    }
    return longest;
}

} // namespace

class ClientsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void manyAskAtOnce();
    void fewAnswersUnread();
    void manyAnswersUnread();
    void manyAnswersUnreadWithALimitOfTheBus();

private:
    void sendWithoutReading(WireBus *deaf, int questions);
    void checkMemory(const char *what);

    TestBus bus;
    std::unique_ptr<Device> device;
    qint64 process = 0;
    int memoryBefore = 0;
    QByteArray expected;
};

void ClientsTest::init()
{
    device = std::make_unique<Device>();
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    expected = writeFullLog();
    QVERIFY(device->start());
    process = device->processId();
    QCOMPARE(device->json(), QString::fromUtf8(expected));
    QTRY_VERIFY(memoryOf(process, "VmRSS") < smallMemory);
    memoryBefore = memoryOf(process, "VmRSS");
    QVERIFY(forgetPeak(process));
}

void ClientsTest::cleanup()
{
    device.reset();
}

void ClientsTest::checkMemory(const char *what)
{
    QTRY_VERIFY_WITH_TIMEOUT(memoryOf(process, "VmRSS") < memoryBefore + maxGrowth, busPatience);
    qInfo("%s: memory %d KiB before, at most %d, %d after; an answer has %d bytes", what,
          memoryBefore, memoryOf(process, "VmHWM"), memoryOf(process, "VmRSS"),
          int(expected.size()));
}

void ClientsTest::manyAskAtOnce()
{
    Clients clients;
    for (int i = 0; i < clientCount; ++i) {
        clients.push_back(std::make_unique<Client>(bus.address()));
    }
    QElapsedTimer timer;
    timer.start();
    for (const auto &client : clients) {
        client->question = client->bus.nextSerial();
        QVERIFY(client->bus.sendBytes(questionForAll().toBytes(client->question)));
    }
    QCOMPARE(countRightAnswers(clients, expected), clientCount);
    qInfo("%d clients have the whole log after %lld ms", clientCount, timer.elapsed());
    QVERIFY(device->isRunning());
    checkMemory("many clients");
}

void ClientsTest::sendWithoutReading(WireBus *deaf, int questions)
{
    for (int i = 0; i < questions; ++i) {
        QVERIFY(deaf->send(questionForAll()));
    }
}

//! What the bus holds back for one client is of no concern to the others.
void ClientsTest::fewAnswersUnread()
{
    const auto deaf = std::make_unique<WireBus>(bus.address());
    WireBus other(bus.address());
    sendWithoutReading(deaf.get(), unreadOfStockBus / 4 * 3 / int(expected.size()));
    const qint64 longest = askSmallQuestions(&other);
    QVERIFY(longest >= 0);
    qInfo("longest answer %lld ms", longest);
    QCOMPARE(device->json(), QString::fromUtf8(expected));
    checkMemory("few answers unread");
}

/*!
 * Past 127 MiB unread the bus takes nothing more from the daemon, for whomever it is, up
 * to the end of the client that caused it. Until then events are stored all the same, and
 * the bus's limit of 128 questions under way bounds the daemon's memory.
 */
void ClientsTest::manyAnswersUnread()
{
    auto deaf = std::make_unique<WireBus>(bus.address());
    WireBus other(bus.address());
    sendWithoutReading(deaf.get(), questionsOnTheWay + 10); // the bus refuses these ten
    const quint32 waiting = other.nextSerial();
    QVERIFY(other.sendBytes(questionForMinimum().toBytes(waiting)));
    for (int i = 0; i < eventsOfABundle; ++i) {
        QVERIFY(
            deaf->send(statusChange(Device::fillerId, "av", {}, 1, 0))); // behind all the questions
    }
    // No answer tells when it has come this far; the full file does, which it puts aside.
    QTRY_VERIFY_WITH_TIMEOUT(Device::logFile(0).size() < fullSize / 2, patience);
    const int most = memoryOf(process, "VmHWM");
    const qint64 bound
        = memoryBefore + maxGrowth + qint64(questionsOnTheWay) * expected.size() / 1024;
    QVERIFY2(most < bound, qPrintable(QString::number(most)));

    deaf.reset();
    QVERIFY(other.waitFor(waiting, patience));
    QVERIFY(askSmallQuestions(&other) >= 0);
    QVERIFY(device->isRunning());
    checkMemory("many answers unread");
}

//! With this limit in the bus's configuration the others are served throughout.
void ClientsTest::manyAnswersUnreadWithALimitOfTheBus()
{
    QVERIFY(limitUnread(bus.address(), 5 * int(expected.size())));
    const auto deaf = std::make_unique<WireBus>(bus.address());
    WireBus other(bus.address());
    sendWithoutReading(deaf.get(), unreadOfStockBus / int(expected.size()) + 5);
    const qint64 longest = askSmallQuestions(&other);
    QVERIFY(longest >= 0);
    qInfo("longest answer %lld ms", longest);
    QCOMPARE(device->json(), QString::fromUtf8(expected));
    checkMemory("many answers unread, with a limit");
}

QTEST_GUILESS_MAIN(ClientsTest)
#include "tst_clients.moc"

// SPDX-License-Identifier: Apache-2.0
#include "messages/boundedmessages.h"
#include "messages/messagebound.h"
#include "support/literals.h"

#include <QtTest>

#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace
{

constexpr int most = MessageBound::mostLines;

struct Heard {
    QtMsgType type;
    QString message;
};

std::mutex mutex;
QList<Heard> heard; // what gets through

void listen(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    const std::lock_guard lock(mutex);
    heard.append({type, message});
}

} // namespace

class BoundedMessagesTest : public QObject
{
    Q_OBJECT

    QtMessageHandler handlerOfTheTest = nullptr;
    std::unique_ptr<BoundedMessages> messages;

private Q_SLOTS:
    void init();
    void cleanup();
    void belowTheBoundEveryMessagePasses();
    void beyondItOneLineTellsHowMany();
    void messagesOfManyThreads();
    void nothingIsBoundWithoutIt();
    void longMessageIsCut();
    void fatalMessageTellsWhatWasLeftOut();
    void whatIsAskedForIsCounted();
};

void BoundedMessagesTest::init()
{
    heard.clear();
    handlerOfTheTest = qInstallMessageHandler(listen);
    messages = std::make_unique<BoundedMessages>();
}

void BoundedMessagesTest::cleanup()
{
    messages.reset();
    qInstallMessageHandler(handlerOfTheTest);
}

void BoundedMessagesTest::belowTheBoundEveryMessagePasses()
{
    for (int i = 0; i < most; ++i) {
        qWarning("disk full");
        qDebug("opening file %d", i);
    }
    messages.reset();
    QCOMPARE(heard.size(), 2 * most);
    QCOMPARE(heard[0].type, QtWarningMsg);
    QCOMPARE(heard[0].message, "disk full"_s);
    QCOMPARE(heard[2 * most - 1].type, QtDebugMsg);
    QCOMPARE(heard[2 * most - 1].message, "opening file 999"_s);
}

void BoundedMessagesTest::beyondItOneLineTellsHowMany()
{
    for (int i = 0; i < 3 * most + 5; ++i) {
        qWarning("The disk is full: %d", i);
    }
    qWarning("another");
    QCOMPARE(heard.size(), most + 1);
    messages.reset();
    QCOMPARE(heard.size(), most + 2);
    QCOMPARE(heard.last().type, QtWarningMsg);
    QCOMPARE(heard.last().message,
             "Messages left out within a minute that begin \"The disk is full\": 2005"_s);
}

void BoundedMessagesTest::messagesOfManyThreads()
{
    constexpr int each = 5000;
    constexpr int count = 4;
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < each; ++k) {
                qInfo("from another thread");
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    messages.reset();
    QCOMPARE(heard.size(), most + 1);
    QVERIFY(heard.last().message.endsWith(": 19000"_s));
}

void BoundedMessagesTest::nothingIsBoundWithoutIt()
{
    messages.reset();
    for (int i = 0; i < 2 * most; ++i) {
        qWarning("disk full");
    }
    QCOMPARE(heard.size(), 2 * most);
    QVERIFY(!BoundedMessages::leaveOut(QtWarningMsg, QLatin1String("disk full")));
}

void BoundedMessagesTest::longMessageIsCut()
{
    const QString longest(MessageBound::mostLength, QLatin1Char('x'));
    qWarning("%s", qPrintable(longest));
    qWarning("%s", qPrintable(longest + "y"_s));
    QCOMPARE(heard.size(), 2);
    QCOMPARE(heard[0].message, longest);
    QCOMPARE(heard[1].message, longest + "..."_s);
}

//! Without its consequence: the handler alone does not end the process.
void BoundedMessagesTest::fatalMessageTellsWhatWasLeftOut()
{
    for (int i = 0; i < most + 1; ++i) {
        qWarning("disk full");
    }
    const QtMessageHandler handler = qInstallMessageHandler(nullptr);
    qInstallMessageHandler(handler);
    handler(QtFatalMsg, QMessageLogContext(), "the end"_s);
    QCOMPARE(heard.size(), most + 2);
    QVERIFY(heard[most].message.endsWith("\"disk full\": 1"_s));
    QCOMPARE(heard[most + 1].type, QtFatalMsg);
    QCOMPARE(heard[most + 1].message, "the end"_s);
}

void BoundedMessagesTest::whatIsAskedForIsCounted()
{
    const QLatin1String beginning("The disk is full");
    QVERIFY(!BoundedMessages::leaveOut(QtWarningMsg, beginning));
    for (int i = 0; i < most; ++i) {
        qWarning("The disk is full.");
    }
    QVERIFY(BoundedMessages::leaveOut(QtWarningMsg, beginning));
    QVERIFY(BoundedMessages::leaveOut(QtWarningMsg, beginning));
    qWarning("The disk is full!");
    messages.reset();
    QCOMPARE(heard.size(), most + 1);
    QVERIFY(heard.last().message.endsWith("\"The disk is full\": 3"_s));
}

QTEST_GUILESS_MAIN(BoundedMessagesTest)

#include "tst_boundedmessages.moc"

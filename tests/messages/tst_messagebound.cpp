// SPDX-License-Identifier: Apache-2.0
#include "messages/messagebound.h"
#include "support/literals.h"

#include <QtTest>

namespace
{

using namespace std::chrono_literals;

constexpr int most = MessageBound::mostLines;
constexpr MessageBound::Time start{1000h};

//! How many of so many like messages are to be written.
int admitted(MessageBound &bound, int count, QtMsgType type, const QString &message,
             MessageBound::Time now = start)
{
    int written = 0;
    for (int i = 0; i < count; ++i) {
        written += bound.admits(type, message, now) ? 1 : 0;
    }
    return written;
}

//! Each kind of which something was left out: beginning, blank, number.
QStringList told(MessageBound &bound)
{
    QStringList all;
    for (const MessageBound::LeftOut &each : bound.endPeriod()) {
        all.append(each.beginning + " "_s + QString::number(each.count));
    }
    return all;
}

} // namespace

class MessageBoundTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void soManyOfAKind();
    void kinds_data();
    void kinds();
    void lineFeedsCountAsLines();
    void fatalMessagesAlwaysPass();
    void minuteBeginsWithItsFirstMessage();
    void nothingIsToldOfWhatWasWritten();
    void kindsAreBounded();
    void longMessagesAreCut_data();
    void longMessagesAreCut();
    void askingFirst();
};

void MessageBoundTest::soManyOfAKind()
{
    MessageBound bound;
    QCOMPARE(admitted(bound, 2 * most + 7, QtWarningMsg, "disk full"_s), most);
    QCOMPARE(told(bound), QStringList{"disk full 1007"_s});
}

void MessageBoundTest::kinds_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("isOfTheKind"); // of the warning "0123456789abcdef ..."

    QTest::newRow("the same message") << int(QtWarningMsg) << "0123456789abcdef ..."_s << true;
    QTest::newRow("another end") << int(QtWarningMsg) << "0123456789abcdef, and more of it"_s
                                 << true;
    QTest::newRow("as short as can be") << int(QtWarningMsg) << "0123456789abcdef"_s << true;
    QTest::newRow("another sixteenth character")
        << int(QtWarningMsg) << "0123456789abcde-"_s << false;
    QTest::newRow("shorter") << int(QtWarningMsg) << "0123456789abcde"_s << false;
    QTest::newRow("empty") << int(QtWarningMsg) << ""_s << false;
    QTest::newRow("of another type") << int(QtDebugMsg) << "0123456789abcdef ..."_s << false;
}

void MessageBoundTest::kinds()
{
    QFETCH(int, type);
    QFETCH(QString, message);
    QFETCH(bool, isOfTheKind);
    MessageBound bound;
    (void)admitted(bound, most, QtWarningMsg, "0123456789abcdef ..."_s);
    QCOMPARE(bound.admits(QtMsgType(type), message, start), !isOfTheKind);
}

void MessageBoundTest::lineFeedsCountAsLines()
{
    MessageBound bound;
    QCOMPARE(admitted(bound, most, QtWarningMsg, "a\nb\nc"_s), most / 3);
    MessageBound other;
    QVERIFY(!other.admits(QtWarningMsg, QString(most, QLatin1Char('\n')), start));
    QVERIFY(other.admits(QtWarningMsg, QString(most - 1, QLatin1Char('\n')), start));
}

void MessageBoundTest::fatalMessagesAlwaysPass()
{
    MessageBound bound;
    QCOMPARE(admitted(bound, most + 1, QtFatalMsg, "the end"_s), most + 1);
}

void MessageBoundTest::minuteBeginsWithItsFirstMessage()
{
    MessageBound bound;
    QVERIFY(!bound.isOver(start)); // before there was any
    (void)admitted(bound, most + 2, QtWarningMsg, "disk full"_s);
    (void)admitted(bound, most + 3, QtDebugMsg, "opening file"_s, start + 59s);
    QVERIFY(bound.end() == start + 60s);
    QVERIFY(!bound.isOver(start + 60s - 1ns));
    QCOMPARE(admitted(bound, 1, QtWarningMsg, "disk full"_s, start + 60s - 1ns), 0);
    QVERIFY(bound.isOver(start + 60s));
    QCOMPARE(told(bound), (QStringList{"disk full 3"_s, "opening file 3"_s}));

    QVERIFY(!bound.isOver(start + 1h)); // none has begun
    QCOMPARE(admitted(bound, most + 1, QtWarningMsg, "disk full"_s, start + 1h), most);
    QVERIFY(bound.isOver(start + 1h + 60s));
}

void MessageBoundTest::nothingIsToldOfWhatWasWritten()
{
    MessageBound bound;
    QCOMPARE(told(bound), QStringList());
    (void)admitted(bound, most, QtWarningMsg, "disk full"_s);
    QCOMPARE(told(bound), QStringList());
}

//! Where the sender decides how a message begins.
void MessageBoundTest::kindsAreBounded()
{
    constexpr int many = 10000;
    MessageBound bound;
    int written = 0;
    for (int i = 0; i < many; ++i) {
        written += admitted(bound, 1, QtDebugMsg, QString::number(i));
    }
    QCOMPARE(written, int(MessageBound::mostKinds) + most);
    QCOMPARE(admitted(bound, most, QtDebugMsg, "1"_s), most - 1); // known all the time
    const std::vector<MessageBound::LeftOut> leftOut = bound.endPeriod();
    QCOMPARE(leftOut.size(), std::size_t(2));
    QVERIFY(!leftOut[0].beginning.isNull());
    QVERIFY(leftOut[1].beginning.isNull());
    QCOMPARE(leftOut[1].type, QtWarningMsg);
    QCOMPARE(leftOut[1].count, quint64(many) - MessageBound::mostKinds - most);
}

void MessageBoundTest::longMessagesAreCut_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("written");
    const QString longest(MessageBound::mostLength, QLatin1Char('x'));
    QTest::newRow("empty stays") << ""_s
                                 << ""_s;
    QTest::newRow("short stays") << "disk full"_s
                                 << "disk full"_s;
    QTest::newRow("as long as can be stays") << longest << longest;
    QTest::newRow("longer by one is cut") << longest + "y"_s << longest + "..."_s;
    QTest::newRow("much longer is cut") << longest + longest << longest + "..."_s;
}

void MessageBoundTest::longMessagesAreCut()
{
    QFETCH(QString, message);
    QTEST(MessageBound::shortened(message), "written");
}

void MessageBoundTest::askingFirst()
{
    const QLatin1String beginning("SystemeventArgument::lookupVariant(");
    const QString message = QString(beginning) + " 5"_s;
    MessageBound bound;
    QVERIFY(!bound.leavesOut(QtDebugMsg, beginning, start));
    (void)admitted(bound, most - 1, QtDebugMsg, message);
    QVERIFY(!bound.leavesOut(QtDebugMsg, beginning, start));
    QCOMPARE(admitted(bound, 2, QtDebugMsg, message), 1);
    QVERIFY(bound.leavesOut(QtDebugMsg, beginning, start));
    QVERIFY(bound.leavesOut(QtDebugMsg, beginning, start + 60s - 1ns));
    QVERIFY(!bound.leavesOut(QtWarningMsg, beginning, start));
    QVERIFY(!bound.leavesOut(QtDebugMsg, beginning, start + 60s)); // over
    QCOMPARE(told(bound), QStringList{"SystemeventArgum 3"_s});

    QCOMPARE(admitted(bound, most, QtWarningMsg, "Unhandled type"_s), most);
    QVERIFY(bound.leavesOut(QtWarningMsg, QLatin1String("Unhandled type"), start)); // shorter
    QVERIFY(!bound.leavesOut(QtWarningMsg, QLatin1String("Unhandled"), start));
}

QTEST_GUILESS_MAIN(MessageBoundTest)

#include "tst_messagebound.moc"

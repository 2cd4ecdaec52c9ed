// SPDX-License-Identifier: Apache-2.0

// What is known of senders never says that a message follows upon another where one may lie
// between them. That it does not know costs a question only.

#include "intake/senders.h"

#include <QTest>

#include <limits>
#include <string>

namespace
{

constexpr quint32 last = std::numeric_limits<quint32>::max();

std::string nameOf(int number)
{
    return ":1." + std::to_string(number);
}

} // namespace

class SendersTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void follows_data();
    void follows();
    void nobodyIsKnownAtFirst();
    void eachIsCountedByItself();
    void onlyTheLastOneCounts();
    void namesAreComparedAsAWhole();
    void whoTakesAPlaceHasOnlyHisOwn();
};

void SendersTest::follows_data()
{
    QTest::addColumn<quint32>("handled");
    QTest::addColumn<quint32>("asked");
    QTest::addColumn<bool>("isNext");

    QTest::newRow("the next one follows") << 7U << 8U << true;
    QTest::newRow("the same one does not") << 7U << 7U << false;
    QTest::newRow("one before it does not") << 7U << 6U << false;
    QTest::newRow("one behind a gap does not") << 7U << 9U << false;
    QTest::newRow("the last number follows upon the one before it") << last - 1 << last << true;
    // Libraries leave out 0, which is no serial number: so the bus is asked here.
    QTest::newRow("the first number is not known to follow upon the last") << last << 1U << false;
    QTest::newRow("the second number does not follow upon the last") << last << 2U << false;
    QTest::newRow("half way round is not next") << 1U << (1U << 31) + 1 << false;
}

void SendersTest::follows()
{
    QFETCH(quint32, handled);
    QFETCH(quint32, asked);
    QFETCH(bool, isNext);
    Senders senders;
    senders.handled(":1.7", handled);
    QCOMPARE(senders.follows(":1.7", asked), isNext);
    QCOMPARE(senders.follows(":1.7", asked), isNext); // to ask changes nothing
}

void SendersTest::nobodyIsKnownAtFirst()
{
    const Senders senders;
    for (const quint32 serial : {1U, 2U, last}) {
        QVERIFY(!senders.follows(":1.7", serial));
    }
}

void SendersTest::eachIsCountedByItself()
{
    Senders senders;
    senders.handled(":1.7", 7);
    QVERIFY(!senders.follows(":1.8", 8));
    senders.handled(":1.8", 100);
    QVERIFY(senders.follows(":1.8", 101));
    QVERIFY(!senders.follows(":1.8", 8));
    QVERIFY(!senders.follows(":1.7", 101));
}

void SendersTest::onlyTheLastOneCounts()
{
    Senders senders;
    senders.handled(":1.7", 7);
    senders.handled(":1.7", 8);
    QVERIFY(!senders.follows(":1.7", 8));
    QVERIFY(senders.follows(":1.7", 9));
    senders.handled(":1.7", 3); // as one that begins anew
    QVERIFY(!senders.follows(":1.7", 9));
    QVERIFY(senders.follows(":1.7", 4));
}

void SendersTest::namesAreComparedAsAWhole()
{
    Senders senders;
    senders.handled(":1.77", 7);
    for (const char *const other : {":1.7", ":1.777", ":1.78", "1.77", ""}) {
        QVERIFY2(!senders.follows(other, 8), other);
    }
    // Too long a name for the room that short ones have in place.
    const std::string common(100, 'x');
    senders.handled(common + '1', 7);
    QVERIFY(senders.follows(common + '1', 8));
    QVERIFY(!senders.follows(common + '2', 8));
    QVERIFY(!senders.follows(common, 8));
}

//! There are more than places, so that at least half of them are forgotten.
void SendersTest::whoTakesAPlaceHasOnlyHisOwn()
{
    constexpr int names = 2048;
    Senders senders;
    const auto serialOf = [](int number) { return quint32(number) * 3 + 1; };
    for (int i = 0; i < names; ++i) {
        senders.handled(nameOf(i), serialOf(i));
        QVERIFY(senders.follows(nameOf(i), serialOf(i) + 1));
    }
    int known = 0;
    int mistaken = 0;
    for (int i = 0; i < names; ++i) {
        const std::string name = nameOf(i);
        for (int other = 0; other < names; ++other) {
            const bool isNext = senders.follows(name, serialOf(other) + 1);
            known += int(isNext && other == i);
            mistaken += int(isNext && other != i);
        }
    }
    QCOMPARE(mistaken, 0);
    QVERIFY(known > 0);
    QVERIFY2(known <= names / 2, "what is remembered has to be bounded");
}

QTEST_APPLESS_MAIN(SendersTest)
#include "tst_senders.moc"

// SPDX-License-Identifier: Apache-2.0

// What waits comes out as it went in, in its order, and its memory is given back.

#include "intake/waitingchanges.h"
#include "reader/dice.h"
#include "support/environment.h"

#include <QByteArray>
#include <QTest>

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <new>

#include <malloc.h>

namespace
{

constexpr size_t usualBlock = 131072;
size_t allocated = 0; //!< bytes in arrays of such a size and beyond
constexpr size_t boundary = 8;

struct Expected {
    quint32 serial = 0;
    bool isBigEndian = false;
    QByteArray sender;
    QByteArray path;
    QByteArray body;
};

std::string_view viewOf(const QByteArray &bytes)
{
    return {bytes.constData(), size_t(bytes.size())};
}

Expected change(quint32 serial, int bodySize)
{
    return {serial, (serial & 1) != 0, ":1." + QByteArray::number(serial),
            "/" + QByteArray(int(serial % 17), 'p'), QByteArray(bodySize, char(serial))};
}

void add(WaitingChanges &changes, const Expected &expected)
{
    Wire::Head head;
    head.serial = expected.serial;
    head.isBigEndian = expected.isBigEndian;
    head.sender = viewOf(expected.sender);
    head.path = viewOf(expected.path);
    head.body = viewOf(expected.body);
    changes.add(head);
}

bool areEqual(const WaitingChanges::Change &found, const Expected &expected)
{
    return found.serial == expected.serial && found.isBigEndian == expected.isBigEndian
        && found.sender == viewOf(expected.sender) && found.path == viewOf(expected.path)
        && found.body == viewOf(expected.body)
        && reinterpret_cast<std::uintptr_t>(found.body.data()) % boundary == 0;
}

//! Whether a visit meets exactly these.
bool areEqual(const WaitingChanges &found, const std::deque<Expected> &expected)
{
    size_t count = 0;
    bool isSame = true;
    found.visit([&](const WaitingChanges::Change &each) {
        isSame = count < expected.size() && areEqual(each, expected[count]);
        ++count;
        return isSame;
    });
    return isSame && count == expected.size();
}

//! What of an array is counted: Qt's test library has small ones.
size_t counted(void *memory)
{
    const size_t size = memory != nullptr ? malloc_usable_size(memory) : 0;
    return size < usualBlock ? 0 : size;
}

} // namespace

void *operator new[](size_t size)
{
    void *const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    allocated += counted(memory);
    return memory;
}

void operator delete[](void *memory) noexcept
{
    allocated -= counted(memory);
    std::free(memory);
}

void operator delete[](void *memory, size_t /*size*/) noexcept
{
    operator delete[](memory);
}

class WaitingChangesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void order_data();
    void order();
    void longestSender();
    void largeOneBehindEmptiedBlock();
    void visitEndsWhenTold();
    void clearCountsAsTaken();
    void bound();
    void memoryIsGivenBack();
    void asAPlainQueue();
};

void WaitingChangesTest::order_data()
{
    QTest::addColumn<QList<int>>("sizes"); // of the bodies
    const int block = int(usualBlock);
    QTest::newRow("small ones") << QList<int>{0, 1, 7, 8, 9, 1000};
    QTest::newRow("a large one between small ones") << QList<int>{10, 3 * block, 20};
    QTest::newRow("a large one in front") << QList<int>{3 * block, 10, 20};
    QTest::newRow("large ones alone") << QList<int>{block, 2 * block, 3 * block};
    QTest::newRow("such as hardly fit into a block")
        << QList<int>{block - 50, block - 40, block - 30, block - 20, block - 10, block};
}

void WaitingChangesTest::order()
{
    QFETCH(QList<int>, sizes);
    WaitingChanges changes;
    std::deque<Expected> expected;
    for (const int size : sizes) {
        expected.push_back(change(quint32(expected.size()) + 1, size));
        add(changes, expected.back());
    }
    QVERIFY(areEqual(changes, expected));
    while (!expected.empty()) {
        QVERIFY(!changes.isEmpty());
        QVERIFY(areEqual(changes.first(), expected.front()));
        changes.removeFirst();
        expected.pop_front();
    }
    QVERIFY(changes.isEmpty());
    QCOMPARE(changes.added(), quint64(sizes.size()));
    QCOMPARE(changes.removed(), quint64(sizes.size()));
}

void WaitingChangesTest::longestSender()
{
    WaitingChanges changes;
    Expected expected = change(1, 10);
    expected.sender = QByteArray(255, 's');
    expected.path = '/' + QByteArray(100000, 'p');
    add(changes, expected);
    QVERIFY(areEqual(changes.first(), expected));
}

void WaitingChangesTest::largeOneBehindEmptiedBlock()
{
    WaitingChanges changes;
    add(changes, change(1, 10));
    changes.removeFirst();
    const Expected large = change(2, 2 * int(usualBlock));
    add(changes, large);
    QVERIFY(areEqual(changes, {large}));
    QVERIFY(areEqual(changes.first(), large));
    changes.removeFirst();
    QVERIFY(changes.isEmpty());
}

void WaitingChangesTest::visitEndsWhenTold()
{
    WaitingChanges changes;
    for (quint32 serial = 1; serial <= 5; ++serial) {
        add(changes, change(serial, int(usualBlock) / 2)); // of several blocks
    }
    QList<quint32> visited;
    changes.visit([&](const WaitingChanges::Change &each) {
        visited.append(each.serial);
        return each.serial < 3;
    });
    QCOMPARE(visited, (QList<quint32>{1, 2, 3}));
}

void WaitingChangesTest::clearCountsAsTaken()
{
    WaitingChanges changes;
    add(changes, change(1, 10));
    add(changes, change(2, 10));
    changes.clear();
    QVERIFY(changes.isEmpty());
    QCOMPARE(changes.added(), 2U);
    QCOMPARE(changes.removed(), 2U);
    const Expected next = change(3, 10);
    add(changes, next);
    QVERIFY(areEqual(changes, {next}));
}

void WaitingChangesTest::bound()
{
    WaitingChanges changes;
    const size_t before = allocated;
    quint32 serial = 0;
    while (!changes.isFull()) {
        QVERIFY(allocated - before < WaitingChanges::limit);
        add(changes, change(++serial, 200));
    }
    QVERIFY(allocated - before >= WaitingChanges::limit);
    QVERIFY(allocated - before < WaitingChanges::limit + 2 * usualBlock);
    const size_t share = WaitingChanges::limit / serial; // a block has room for many
    QVERIFY2(share > 200 && share < 300, qPrintable(QString::number(share)));

    while (changes.isFull() && !changes.isEmpty()) {
        changes.removeFirst();
    }
    QVERIFY(!changes.isEmpty());
    QVERIFY(allocated - before < WaitingChanges::limit);
}

void WaitingChangesTest::memoryIsGivenBack()
{
    const size_t before = allocated;
    {
        WaitingChanges changes;
        for (const int size : {200, 500000}) {
            for (quint32 serial = 1; serial <= 3000 && !changes.isFull(); ++serial) {
                add(changes, change(serial, size));
            }
            size_t most = allocated;
            while (!changes.isEmpty()) {
                changes.removeFirst();
                QVERIFY(allocated <= most); // block by block
                most = allocated;
            }
            QVERIFY(allocated - before < 2 * usualBlock); // one is kept for what comes
        }
        add(changes, change(1, 500000));
        changes.clear();
        QCOMPARE(allocated, before);
        add(changes, change(1, 500000));
    }
    QCOMPARE(allocated, before);
}

void WaitingChangesTest::asAPlainQueue()
{
    const auto seed = quint32(numberFromEnvironment("SEL_SEED", 1));
    qInfo("SEL_SEED=%u", seed);
    Dice dice(seed, 0);
    WaitingChanges changes;
    std::deque<Expected> expected;
    quint64 added = 0;
    for (int i = 0; i < 50000; ++i) {
        const int phase = (i / 5000) % 2; // it grows, and shrinks again
        const int throwOf1000 = dice.below(1000);
        if (throwOf1000 < (phase == 0 ? 600 : 400)) {
            const bool isLarge = dice.chance(1);
            const int size = dice.below(isLarge ? 4 * int(usualBlock) : 300);
            expected.push_back(change(quint32(++added), size));
            add(changes, expected.back());
        } else if (!expected.empty()) {
            changes.removeFirst();
            expected.pop_front();
        }
        if (throwOf1000 == 999) {
            changes.clear();
            expected.clear();
        }
        QCOMPARE(changes.isEmpty(), expected.empty());
        QCOMPARE(changes.added(), added);
        QCOMPARE(changes.removed(), added - expected.size());
        QVERIFY(expected.empty() || areEqual(changes.first(), expected.front()));
        if (i % 500 == 0) {
            QVERIFY(areEqual(changes, expected));
        }
    }
}

QTEST_GUILESS_MAIN(WaitingChangesTest)
#include "tst_waitingchanges.moc"

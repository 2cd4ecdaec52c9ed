// SPDX-License-Identifier: Apache-2.0

// What becomes of a current file that ends in the middle of a record, or in bytes that
// never were one. Records are found from the end of their file, whose last two bytes are
// believed: the number to go on with comes from wherever they point. Older files are not
// touched by that, the daemon starts and stores, and all is well again once the file has
// been rotated.

#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QDBusMessage>
#include <QTest>
#include <QtEndian>

namespace
{

using RecordBytes::record;

constexpr quint64 olderRecords = 40; // numbers 1 to 40
constexpr quint64 lastRecord = 80;
constexpr int messageId = 1002;

QByteArray message(quint64 logNr)
{
    RecordBytes::Fields fields;
    fields.logNr = logNr;
    fields.eventId = messageId;
    fields.values = RecordBytes::sized("old");
    return record(fields);
}

//! Records 41 to 79, and record 80 as far as it got.
QByteArray cutAt(qint64 bytesOfTheLast)
{
    QByteArray file;
    for (quint64 logNr = olderRecords + 1; logNr < lastRecord; ++logNr) {
        file += message(logNr);
    }
    return file + message(lastRecord).left(int(bytesOfTheLast));
}

QByteArray followedBy(const QByteArray &tail)
{
    return cutAt(message(lastRecord).size()) + tail;
}

QByteArray zeros(int count)
{
    return {count, 0};
}

QByteArray olderFile()
{
    QByteArray file;
    for (quint64 logNr = 1; logNr <= olderRecords; ++logNr) {
        file += message(logNr);
    }
    return file;
}

quint64 firstNumber(const QByteArray &records)
{
    return records.size() < 8 ? 0 : qFromLittleEndian<quint64>(records.constData());
}

//! The same with a long text, whose blanks are the last bytes.
QByteArray cutInALongText()
{
    RecordBytes::Fields fields;
    fields.logNr = lastRecord;
    fields.eventId = messageId;
    fields.values = RecordBytes::sized(QByteArray(5000, ' '));
    return cutAt(0) + record(fields).left(4000);
}

} // namespace

class TornTailTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tail_data();
    void tail();

private:
    //! Whether a record is read back whole, with its text.
    static bool isReadable(Device &device, quint64 logNr, const QString &text);
    static int countReadable(Device &device, quint64 first, quint64 last);
    static void rotate(Device &device, const QByteArray &torn);

    TestBus bus;
};

void TornTailTest::tail_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<quint64>("next");         // the number of the next record
    QTest::addColumn<int>("readable");         // how many of records 41 to 80 are
    QTest::addColumn<bool>("wholeIsAnswered"); // a request for all numbers there are
    QTest::addColumn<bool>("nextIsReadable");
    QTest::addColumn<bool>("readableAfterRotation"); // the first record in the new file

    QTest::newRow("a whole file") << followedBy({}) << quint64(81) << 40 << true << true << true;
    QTest::newRow("cut in the number") << cutAt(4) << quint64(1) << 0 << false << false << true;
    QTest::newRow("cut behind the number") << cutAt(8) << quint64(1) << 0 << false << false << true;
    QTest::newRow("cut in the padding") << cutAt(24) << quint64(1) << 0 << false << false << true;
    QTest::newRow("cut in the event id")
        << cutAt(26) << quint64(3533747274507092858) << 0 << false << true << true;
    QTest::newRow("cut in the path") << cutAt(35) << quint64(1) << 0 << true << false << true;
    QTest::newRow("cut in a text") << cutAt(46) << quint64(1) << 0 << true << false << true;
    QTest::newRow("cut in a long text")
        << cutInALongText() << quint64(1) << 0 << true << false << true;
    QTest::newRow("cut before the trailer")
        << cutAt(49) << quint64(1) << 0 << true << false << true;
    QTest::newRow("cut in the trailer") << cutAt(50) << quint64(1) << 0 << true << false << true;
    QTest::newRow("one zero") << followedBy(zeros(1)) << quint64(1) << 0 << true << false << true;
    QTest::newRow("two zeros") << followedBy(zeros(2)) << quint64(1) << 40 << true << false
                               << false;
    QTest::newRow("a page of zeros")
        << followedBy(zeros(4096)) << quint64(1) << 40 << true << false << false;
    QTest::newRow("a page of zeros and one more")
        << followedBy(zeros(4097)) << quint64(1) << 0 << true << false << true;
    QTest::newRow("a page of 0xFF")
        << followedBy(QByteArray(4096, '\xFF')) << quint64(1) << 0 << true << false << true;
}

bool TornTailTest::isReadable(Device &device, quint64 logNr, const QString &text)
{
    const QString entry = device.result("jsonLogfile"_s, {logNr, logNr, "en"_s}).toString();
    return entry.startsWith("[{\"eventnr\":%1,"_s.arg(logNr))
        && entry.endsWith("\"msg\":\"Message %1\"}]"_s.arg(text));
}

int TornTailTest::countReadable(Device &device, quint64 first, quint64 last)
{
    int count = 0;
    for (quint64 logNr = first; logNr <= last; ++logNr) {
        count += isReadable(device, logNr, "old"_s) ? 1 : 0;
    }
    return count;
}

void TornTailTest::tail()
{
    QFETCH(QByteArray, file);
    QFETCH(quint64, next);
    QFETCH(int, readable);
    QFETCH(bool, wholeIsAnswered);
    QFETCH(bool, nextIsReadable);
    QFETCH(bool, readableAfterRotation);
    Device device;
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    Device::writeLogFile(1, olderFile());
    Device::writeLogFile(0, file);

    QVERIFY(device.start());
    QCOMPARE(countReadable(device, 1, olderRecords), int(olderRecords));
    QCOMPARE(countReadable(device, olderRecords + 1, lastRecord), readable);
    const QVariantList everything{quint64(0), ~quint64(0), "en"_s};
    QCOMPARE(device.call("jsonLogfile"_s, everything).type() == QDBusMessage::ReplyMessage,
             wholeIsAnswered);

    device.change("/power/supply"_s, messageId, {"new"_s});
    QVERIFY(device.fillBundle());
    QCOMPARE(Device::logFile(0).left(file.size()), file); // nothing is cut off or mended
    QCOMPARE(firstNumber(Device::logFile(0).mid(file.size())), next);
    QCOMPARE(isReadable(device, next, "new"_s), nextIsReadable);

    rotate(device, file);
    device.change("/power/supply"_s, messageId, {"newer"_s});
    QVERIFY(device.fillBundle());
    const quint64 afterRotation = firstNumber(Device::logFile(0));
    QCOMPARE(isReadable(device, afterRotation, "newer"_s), readableAfterRotation);
    QVERIFY(afterRotation > next);
    QCOMPARE(countReadable(device, 1, olderRecords), int(olderRecords));
}

void TornTailTest::rotate(Device &device, const QByteArray &torn)
{
    constexpr int enough = 10; // files are rotated at 102,400 bytes
    for (int i = 0; i < enough && Device::logFile(1).left(torn.size()) != torn; ++i) {
        device.change("/power/supply"_s, messageId, {QString(30000, QLatin1Char('x'))});
        device.settle();
    }
    QCOMPARE(Device::logFile(1).left(torn.size()), torn);
    QCOMPARE(Device::logFile(0), QByteArray());
}

QTEST_GUILESS_MAIN(TornTailTest)
#include "tst_torntail.moc"

// SPDX-License-Identifier: Apache-2.0

// The bytes: every value encoding, file names, and the way back to a last record.

#include "logformat/bytesource.h"
#include "logformat/logformat.h"
#include "support/goldenrecords.h"
#include "support/literals.h"
#include "support/recordbytes.h"

#include <QBuffer>
#include <QRegularExpression>
#include <QTest>

class LogFormatTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void valueEncoding_data();
    void valueEncoding();
    void longStringKeepsAllBytes();
    void fileNames_data();
    void fileNames();
    void lastLogNr_data();
    void lastLogNr();
    void numbersAreReadAsFarAsTheyGo();
    void seekingBeforeTheStartStays();
    void headIsWrittenAsItIsRead();
    void headBeforeTheStartIsReadFromWhereTheSourceStands();
    void walk_data();
    void walk();
    void walkEndsWithItsVisitor();
};

void LogFormatTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(".?"_s));
#endif
}

void LogFormatTest::valueEncoding_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("isReported");
    const auto rows = goldenRecords();
    for (const GoldenRecord &golden : rows) {
        // A QVariant in a test column is unwrapped by one level, so it travels in a list.
        QTest::newRow(golden.name)
            << QVariant(QVariantList{golden.value}) << golden.bytes << golden.isReported;
    }
}

void LogFormatTest::valueEncoding()
{
    QFETCH(QVariant, value);
    QFETCH(QByteArray, bytes);
    QFETCH(bool, isReported);
    QByteArray encoded("before");
    QCOMPARE(LogFormat::appendValue(encoded, value.toList().constFirst()), !isReported);
    QCOMPARE(encoded.toHex(), ("before" + bytes).toHex());
}

void LogFormatTest::longStringKeepsAllBytes()
{
    QByteArray encoded;
    QVERIFY(LogFormat::appendValue(encoded, QString(65536 + 5, QLatin1Char('x'))));
    QCOMPARE(encoded.left(3).toHex(), QByteArray("050078"));
    QCOMPARE(encoded.size(), 2 + 65536 + 5);
}

void LogFormatTest::fileNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("index");
    QTest::newRow("the current file") << "zib0.log"_s << 0;
    QTest::newRow("an older file") << "zib10.log"_s << 10;
    QTest::newRow("the highest index") << "zib2147483647.log"_s << 2147483647;
    QTest::newRow("an index beyond 31 bits is none") << "zib2147483648.log"_s << -1;
    QTest::newRow("leading zeros are another file") << "zib00.log"_s << -1;
    QTest::newRow("a sign is another file") << "zib-1.log"_s << -1;
    QTest::newRow("plus is another file") << "zib+1.log"_s << -1;
    QTest::newRow("no digits") << "zib.log"_s << -1;
    QTest::newRow("a letter behind the digits") << "zib0x.log"_s << -1;
    QTest::newRow("another suffix") << "zib0.logs"_s << -1;
    QTest::newRow("another prefix") << "zob0.log"_s << -1;
    QTest::newRow("upper case") << "ZIB0.LOG"_s << -1;
    QTest::newRow("empty") << QString() << -1;
}

void LogFormatTest::fileNames()
{
    QFETCH(QString, name);
    QFETCH(int, index);
    QCOMPARE(LogFormat::fileIndex(name), index);
    if (index >= 0) {
        QCOMPARE(LogFormat::fileName(index), name);
    }
}

void LogFormatTest::lastLogNr_data()
{
    using RecordBytes::record;
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<quint64>("logNr");
    QTest::newRow("one record") << record(41) << quint64(41);
    QTest::newRow("the last of two") << record(41) + record(42) << quint64(42);
    QTest::newRow("64 bits") << record(quint64(1) << 63) << (quint64(1) << 63);
    // The last two bytes are 00 00 there, so that the number is taken from them backwards.
    QTest::newRow("a torn record yields a wrong number")
        << record(41) + record(42).left(8) << quint64(0);
    QTest::newRow("a trailer that points before the start reads nothing")
        << QByteArray("\x01\x00\x00\x00\x00\x00\x00\x00\xff\xff", 10) << quint64(0);
    QTest::newRow("a single byte reads nothing") << QByteArray("\x05") << quint64(0);
}

void LogFormatTest::lastLogNr()
{
    QFETCH(QByteArray, content);
    QFETCH(quint64, logNr);
    QBuffer file(&content);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(LogFormat::lastLogNr(file), logNr);
}

void LogFormatTest::numbersAreReadAsFarAsTheyGo()
{
    QByteArray content("\x01\x02\x03", 3);
    QBuffer file(&content);
    QVERIFY(file.open(QIODevice::ReadOnly));
    qint32 partial = -1;
    QCOMPARE(LogFormat::read(file, partial), qint64(3));
    QCOMPARE(partial, 0x00030201);
    quint8 none = 7;
    QVERIFY(LogFormat::read(file, none) < 1);
    QCOMPARE(none, quint8(0));
}

void LogFormatTest::seekingBeforeTheStartStays()
{
    QByteArray content("abc");
    QBuffer file(&content);
    QVERIFY(file.open(QIODevice::ReadOnly));
    LogFormat::seek(file, 2);
    LogFormat::seek(file, -1);
    QCOMPARE(file.pos(), qint64(2));
    LogFormat::seek(file, 0);
    QCOMPARE(file.pos(), qint64(0));
}

void LogFormatTest::headIsWrittenAsItIsRead()
{
    QByteArray bytes;
    LogFormat::appendLogNr(bytes, 0x0102030405060708);
    LogFormat::appendTimestamp(bytes, -1700000000, 250000);
    LogFormat::appendEventId(bytes, -5);
    RecordBytes::Fields fields;
    fields.logNr = 0x0102030405060708;
    fields.eventId = -5;
    QCOMPARE(bytes.toHex(), RecordBytes::record(fields).left(28).toHex());

    ByteSource in({bytes.constData(), size_t(bytes.size())});
    const LogFormat::RecordHead head = LogFormat::readHead(in, 0);
    QCOMPARE(head.logNr, fields.logNr);
    QCOMPARE(head.seconds, quint64(1700000000));
    QCOMPARE(head.microseconds, quint32(250000));
    QCOMPARE(head.eventId, -5);
    QCOMPARE(in.position(), qint64(28));
}

void LogFormatTest::headBeforeTheStartIsReadFromWhereTheSourceStands()
{
    QByteArray bytes;
    for (char byte = 1; byte <= 40; ++byte) {
        bytes.append(byte);
    }
    ByteSource in({bytes.constData(), size_t(bytes.size())});
    in.seek(30);
    // The number would begin at -20 and the time at -12: both leave the source alone, and the
    // time finds but the last two bytes. The event id begins at 4.
    const LogFormat::RecordHead head = LogFormat::readHead(in, -20);
    QCOMPARE(head.logNr, quint64(0x262524232221201f));
    QCOMPARE(head.seconds, quint64(0x2827));
    QCOMPARE(head.microseconds, quint32(0));
    QCOMPARE(head.eventId, 0x08070605);
    QCOMPARE(in.position(), qint64(8));
}

void LogFormatTest::walk_data()
{
    using RecordBytes::record;
    using Numbers = QList<qulonglong>;
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<Numbers>("whole");     // numbers found by a walk over the whole file
    QTest::addColumn<Numbers>("tail");      // and by one over its tail
    QTest::addColumn<qlonglong>("trailer"); // at which that one ends
    const QByteArray three = record(1) + record(2) + record(3);
    QTest::newRow("records come newest first")
        << three << Numbers{3, 2, 1} << Numbers{3, 2, 1} << qlonglong(-2);
    QTest::newRow("a trailer before the start is a last record")
        << QByteArray("\x01\x00\x00\x00\x00\x00\x00\x00\xff\xff", 10) << Numbers{0} << Numbers{0}
        << qlonglong(8 - 65535 - 2);
    QTest::newRow("zeros are records of two bytes, the first of which only one walk reads")
        << QByteArray(4, '\0') << Numbers{0, 0} << Numbers{0} << qlonglong(0);
    QTest::newRow("of a single byte one walk reads nothing")
        << QByteArray("\x05") << Numbers{0} << Numbers{} << qlonglong(-1);
    QTest::newRow("a record of zeros at the start ends both")
        << QByteArray(8, '\0') + QByteArray("\x08\0", 2) << Numbers{0} << Numbers{0}
        << qlonglong(-2);
}

void LogFormatTest::walk()
{
    using Numbers = QList<qulonglong>;
    QFETCH(QByteArray, content);
    QFETCH(qlonglong, trailer);
    Numbers numbers;
    const auto collect = [&numbers](qint64 /*position*/, quint64 logNr) {
        numbers.append(logNr);
        return true;
    };
    ByteSource whole({content.constData(), size_t(content.size())});
    QVERIFY(!LogFormat::walkBack(whole, whole.size(), LogFormat::Walk::WholeFile, collect));
    QTEST(numbers, "whole");
    numbers.clear();
    ByteSource tail({content.constData(), size_t(content.size())});
    const auto end = LogFormat::walkBack(tail, tail.size(), LogFormat::Walk::Tail, collect);
    QTEST(numbers, "tail");
    QVERIFY(end.has_value());
    QCOMPARE(qlonglong(*end), trailer);
}

void LogFormatTest::walkEndsWithItsVisitor()
{
    const QByteArray content = RecordBytes::record(1) + RecordBytes::record(2);
    const qint64 second = RecordBytes::record(1).size();
    ByteSource in({content.constData(), size_t(content.size())});
    int visits = 0;
    const auto end = LogFormat::walkBack(in, in.size(), LogFormat::Walk::Tail,
                                         [&](qint64 position, quint64 logNr) {
                                             ++visits;
                                             return position != second || logNr != 2;
                                         });
    QVERIFY(!end);
    QCOMPARE(visits, 1);
    QCOMPARE(in.position(), second + 8);
}

QTEST_GUILESS_MAIN(LogFormatTest)
#include "tst_logformat.moc"

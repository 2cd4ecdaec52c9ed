// SPDX-License-Identifier: Apache-2.0

// The bytes: every value encoding, file names, and the way back to a last record.

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

QTEST_GUILESS_MAIN(LogFormatTest)
#include "tst_logformat.moc"

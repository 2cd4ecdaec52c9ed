// SPDX-License-Identifier: Apache-2.0

// Damage on purpose, everywhere: the reader ends, in bounded memory, and records
// that the damage does not reach stay readable.

#include "catalog/systemeventcatalogue.h"
#include "reader/systemeventlogfilereader.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/readfaults.h"
#include "support/recordbytes.h"

#include <QFile>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

#include <limits>

#include <sys/resource.h>
#include <sys/stat.h>

namespace
{

using RecordBytes::number;
using RecordBytes::record;

constexpr quint64 noMinimum = std::numeric_limits<quint64>::max();
constexpr qint64 pageSize = 4096;

ReadFaults faults;

QByteArray recordWithValues(quint64 logNr)
{
    RecordBytes::Fields fields;
    fields.logNr = logNr;
    fields.values = number(1, 1) + number(5, 4) + RecordBytes::sized("text");
    return record(fields);
}

QByteArray threeRecords()
{
    return recordWithValues(1) + recordWithValues(2) + recordWithValues(3);
}

void silence(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
             const QString & /*message*/)
{
}

} // namespace

ReadFaults *readFaults()
{
    return &faults;
}

class DamagedLogsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup() { faults.heal(); }
    void everyBitFlipped();
    void everyLength();
    void otherFilesStayReadable();
    void trailerBeforeTheStartIsIndexed();
    void trailerBeforeTheStartHidesTheNextRecord();
    void everyArgumentIsReadThoughNoneIsShown();
    void linkToAPipeIsSkipped();
    void zeroTrailersEnd();
    void zerosPileNothingUp();
    void randomBytesEnd();
    void appendedDamageEndsTheUpdate();
    void pageThatCannotBeRead_data();
    void pageThatCannotBeRead();
    void fileThatCannotBeRead();
    void zerosAreReadOnce();

private:
    /*!
     * Asks for every number there may be, the smallest and the largest included. A failure
     * names the damage.
     */
    static void readAll(SystemeventLogfileReader &reader, const QString &damage);

    SystemeventCatalogue catalogue;
};

void DamagedLogsTest::initTestCase()
{
    SystemeventDescription event(1001, "e"_s, "warning"_s, "s"_s);
    event.descriptions.insert("en"_s, "%1 %2 %3"_s);
    event.arguments = {SystemeventArgument("a"_s, ArgumentType::Bool),
                       SystemeventArgument("b"_s, ArgumentType::Int32),
                       SystemeventArgument("c"_s, ArgumentType::String)};
    catalogue.events.insert(1001, event);
}

void DamagedLogsTest::readAll(SystemeventLogfileReader &reader, const QString &damage)
{
    const quint64 lowest = reader.getMinLogNr();
    const quint64 highest = reader.getMaxLogNr();
    for (const quint64 logNr : {quint64(0), quint64(1), quint64(2), quint64(3), lowest, highest}) {
        const QString entry = reader.jsonEntry(logNr, "en"_s);
        QVERIFY2(entry.isEmpty() || entry.endsWith(QLatin1Char('}')), qPrintable(damage));
    }
}

void DamagedLogsTest::everyBitFlipped()
{
    const LogFolder logs;
    const QByteArray healthy = threeRecords();
    const QtMessageHandler loud = qInstallMessageHandler(silence);
    for (int bit = 0; bit < healthy.size() * 8; ++bit) {
        QByteArray damaged = healthy;
        damaged[bit / 8] = char(damaged[bit / 8] ^ (1 << bit % 8));
        logs.put(0, damaged);
        const QString flipped = "bit %1 of byte %2"_s.arg(bit % 8).arg(bit / 8);
        SystemeventLogfileReader reader(logs.dir(), &catalogue);
        readAll(reader, flipped);
        // Damage before the last record does not reach it.
        if (bit / 8 < 2 * recordWithValues(1).size() - 2) {
            QVERIFY2(reader.jsonEntry(3, "en"_s).startsWith("{\"eventnr\":3,"_s),
                     qPrintable(flipped));
        }
    }
    qInstallMessageHandler(loud);
}

void DamagedLogsTest::everyLength()
{
    const LogFolder logs;
    const QByteArray healthy = threeRecords();
    const QtMessageHandler loud = qInstallMessageHandler(silence);
    for (int length = 0; length <= healthy.size(); ++length) {
        logs.put(0, healthy.left(length));
        SystemeventLogfileReader reader(logs.dir(), &catalogue);
        readAll(reader, "cut at %1"_s.arg(length));
        if (length % recordWithValues(1).size() == 0) {
            QCOMPARE(reader.getMaxLogNr(), quint64(length / recordWithValues(1).size()));
        }
    }
    qInstallMessageHandler(loud);
}

void DamagedLogsTest::otherFilesStayReadable()
{
    const LogFolder logs;
    logs.put(2, threeRecords());
    logs.put(1, QByteArray(5000, '\xFF'));
    logs.put(0, recordWithValues(100));
    SystemeventLogfileReader reader(logs.dir(), &catalogue);
    for (const quint64 logNr : {1, 2, 3, 100}) {
        QCOMPARE(reader.jsonEntry(logNr, "en"_s),
                 R"({"eventnr":%1,"secs":"1700000000.250000","eventtype":1001,)"_s.arg(logNr)
                     + R"("loglevel":"warning","path":"/power/supply","msg":"1 5 text"})"_s);
    }
}

void DamagedLogsTest::trailerBeforeTheStartIsIndexed()
{
    const LogFolder logs;
    logs.put(0, record(7).chopped(2) + number(1000, 2));
    SystemeventLogfileReader reader(logs.dir(), &catalogue);
    // Nothing can be read before the start: the number counts as zero.
    QCOMPARE(reader.getMinLogNr(), quint64(0));
    QCOMPARE(reader.getMaxLogNr(), quint64(0));
    QVERIFY(reader.jsonEntry(0, "en"_s).startsWith("{\"eventnr\":"_s));
}

void DamagedLogsTest::trailerBeforeTheStartHidesTheNextRecord()
{
    const LogFolder logs;
    logs.put(0, record(1).chopped(2) + number(1000, 2) + record(2) + record(3));
    SystemeventLogfileReader reader(logs.dir(), &catalogue);
    // The walk stays where it is and finds the number of the record behind once more.
    QCOMPARE(reader.getMinLogNr(), quint64(2));
    QCOMPARE(reader.getMaxLogNr(), quint64(3));
    QVERIFY(reader.jsonEntry(3, "en"_s).startsWith("{\"eventnr\":3,"_s));
    QVERIFY(!reader.jsonEntry(2, "en"_s).isEmpty());
}

void DamagedLogsTest::everyArgumentIsReadThoughNoneIsShown()
{
    // A record before the start of its file is read from wherever the last reading
    // ended, so that even arguments without a placeholder have to be read.
    SystemeventDescription event(1003, "e"_s, "warning"_s, "s"_s);
    const SystemeventArgument text("a"_s, ArgumentType::String);
    event.arguments = {text, text, text};
    catalogue.events.insert(1003, event);
    const LogFolder logs;
    logs.put(1,
             QByteArray::fromHex("000000000000eb03000000000800414141414141414108004242424242424242"
                                 "080043434343434343433c00"));
    SystemeventLogfileReader reader(logs.dir(), &catalogue);
    QCOMPARE(reader.getMinLogNr(), quint64(0));
    for (int i = 0; i < 2; ++i) {
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("QString::arg"_s));
    }
    QVERIFY(reader.jsonEntry(0, "en"_s).startsWith("{\"eventnr\":0,\"secs\":\"0.0\","_s));
    QVERIFY(reader.jsonEntry(0, "en"_s).startsWith("{\"eventnr\":60,\"secs\":\"0.0\","_s));
}

void DamagedLogsTest::linkToAPipeIsSkipped()
{
    const LogFolder logs;
    QCOMPARE(mkfifo(qPrintable(logs.path("pipe"_s)), S_IRUSR | S_IWUSR), 0);
    QVERIFY(QFile::link(logs.path("pipe"_s), logs.path("zib5.log"_s)));
    logs.put(0, threeRecords());
    SystemeventLogfileReader reader(logs.dir(), &catalogue);
    QCOMPARE(reader.getMaxLogNr(), quint64(3));
}

//! One record number for every two bytes, were they all kept: 24 bytes each.
void DamagedLogsTest::zerosPileNothingUp()
{
    const auto peak = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss; // KiB
    };
    constexpr int size = 2 * 1024 * 1024;
    const LogFolder folder;
    folder.put(1, QByteArray(size, '\0'));
    SystemeventLogfileReader reader(folder.dir(), &catalogue);
    const auto before = peak();
    QCOMPARE(reader.getMaxLogNr(), quint64(0));
    QVERIFY(peak() - before < 8192L);
}

void DamagedLogsTest::zeroTrailersEnd()
{
    const LogFolder logs;
    logs.put(0, QByteArray(102400, '\0'));
    SystemeventLogfileReader reader(logs.dir(), &catalogue);
    QCOMPARE(reader.getMinLogNr(), quint64(0));
    QCOMPARE(reader.getMaxLogNr(), quint64(0));
}

void DamagedLogsTest::randomBytesEnd()
{
    constexpr quint32 seed = 20240501;
    qInfo("seed %u", seed);
    QRandomGenerator random(seed);
    const LogFolder logs;
    const QtMessageHandler loud = qInstallMessageHandler(silence);
    for (int round = 0; round < 200; ++round) {
        QByteArray bytes(int(random.bounded(1, 3000)), '\0');
        for (char &byte : bytes) {
            byte = char(random.bounded(round % 2 == 0 ? 256 : 4));
        }
        logs.put(0, bytes);
        SystemeventLogfileReader reader(logs.dir(), &catalogue);
        readAll(reader, "round %1"_s.arg(round));
        QVERIFY(reader.getMinLogNr() != noMinimum);
        logs.append(0, threeRecords());
        reader.logfileChanged();
        readAll(reader, "round %1, and records behind it"_s.arg(round));
    }
    qInstallMessageHandler(loud);
}

void DamagedLogsTest::appendedDamageEndsTheUpdate()
{
    const LogFolder logs;
    logs.put(0, threeRecords());
    SystemeventLogfileReader reader(logs.dir(), &catalogue);
    QCOMPARE(reader.getMaxLogNr(), quint64(3));
    logs.append(0, QByteArray(3001, '\0'));
    reader.logfileChanged();
    QCOMPARE(reader.getMaxLogNr(), quint64(3));
    QVERIFY(reader.jsonEntry(2, "en"_s).startsWith("{\"eventnr\":2,"_s));
}

void DamagedLogsTest::pageThatCannotBeRead_data()
{
    QTest::addColumn<int>("page");
    QTest::addColumn<int>("readable");
    QTest::newRow("the first one: all records but those in it") << 0 << 952;
    QTest::newRow("the fifth one: all records behind it") << 4 << 761;
}

//! A page that cannot be read costs what it touches, and those before it in its file.
void DamagedLogsTest::pageThatCannotBeRead()
{
    QFETCH(int, page);
    QFETCH(int, readable);
    constexpr int count = 1000;
    const LogFolder logs;
    QByteArray log;
    for (int logNr = 1; logNr <= count; ++logNr) {
        RecordBytes::Fields fields;
        fields.logNr = quint64(logNr);
        fields.values = number(1, 1) + number(5, 4) + RecordBytes::sized(QByteArray(33, 'x'));
        log += record(fields);
    }
    QCOMPARE(log.size(), count * 86);
    logs.put(0, log);
    logs.put(1, recordWithValues(5000));
    const QByteArray path = QFile::encodeName(logs.path(LogFolder::name(0)));
    faults.spoil(path.constData(), page * pageSize, (page + 1) * pageSize);
    SystemeventLogfileReader reader(logs.dir(), &catalogue);
    const QString expected
        = R"({"eventnr":%1,"secs":"1700000000.250000","eventtype":1001,"loglevel":"warning",)"_s
        + R"("path":"/power/supply","msg":"1 5 )"_s + QString(33, QLatin1Char('x')) + "\"}"_s;
    int found = 0;
    for (int logNr = 1; logNr <= count; ++logNr) {
        found += reader.jsonEntry(quint64(logNr), "en"_s) == expected.arg(logNr) ? 1 : 0;
    }
    QCOMPARE(found, readable);
    QVERIFY(reader.jsonEntry(5000, "en"_s).endsWith("\"msg\":\"1 5 text\"}"_s));
}

//! A disk that fails takes its time for every attempt: there is one for every sector.
void DamagedLogsTest::fileThatCannotBeRead()
{
    constexpr int size = 102400;
    const LogFolder logs;
    logs.put(0, QByteArray(size, 'x'));
    faults.spoil(QFile::encodeName(logs.path(LogFolder::name(0))).constData(), 0, size);
    SystemeventLogfileReader reader(logs.dir(), &catalogue);
    const quint64 before = faults.failures;
    QCOMPARE(reader.getMaxLogNr(), quint64(0));
    const quint64 attempts = faults.failures - before;
    QVERIFY2(attempts > 0 && attempts <= size / 512, qPrintable(QString::number(attempts)));
    qInfo("%llu attempts at reading %d bytes", attempts, size);
}

//! The values of one event can make megabytes of them.
void DamagedLogsTest::zerosAreReadOnce()
{
    constexpr int size = 1048576;
    const LogFolder logs;
    logs.put(0, QByteArray(size, '\0'));
    SystemeventLogfileReader reader(logs.dir(), &catalogue);
    const quint64 before = faults.reads;
    QCOMPARE(reader.getMaxLogNr(), quint64(0));
    const quint64 reads = faults.reads - before;
    QVERIFY2(reads > 0 && reads <= 2 * size / 65536, qPrintable(QString::number(reads)));
}

QTEST_GUILESS_MAIN(DamagedLogsTest)
#include "tst_damagedlogs.moc"

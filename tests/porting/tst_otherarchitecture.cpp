// SPDX-License-Identifier: Apache-2.0

// Logs do not depend on the machine: daemons built for several of them write the same
// bytes for the same events, and make the same JSON of any log. SEL_OTHER_DAEMONS names
// what is compared with the daemon of this build: one or more daemons, with colons between.

#include "support/device.h"
#include "support/goldenrecords.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QDBusVariant>
#include <QTest>

#include <cstdio>
#include <limits>

namespace
{

constexpr int files = 20;  // more than the events fill
constexpr int rounds = 50; // of some 6 KB each
constexpr int goldenId = 2000;
constexpr int skipCode = 77;

const char *const typeNames[] = {"byte",  "bool",   "int16",  "int32",     "int64",   "uint64",
                                 "float", "double", "string", "bytearray", "variant", "enum"};

//! One event kind for each type that a catalogue can declare, and the usual ones.
QByteArray catalogue()
{
    QByteArray events;
    for (int type = 0; type < int(std::size(typeNames)); ++type) {
        events += "<event id=\"" + QByteArray::number(goldenId + type)
            + "\" name=\"golden\" loglevel=\"info\"><argument name=\"value\" type=\""
            + typeNames[type] + "\"/><description lang=\"en\">Value %1</description></event>\n";
    }
    return Device::catalogue().replace("</service>", events + "</service>");
}

QVariant variant(const QVariant &value)
{
    return QVariant::fromValue(QDBusVariant(value));
}

//! What a status service can send; the daemon cannot store all of it.
QVariantList sentValues(int round)
{
    return {true,
            round,
            -round,
            4294967295U,
            qint64(4294967297),
            std::numeric_limits<qint64>::min(),
            quint64(5),
            0.1 * round,
            -std::numeric_limits<double>::infinity(),
            std::numeric_limits<double>::denorm_min(),
            "Tür %1"_s,
            QString(),
            QVariant::fromValue<uchar>(200),
            QVariant::fromValue<short>(-5),
            QByteArray("\x80\xff"),
            variant(round),
            variant("x"_s),
            variant(variant(5)),
            variant(2.5)};
}

//! The files of the log from the oldest to the current one.
QByteArrayList storedFiles()
{
    QByteArrayList stored;
    for (int index = files; index >= 0; --index) {
        stored.append(Device::logFile(index));
    }
    return stored;
}

void putBack(const QByteArrayList &stored)
{
    for (int index = files; index >= 0; --index) {
        const QByteArray &content = stored.at(files - index);
        if (!content.isEmpty()) {
            Device::writeLogFile(index, content);
        }
    }
}

//! All records in one, with noughts for seconds and microseconds.
QByteArray withoutTimes(const QByteArrayList &stored)
{
    QByteArray bytes = stored.join();
    const QList<RecordBytes::Stored> records = RecordBytes::storedIn(bytes);
    for (const RecordBytes::Stored &record : records) {
        bytes.replace(record.begin + 8, 12, QByteArray(12, '\0'));
    }
    return records.isEmpty() ? QByteArray() : bytes;
}

//! A log with every golden record, at times that no 32-bit clock knows, and some damage.
QByteArray unusualLog()
{
    const qint64 times[] = {0,
                            (Q_INT64_C(1) << 31) - 1,
                            Q_INT64_C(1) << 31,
                            Q_INT64_C(1) << 32,
                            253402300800,
                            std::numeric_limits<qint64>::max()};
    QByteArray log;
    RecordBytes::Fields fields;
    const QList<GoldenRecord> records = goldenRecords();
    for (const GoldenRecord &golden : records) {
        fields.seconds = times[fields.logNr % std::size(times)];
        fields.eventId = goldenId + qMax(0, golden.declaredType);
        fields.values = golden.bytes;
        log += RecordBytes::record(fields);
        ++fields.logNr;
    }
    // One that ends in the middle of its value, and one of an unknown event.
    fields.eventId = goldenId + ArgumentType::Double;
    fields.values = "\x01\x02";
    log += RecordBytes::record(fields);
    ++fields.logNr;
    fields.eventId = -2;
    fields.values = QByteArray(300, '\xfe');
    log += RecordBytes::record(fields);
    return log;
}

//! As many empty files as a log has at most.
QByteArrayList noFiles()
{
    QByteArrayList none;
    for (int index = 0; index <= files; ++index) {
        none.append(QByteArray());
    }
    return none;
}

} // namespace

class OtherArchitectureTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void sameEventsMakeTheSameBytes();
    void everyLogReadsTheSame_data();
    void everyLogReadsTheSame();
    void unusualLogReadsTheSame();

private:
    //! Makes a fresh device and starts one of the daemons on a log.
    [[nodiscard]] bool startOn(const QString &program, const QByteArrayList &stored);
    //! The log in both languages, and its range.
    [[nodiscard]] QString reading();

    TestBus bus;
    std::unique_ptr<Device> device;
    QStringList programs;
    QList<QByteArrayList> logs; //!< of the same events, one of each program
};

void OtherArchitectureTest::initTestCase()
{
    const QString own = QString::fromLocal8Bit(qgetenv("SEL_DAEMON"));
    const QString others = QString::fromLocal8Bit(qgetenv("SEL_OTHER_DAEMONS"));
    programs = QStringList{own} + others.split(QLatin1Char(':'));
}

void OtherArchitectureTest::init()
{
    device = std::make_unique<Device>();
}

void OtherArchitectureTest::cleanup()
{
    device.reset();
}

bool OtherArchitectureTest::startOn(const QString &program, const QByteArrayList &stored)
{
    device.reset();
    device = std::make_unique<Device>();
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    device->config.values.insert("SystemeventLogtail"_s, QString::number(files));
    Device::writeCatalogue(catalogue());
    putBack(stored);
    qputenv("SEL_DAEMON", program.toLocal8Bit());
    return device->start();
}

QString OtherArchitectureTest::reading()
{
    return device->json("en"_s) + device->json("de"_s) + device->result("getMinLogNr"_s).toString()
        + " to "_s + device->result("getMaxLogNr"_s).toString();
}

void OtherArchitectureTest::sameEventsMakeTheSameBytes()
{
    for (const QString &program : qAsConst(programs)) {
        QVERIFY2(startOn(program, noFiles()), qPrintable(program));
        for (int round = 0; round < rounds; ++round) {
            const QVariantList values = sentValues(round);
            for (int i = 0; i < int(values.size()); ++i) {
                device->change("/power/supply"_s, 1001 + i % 5, {values.at(i), i});
            }
            device->change("/a/b"_s, -round, values);
            // Longer than a bundle: everything is on disk behind it.
            device->change("/x"_s, 1002, {"ä"_s.repeated(2600)});
            device->settle();
        }
        logs.append(storedFiles());
    }
    const QByteArray bytes = withoutTimes(logs.constFirst());
    QVERIFY(bytes.size() > 200000);
    for (const QByteArrayList &log : qAsConst(logs)) {
        QVERIFY(!log.at(files - 1).isEmpty()); // was rotated
        QVERIFY(withoutTimes(log) == bytes);
    }
}

void OtherArchitectureTest::everyLogReadsTheSame_data()
{
    QTest::addColumn<int>("writer");
    for (int writer = 0; writer < int(programs.size()); ++writer) {
        QTest::newRow(qPrintable("written by "_s + programs.at(writer))) << writer;
    }
}

void OtherArchitectureTest::everyLogReadsTheSame()
{
    QFETCH(int, writer);
    QCOMPARE(logs.size(), programs.size());
    QString first;
    for (const QString &program : qAsConst(programs)) {
        QVERIFY2(startOn(program, logs.at(writer)), qPrintable(program));
        const QString read = reading();
        const int expected = rounds * int(sentValues(0).size() + 2);
        QVERIFY2(read.endsWith("1 to %1"_s.arg(expected)), qPrintable(read.right(30)));
        first = first.isEmpty() ? read : first;
        QVERIFY2(read == first, qPrintable(program));
    }
}

void OtherArchitectureTest::unusualLogReadsTheSame()
{
    QByteArrayList stored = noFiles();
    stored.last() = unusualLog();
    QString first;
    for (const QString &program : qAsConst(programs)) {
        QVERIFY2(startOn(program, stored), qPrintable(program));
        const QString read = reading();
        QVERIFY(read.contains("\"4294967296.250000\""_s));
        QVERIFY(read.contains("\"9223372036854775807.250000\""_s));
        first = first.isEmpty() ? read : first;
        QCOMPARE(read, first);
    }
}

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("SEL_OTHER_DAEMONS")) {
        std::puts("SEL_OTHER_DAEMONS names no daemon to compare with");
        return skipCode;
    }
    const QCoreApplication application(argc, argv);
    OtherArchitectureTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_otherarchitecture.moc"

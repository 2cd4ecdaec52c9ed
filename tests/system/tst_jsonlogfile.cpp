// SPDX-License-Identifier: Apache-2.0

// The JSON of a range: clipping, framing, gaps, and answers that no bus can carry.

#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QElapsedTimer>
#include <QTest>

#include <limits>

namespace
{

using RecordBytes::number;
using RecordBytes::record;

constexpr quint64 highest = std::numeric_limits<quint64>::max();
constexpr qint64 answerLimit = 33488896; // 32 MiB less 64 KiB
constexpr int soon = 5000; // milliseconds, for what must not depend on the width of a gap

QString entry(quint64 logNr)
{
    return R"({"eventnr":%1,"secs":"1700000000.250000","eventtype":1003,)"_s.arg(logNr)
        + R"("loglevel":"error","path":"/power/supply","msg":"Failure"})"_s;
}

QByteArray failure(quint64 logNr)
{
    RecordBytes::Fields fields;
    fields.logNr = logNr;
    fields.eventId = 1003;
    return record(fields);
}

} // namespace

class JsonLogfileTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void range_data();
    void range();
    void language_data();
    void language();
    void gapsAreEmptyElements();
    void rangeEndingAtTheHighestNumberTerminates();
    void astronomicalGapIsRefusedAtOnce();
    void largestAnswerIsExact();
    void oneByteMoreIsRefused();
    void manyRecordsAreRefused();

private:
    [[nodiscard]] QString json(quint64 start, quint64 end)
    {
        return device->result("jsonLogfile"_s, {start, end}).toString();
    }

    TestBus bus;
    std::unique_ptr<Device> device;
};

void JsonLogfileTest::init()
{
    device = std::make_unique<Device>();
}

void JsonLogfileTest::cleanup()
{
    device.reset();
}

void JsonLogfileTest::range_data()
{
    QTest::addColumn<quint64>("start");
    QTest::addColumn<quint64>("end");
    QTest::addColumn<QString>("answer");
    const QString all = "["_s + entry(5) + ",\n"_s + entry(6) + ",\n"_s + entry(7) + "]"_s;
    QTest::newRow("everything") << quint64(0) << highest << all;
    QTest::newRow("exactly everything") << quint64(5) << quint64(7) << all;
    QTest::newRow("a part") << quint64(6) << quint64(7)
                            << "["_s + entry(6) + ",\n"_s + entry(7) + "]"_s;
    QTest::newRow("one number has no separator")
        << quint64(6) << quint64(6) << "["_s + entry(6) + "]"_s;
    QTest::newRow("start after end") << quint64(7) << quint64(6) << "[]"_s;
    QTest::newRow("below the logged numbers") << quint64(0) << quint64(4) << "[]"_s;
    QTest::newRow("above the logged numbers") << quint64(8) << highest << "[]"_s;
    QTest::newRow("clipped below") << quint64(0) << quint64(5) << "["_s + entry(5) + "]"_s;
    QTest::newRow("clipped above") << quint64(7) << quint64(100) << "["_s + entry(7) + "]"_s;
    QTest::newRow("comparison is unsigned") << (quint64(1) << 63) << highest << "[]"_s;
}

void JsonLogfileTest::range()
{
    QFETCH(quint64, start);
    QFETCH(quint64, end);
    QFETCH(QString, answer);
    Device::writeLogFile(0, failure(7));
    Device::writeLogFile(1, failure(5) + failure(6));
    QVERIFY(device->start());
    QCOMPARE(json(start, end), answer);
}

void JsonLogfileTest::language_data()
{
    QTest::addColumn<QVariantList>("language");
    QTest::addColumn<QString>("message");
    QTest::newRow("German") << QVariantList{"de"_s} << "Versorgung Netz 1 bei 12 Prozent"_s;
    QTest::newRow("English") << QVariantList{"en"_s} << "Supply mains 1 at 12 percent"_s;
    QTest::newRow("without a language it is English")
        << QVariantList{} << "Supply mains 1 at 12 percent"_s;
    QTest::newRow("a language that is missing falls back to English")
        << QVariantList{"fr"_s} << "Supply mains 1 at 12 percent"_s;
    QTest::newRow("codes are exact") << QVariantList{"DE"_s} << "Supply mains 1 at 12 percent"_s;
}

void JsonLogfileTest::language()
{
    QFETCH(QVariantList, language);
    QFETCH(QString, message);
    RecordBytes::Fields fields;
    fields.values = number(1, 1) + number(12, 4);
    Device::writeLogFile(0, record(fields));
    QVERIFY(device->start());
    const QString answer
        = device->result("jsonLogfile"_s, QVariantList{quint64(1), quint64(1)} + language)
              .toString();
    QVERIFY2(answer.endsWith("\"msg\":\"%1\"}]"_s.arg(message)), qPrintable(answer));
}

void JsonLogfileTest::gapsAreEmptyElements()
{
    Device::writeLogFile(0, failure(1) + failure(4));
    QVERIFY(device->start());
    QCOMPARE(json(1, 4), "["_s + entry(1) + ",\n,\n,\n"_s + entry(4) + "]"_s);
    QCOMPARE(json(1, 3), "["_s + entry(1) + ",\n,\n]"_s);
    QCOMPARE(json(2, 3), "[,\n]"_s);
    QCOMPARE(json(2, 2), "[]"_s);
}

void JsonLogfileTest::rangeEndingAtTheHighestNumberTerminates()
{
    Device::writeLogFile(0, failure(highest - 1) + failure(highest));
    QVERIFY(device->start());
    QCOMPARE(json(0, highest), "["_s + entry(highest - 1) + ",\n"_s + entry(highest) + "]"_s);
    QCOMPARE(json(highest, highest), "["_s + entry(highest) + "]"_s);
    QCOMPARE(device->property("maxLogNr"_s).toInt(), -1);
}

void JsonLogfileTest::astronomicalGapIsRefusedAtOnce()
{
    Device::writeLogFile(0, failure(1) + failure(highest));
    QVERIFY(device->start());
    QElapsedTimer timer;
    timer.start();
    const QDBusMessage reply = device->call("jsonLogfile"_s, {quint64(0), highest});
    QVERIFY(timer.elapsed() < soon);
    QCOMPARE(reply.errorName(), "org.freedesktop.DBus.Error.LimitsExceeded"_s);
    QVERIFY2(reply.errorMessage().contains("1 to 18446744073709551615"_s),
             qPrintable(reply.errorMessage()));
    QCOMPARE(device->outputLines("jsonLogfile"_s).size(), 1);
    // The other calls, and smaller ranges, go on.
    QCOMPARE(json(0, 1), "["_s + entry(1) + "]"_s);
    QCOMPARE(json(highest, highest), "["_s + entry(highest) + "]"_s);
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), highest);
}

void JsonLogfileTest::largestAnswerIsExact()
{
    // Two records and a gap between them: brackets, entries, two bytes a separator.
    const qint64 last = 1 + (answerLimit - 1 - 2 - 2 * entry(10000000).size() + 7) / 2;
    const qint64 size = 2 + entry(1).size() + entry(quint64(last)).size() + 2 * (last - 1);
    QVERIFY(size == answerLimit - 1 || size == answerLimit - 2);
    Device::writeLogFile(0, failure(1) + failure(quint64(last)));
    QVERIFY(device->start());
    QString expected = "["_s + entry(1);
    expected += ",\n"_s.repeated(int(last - 1));
    expected += entry(quint64(last)) + "]"_s;
    const QString answer = json(0, highest);
    QCOMPARE(answer.size(), expected.size());
    QVERIFY(answer == expected);
}

void JsonLogfileTest::oneByteMoreIsRefused()
{
    // The size of an answer is steered to the byte by the length of one message.
    const qint64 last = 1 + (answerLimit - 1000) / 2;
    const qint64 sizeWithout
        = 2 + entry(1).size() + entry(quint64(last)).size() + 2 * (last - 1) - 7;
    const auto store = [&](qint64 messageSize) {
        RecordBytes::Fields fields;
        fields.logNr = quint64(last);
        fields.eventId = 1003;
        // "path" takes up the rest: it is written as it stands.
        fields.path += QByteArray(int(messageSize), 'x');
        Device::writeLogFile(0, failure(1) + record(fields));
    };
    const qint64 fill = answerLimit - 1 - (sizeWithout + 7);
    store(fill);
    QVERIFY(device->start());
    QCOMPARE(qint64(json(0, highest).toUtf8().size()), answerLimit - 1);
    device->stop();
    store(fill + 1);
    QVERIFY(device->start());
    QCOMPARE(device->call("jsonLogfile"_s, {quint64(0), highest}).errorName(),
             "org.freedesktop.DBus.Error.LimitsExceeded"_s);
}

void JsonLogfileTest::manyRecordsAreRefused()
{
    // Control characters in a long message take six bytes each in JSON.
    RecordBytes::Fields fields;
    fields.eventId = 1002;
    fields.values = RecordBytes::sized(QByteArray(60000, '\x01'));
    QByteArray file;
    for (int i = 1; i <= 100; ++i) {
        fields.logNr = quint64(i);
        file += record(fields);
    }
    Device::writeLogFile(0, file);
    Device::writeLogFile(1, file);
    QVERIFY(device->start());
    QCOMPARE(device->call("jsonLogfile"_s, {quint64(1), quint64(100)}).errorName(),
             "org.freedesktop.DBus.Error.LimitsExceeded"_s);
    QCOMPARE(json(1, 90).count("\\u0001"_s), 90 * 60000);
}

QTEST_GUILESS_MAIN(JsonLogfileTest)
#include "tst_jsonlogfile.moc"

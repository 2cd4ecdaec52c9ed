// SPDX-License-Identifier: Apache-2.0

// Values that make placeholders for the values after them: cheap to send, and dear to
// render at every query. A log full of them is answered in good time, other clients wait
// no longer, and what stands between them is shown as ever.

#include "reliability/processfigures.h"
#include "reliability/wirebus.h"
#include "support/device.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QElapsedTimer>
#include <QTest>

#include <algorithm>
#include <memory>
#include <optional>

namespace
{

using RecordBytes::sized;

constexpr int fileCount = 11;
constexpr int fullSize = 102400;
constexpr int patience = 200000; // milliseconds; against a hang
// Milliseconds. Without a bound one such log takes minutes; what it does take is printed.
#ifdef __SANITIZE_ADDRESS__
constexpr int goodTime = 60000;
#else
constexpr int goodTime = 20000;
#endif

constexpr int costlyId = 2001;
constexpr int plainId = 2002;

QByteArray catalogue(int arguments)
{
    return R"(<events><enum name="LogLevel"><item value="6" name="info"/></enum>
        <event id="2001" loglevel="info"><description lang="en">%1</description>)"
        + QByteArray(R"(<argument type="string" name="value"/>)").repeated(arguments)
        + R"(</event><event id="2002" loglevel="info">
        <argument type="string" name="used"/><argument type="string" name="disk"/>
        <argument type="string" name="by"/>
        <description lang="en">Used %1 of %2 by %3</description>
        </event></events>)";
}

//! A full log of costly records with plain ones between them.
class CostlyLog
{
public:
    explicit CostlyLog(const QByteArrayList &values)
    {
        for (const QByteArray &value : values) {
            costly += sized(value);
        }
        for (int index = fileCount - 1; index >= 0; --index) {
            QByteArray file;
            // The current one has room left, or the start would rotate it.
            while (file.size() < (index == 0 ? fullSize / 4 : fullSize)) {
                file += record();
            }
            Device::writeLogFile(index, file);
        }
    }

    [[nodiscard]] int records() const { return int(logNr); }
    //! The objects of the plain records.
    [[nodiscard]] const QByteArrayList &plainObjects() const { return objects; }

private:
    QByteArray record()
    {
        constexpr int plainEvery = 10;
        RecordBytes::Fields fields;
        fields.logNr = ++logNr;
        fields.path = "/";
        fields.eventId = logNr % plainEvery == 0 ? plainId : costlyId;
        fields.values = costly;
        if (fields.eventId == plainId) {
            const QByteArray used = QByteArray::number(logNr % 100) + '%';
            const QByteArray disk(int(logNr % 300), 'd');
            fields.values = sized(used) + sized("%9" + disk) + sized("100%%");
            objects += "{\"eventnr\":" + QByteArray::number(logNr)
                + R"(,"secs":"1700000000.250000","eventtype":2002,"loglevel":"info",)"
                + R"("path":"/","msg":"Used )" + used + " of %9" + disk + R"( by 100%%"})";
        }
        return RecordBytes::record(fields);
    }

    QByteArray costly;
    quint64 logNr = 0;
    QByteArrayList objects;
};

} // namespace

class CostlyTextsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fullLog_data();
    void fullLog();

private:
    TestBus bus;
};

void CostlyTextsTest::fullLog_data()
{
    QTest::addColumn<QByteArrayList>("values");
    const auto marks = [](int count) { return QByteArray("%1").repeated(count); };
    const auto row = [](const char *name, int count, const QByteArray &value) {
        QByteArrayList values;
        for (int i = 0; i < count; ++i) {
            values.append(value);
        }
        values.append(QByteArray()); // what has grown shrinks to nothing
        QTest::newRow(name) << values;
    };
    row("three values that multiply by eighty", 3, marks(80));
    row("eighteen values that double", 18, marks(2));
    // Each takes most of what a text may do before the budget of the answer is drawn on.
    row("values that stay within their own", 8, marks(2));
    row("a value of sixty thousand bytes", 1, marks(30000));
}

void CostlyTextsTest::fullLog()
{
    QFETCH(QByteArrayList, values);
    Device device;
    Device::writeCatalogue(catalogue(int(values.size())));
    const CostlyLog log(values);
    QVERIFY(device.start());
    WireBus asking(bus.address());
    WireBus other(bus.address());

    QElapsedTimer timer;
    timer.start();
    const qint64 usedBefore = processorTimeOf(device.processId());
    const quint32 whole = asking.nextSerial();
    QVERIFY(asking.sendBytes(questionForAll().toBytes(whole)));
    std::optional<WireAnswer> answer;
    qint64 longestWait = 0;
    while (!answer) {
        QElapsedTimer wait;
        wait.start();
        const quint32 small = other.nextSerial();
        QVERIFY(other.sendBytes(questionForMinimum().toBytes(small)));
        QVERIFY(other.waitFor(small, patience));
        longestWait = std::max(longestWait, wait.elapsed());
        answer = asking.waitFor(whole, 1);
    }
    const qint64 used = processorTimeOf(device.processId()) - usedBefore;

    qInfo("%d records: %lld ms for the whole log, %lld of them on the processor; another client "
          "waited %lld ms",
          log.records(), timer.elapsed(), used, longestWait);
    QCOMPARE(answer->type, int(WireMessage::Reply));
    const QByteArrayList objects = answer->text().mid(1).chopped(1).split('\n');
    QCOMPARE(int(objects.size()), log.records());
    QByteArrayList plain;
    for (const QByteArray &object : objects) {
        if (object.contains("\"eventtype\":2002")) {
            plain += object.endsWith(',') ? object.chopped(1) : object;
        }
    }
    QCOMPARE(plain, log.plainObjects());
    QVERIFY(usedBefore >= 0 && used < goodTime); // a busy machine takes longer
    QVERIFY(device.isRunning());
}

QTEST_GUILESS_MAIN(CostlyTextsTest)
#include "tst_costlytexts.moc"

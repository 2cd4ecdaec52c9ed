// SPDX-License-Identifier: Apache-2.0

// Time stamps outside the range of 32 bits, also where long and time_t are that small.

#include "binlog/binaryloginterface.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <limits>

namespace
{

//! Says the time that a test gives it.
class FixedClockLog : public BinaryLogInterface
{
public:
    FixedClockLog(const QDir &directory, qint64 second, qint32 microsecond)
        : BinaryLogInterface(2560, 30, 10, 102400, directory)
        , seconds(second)
        , microseconds(microsecond)
    {
    }

protected:
    void writeTimestamp() override { appendTimestamp(seconds, microseconds); }

private:
    qint64 seconds;
    qint32 microseconds;
};

} // namespace

class TimestampsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bytes_data();
    void bytes();
};

void TimestampsTest::bytes_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<int>("microseconds");
    QTest::addColumn<QByteArray>("hex"); // seconds, microseconds, padding
    const auto row = [](const char *name, qint64 seconds, int microseconds, const char *hex) {
        QTest::newRow(name) << seconds << microseconds << QByteArray(hex);
    };
    row("the beginning of 1970 is all zero", 0, 0, "0000000000000000 00000000 00000000");
    row("a second before 1970 counts as one after", -1, 999999,
        "0100000000000000 3f420f00 00000000");
    row("the last second of 31 bits", 2147483647, 0, "ffffff7f00000000 00000000 00000000");
    row("2 to the 31st stays positive", 2147483648, 1, "0000008000000000 01000000 00000000");
    row("minus 2 to the 31st loses its sign alone", -2147483648LL, 0,
        "0000008000000000 00000000 00000000");
    row("the last second of 32 bits", 4294967295, 0, "ffffffff00000000 00000000 00000000");
    row("2 to the 32nd has a fifth byte", 4294967296, 0, "0000000001000000 00000000 00000000");
    row("minus 2 to the 32nd too", -4294967296LL, 0, "0000000001000000 00000000 00000000");
    row("the last second of the year 9999", 253402300799, 0, "7f41f4ff3a000000 00000000 00000000");
    row("the highest second", std::numeric_limits<qint64>::max(), 0,
        "ffffffffffffff7f 00000000 00000000");
    row("the lowest second that has an absolute value", -std::numeric_limits<qint64>::max(), 0,
        "ffffffffffffff7f 00000000 00000000");
}

void TimestampsTest::bytes()
{
    QFETCH(qint64, seconds);
    QFETCH(int, microseconds);
    QFETCH(QByteArray, hex);
    const QTemporaryDir folder;
    FixedClockLog log(QDir(folder.path()), seconds, microseconds);
    log.logEvent(1001, {QStringLiteral("/")});
    log.writeBundle();
    QFile file(folder.filePath(QStringLiteral("zib0.log")));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll().mid(8, 16).toHex(), hex.replace(' ', ""));
}

QTEST_GUILESS_MAIN(TimestampsTest)
#include "tst_timestamps.moc"

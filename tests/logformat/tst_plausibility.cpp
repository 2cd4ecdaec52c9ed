// SPDX-License-Identifier: Apache-2.0

// Which bytes can be a record that the writer made.

#include "logformat/plausibility.h"
#include "support/literals.h"
#include "support/recordbytes.h"

#include <QTest>

using LogFormat::Flaw;
using RecordBytes::Fields;
using RecordBytes::record;

Q_DECLARE_METATYPE(LogFormat::Flaw)

namespace
{

Flaw flawOf(const QByteArray &bytes)
{
    return LogFormat::recordFlaw({bytes.constData(), size_t(bytes.size())});
}

QByteArray replaced(QByteArray bytes, int position, const QByteArray &by)
{
    return bytes.replace(position, by.size(), by);
}

} // namespace

class PlausibilityTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void records_data();
    void records();
    void everyShorterPieceIsNone();
    void paths_data();
    void paths();
};

void PlausibilityTest::records_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<LogFormat::Flaw>("flaw");
    const QByteArray healthy = record(5);
    const auto withPath = [](const QByteArray &path) {
        Fields fields;
        fields.path = path;
        return record(fields);
    };
    const auto at = [](quint64 logNr, qint64 seconds, qint32 microseconds) {
        Fields fields;
        fields.logNr = logNr;
        fields.seconds = seconds;
        fields.microseconds = microseconds;
        return record(fields);
    };
    constexpr quint64 highest = (quint64(1) << 53) - 1;
    constexpr qint64 lastSecond = 253402300799;

    QTest::newRow("a record is one") << healthy << Flaw::None;
    QTest::newRow("values behind the path are not looked at")
        << record({5, 1700000000, 0, -1, "/a", QByteArray("any\0bytes", 9)}) << Flaw::None;
    Fields large;
    large.values = QByteArray(70000, 'x');
    QTest::newRow("a length is counted modulo 65536") << record(large) << Flaw::None;
    QTest::newRow("32 bytes are none") << QByteArray(32, '\n') << Flaw::Size;
    QTest::newRow("the root is a path") << withPath("/") << Flaw::None;
    QTest::newRow("an empty path is none") << withPath("") << Flaw::Path;
    QTest::newRow("another end mark")
        << replaced(healthy, int(healthy.size()) - 3, "x") << Flaw::EndMark;
    QTest::newRow("a trailer that counts more")
        << replaced(healthy, int(healthy.size()) - 2, "\x7f") << Flaw::Trailer;
    QTest::newRow("a byte behind it") << healthy + '\n' << Flaw::EndMark;
    QTest::newRow("number 0") << at(0, 1, 1) << Flaw::LogNr;
    QTest::newRow("the highest number") << at(highest, 1, 1) << Flaw::None;
    QTest::newRow("a number beyond 53 bits") << at(highest + 1, 1, 1) << Flaw::LogNr;
    QTest::newRow("the last second of 9999") << at(1, lastSecond, 999999) << Flaw::None;
    QTest::newRow("the year 10000") << at(1, lastSecond + 1, 0) << Flaw::Time;
    QTest::newRow("a negative second") << at(1, -1, 0) << Flaw::Time;
    QTest::newRow("a million microseconds") << at(1, 1, 1000000) << Flaw::Time;
    QTest::newRow("a negative microsecond") << at(1, 1, -1) << Flaw::Time;
    QTest::newRow("padding that is not zero") << replaced(healthy, 23, "\x01") << Flaw::Padding;
    QTest::newRow("a path that runs over the end mark")
        << replaced(record({1, 1, 1, 1, "/a", {}}), 28, "\x03") << Flaw::PathLength;
    QTest::newRow("a path that is no object path") << withPath("power/supply") << Flaw::Path;
}

void PlausibilityTest::records()
{
    QFETCH(QByteArray, bytes);
    QTEST(flawOf(bytes), "flaw");
}

void PlausibilityTest::everyShorterPieceIsNone()
{
    const QByteArray healthy = record(5);
    for (int length = 0; length < healthy.size(); ++length) {
        QVERIFY2(flawOf(healthy.left(length)) != Flaw::None, qPrintable(QString::number(length)));
        QVERIFY2(flawOf(healthy.right(length)) != Flaw::None, qPrintable(QString::number(length)));
    }
}

void PlausibilityTest::paths_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<bool>("isPath");
    QTest::newRow("the root") << QByteArray("/") << true;
    QTest::newRow("one element") << QByteArray("/a") << true;
    QTest::newRow("all characters") << QByteArray("/azAZ09_/_") << true;
    QTest::newRow("empty") << QByteArray() << false;
    QTest::newRow("no slash in front") << QByteArray("a/b") << false;
    QTest::newRow("a slash at the end") << QByteArray("/a/") << false;
    QTest::newRow("two slashes") << QByteArray("/a//b") << false;
    QTest::newRow("two slashes alone") << QByteArray("//") << false;
    QTest::newRow("a hyphen") << QByteArray("/a-b") << false;
    QTest::newRow("a letter beyond ASCII") << QByteArray("/\xc3\xa4") << false;
    QTest::newRow("a zero byte") << QByteArray("/a\0b", 4) << false;
    QTest::newRow("a colon, next to the digits") << QByteArray("/a:") << false;
}

void PlausibilityTest::paths()
{
    QFETCH(QByteArray, path);
    QTEST(LogFormat::isObjectPath({path.constData(), size_t(path.size())}), "isPath");
}

QTEST_GUILESS_MAIN(PlausibilityTest)
#include "tst_plausibility.moc"

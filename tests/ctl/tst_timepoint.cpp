// SPDX-License-Identifier: Apache-2.0

// What somebody means by a time, at a fixed now in a fixed zone.

#include "ctl/timepoint.h"
#include "ctl/timetext.h"

#include <QTest>

#include <ctime>

namespace
{

// 2026-11-21 19:06:49.000787 UTC, and 20:06:49 in the zone of these tests.
constexpr Instant now{1795288009, 787};

} // namespace

class TimePointTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void instants_data();
    void instants();
    void noTimes_data();
    void noTimes();
    void whatIsPrintedIsTaken_data();
    void whatIsPrintedIsTaken();
    void summerTime();
    void readings_data();
    void readings();
};

void TimePointTest::initTestCase()
{
    QVERIFY(qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3"));
    tzset();
}

void TimePointTest::instants_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<qint64>("microseconds");

    constexpr qint64 midnight = 1795215600; // of that day, in the zone
    const auto row = [](const char *name, const char *text, qint64 seconds, qint64 part = 0) {
        QTest::newRow(name) << QByteArray(text) << seconds * 1000000 + part;
    };
    row("a day is its beginning", "2026-11-21", midnight);
    row("a minute is its beginning", "2026-11-21 20:06", midnight + 72360);
    row("a second has its fraction", "2026-11-21 20:06:49.000787", 1795288009, 787);
    row("a short fraction is one", "2026-11-21 20:06:49.5", 1795288009, 500000);
    row("of a long one six digits count", "2026-11-21 20:06:49.0007879", 1795288009, 787);
    row("a T parts as well as a blank", "2026-11-21T20:06", midnight + 72360);
    row("Z is UTC", "2026-11-21T19:06:49.000787Z", 1795288009, 787);
    row("UTC is UTC", "2026-11-21 19:06:49 UTC", 1795288009);
    row("an offset to the east", "2026-11-21T20:06:49.000787+01:00", 1795288009, 787);
    row("an offset to the west", "2026-11-21 13:36:49-0530", 1795288009);
    row("an offset of whole hours", "2026-11-21 20:06:49+01", 1795288009);
    row("a time of day is today's", "19:06", midnight + 68760);
    row("a time of day with seconds", "19:06:01", midnight + 68761);
    row("today is its midnight", "today", midnight);
    row("yesterday too", "yesterday", midnight - 86400);
    row("tomorrow too", "tomorrow", midnight + 86400);
    row("a time of yesterday", "yesterday 07:30", midnight - 86400 + 27000);
    row("now is now", "now", 1795288009, 787);
    row("an hour is an hour ago", "1h", 1795288009 - 3600, 787);
    row("a minus says the same", "-2d", 1795288009 - 172800, 787);
    row("ago says the same", "2d ago", 1795288009 - 172800, 787);
    row("spans add up", "1h30m", 1795288009 - 5400, 787);
    row("with blanks between them", "1 week 2 days", 1795288009 - 9 * 86400, 787);
    row("a span has a fraction", "1.5h", 1795288009 - 5400, 787);
    row("a plus is ahead", "+10min", 1795288009 + 600, 787);
    row("in is ahead", "in 10 s", 1795288009 + 10, 787);
    row("milliseconds and microseconds", "1ms 87us", 1795288008, 999700);
    row("a span before 1970 ends there", "9999w", 0);
    row("a day before 1970 as well", "1969-12-31", 0);
    row("seconds since 1970", "@1795288009.000787", 1795288009, 787);
    row("few seconds since 1970", "@5", 5);
    row("many need no mark", "1795288009", 1795288009);
    row("the 29th of February", "2028-02-29", 1835391600);
}

void TimePointTest::instants()
{
    QFETCH(QByteArray, text);
    QFETCH(qint64, microseconds);
    const auto found = TimePoint::read(text.toStdString(), now, TimePoint::Reading::First);
    QVERIFY(found);
    QCOMPARE(qint64(found->seconds) * 1000000 + found->microseconds, microseconds);
}

void TimePointTest::noTimes_data()
{
    QTest::addColumn<QByteArray>("text");

    for (const char *const text : {"",
                                   " ",
                                   "soon",
                                   "1",
                                   "12345678",
                                   "2026",
                                   "2026-11",
                                   "2026-11-31",
                                   "2026-13-01",
                                   "2027-02-29",
                                   "2026-11-21 ",
                                   "2026-11-21T",
                                   "2026-11-21 24:00",
                                   "2026-11-21 19",
                                   "2026-11-21 19:60",
                                   "2026-11-21 19:06:",
                                   "2026-11-21 19:06:61",
                                   "2026-11-21 19:06:49.",
                                   "2026-11-21 19:06 CET",
                                   "2026-11-21 19:06+24:00",
                                   "2026-11-21 19:06+0",
                                   "2026-1-1",
                                   "2026-11-2119:06",
                                   "2026-11-21Z",
                                   "26-11-21",
                                   "19:6",
                                   "T19:06",
                                   "1x",
                                   "1h2",
                                   "h",
                                   "-",
                                   "+",
                                   "--1h",
                                   "1h ago ago",
                                   "ago",
                                   "99999999999h",
                                   "today2026-11-21",
                                   "today x",
                                   "@",
                                   "@x",
                                   "@1.",
                                   "@99999999999999",
                                   "1795288009x",
                                   "nowhere"}) {
        QTest::addRow("\"%s\" is none", text) << QByteArray(text);
    }
}

void TimePointTest::noTimes()
{
    QFETCH(QByteArray, text);
    QVERIFY(!TimePoint::read(text.toStdString(), now, TimePoint::Reading::First));
}

void TimePointTest::whatIsPrintedIsTaken_data()
{
    QTest::addColumn<int>("style");
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("local") << int(TimeStyle::Local) << QByteArray("2026-11-21 20:06:49.000787");
    QTest::newRow("utc") << int(TimeStyle::Utc) << QByteArray("2026-11-21T19:06:49.000787Z");
    QTest::newRow("iso") << int(TimeStyle::Iso) << QByteArray("2026-11-21T20:06:49.000787+01:00");
    QTest::newRow("unix") << int(TimeStyle::Unix) << QByteArray("1795288009.000787");
    QTest::newRow("relative") << int(TimeStyle::Relative) << QByteArray("10.000000s ago");
}

void TimePointTest::whatIsPrintedIsTaken()
{
    QFETCH(int, style);
    QFETCH(QByteArray, text);
    const Instant later{now.seconds + 10, now.microseconds};
    std::string printed;
    QVERIFY(TimeText(TimeStyle(style), later).append(printed, now.seconds, now.microseconds));
    QCOMPARE(QByteArray::fromStdString(printed), text);
    QVERIFY(printed.size() <= TimeText(TimeStyle(style), later).width());
    const auto found = TimePoint::read(printed, later, TimePoint::Reading::First);
    QVERIFY(found);
    QVERIFY(!(*found < now) && !(now < *found));
}

void TimePointTest::summerTime()
{
    const auto text = [](TimeText &times, quint64 seconds) {
        std::string out;
        return times.append(out, seconds, 0) ? QByteArray::fromStdString(out) : QByteArray("none");
    };
    // The minutes before and behind the end of summer time.
    TimeText iso(TimeStyle::Iso, now);
    QCOMPARE(text(iso, 1792889999), QByteArray("2026-10-25T02:59:59.000000+02:00"));
    QCOMPARE(text(iso, 1792890000), QByteArray("2026-10-25T02:00:00.000000+01:00"));
    TimeText relative(TimeStyle::Relative, now);
    QCOMPARE(text(relative, now.seconds - 90000), QByteArray("1d 1h ago"));
    QCOMPARE(text(relative, now.seconds - 7200), QByteArray("2h 0min ago"));
    QCOMPARE(text(relative, now.seconds + 61), QByteArray("in 1min 0s"));
    // What only damage makes is no time.
    QCOMPARE(text(iso, quint64(253402300800)), QByteArray("none"));
    QCOMPARE(text(relative, ~quint64(0)), QByteArray("none"));
}

void TimePointTest::readings_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<quint64>("first");
    QTest::addColumn<quint64>("second");

    const auto row = [](const char *name, const char *text, quint64 first, quint64 second) {
        QTest::newRow(name) << QByteArray(text) << first << second;
    };
    // Summer time ends at 01:00 UTC, when it is 03:00, and 02:00 again.
    constexpr quint64 end = 1792890000;
    row("in the repeated hour there are two", "2026-10-25 02:30", end - 1800, end + 1800);
    row("at its beginning as well", "2026-10-25 02:00", end - 3600, end);
    row("and at its end", "2026-10-25 02:59:59", end - 1, end + 3599);
    row("in front of it there is one", "2026-10-25 01:59:59", end - 3601, end - 3601);
    row("and behind it", "2026-10-25 03:00", end + 3600, end + 3600);
    row("one with its offset is one", "2026-10-25 02:30+01:00", end + 1800, end + 1800);
    row("a day that is longer begins once", "2026-10-25", end - 10800, end - 10800);
    row("in summer there is one", "2026-07-01 12:00", 1782900000, 1782900000);
}

void TimePointTest::readings()
{
    QFETCH(QByteArray, text);
    QFETCH(quint64, first);
    QFETCH(quint64, second);
    // Both, whichever half of the year it is, and in either order.
    for (const Instant &present : {now, Instant{1782900000, 0}}) {
        const auto read = [&](TimePoint::Reading reading) {
            const auto found = TimePoint::read(text.toStdString(), present, reading);
            return found ? found->seconds : 0;
        };
        QCOMPARE(read(TimePoint::Reading::First), first);
        QCOMPARE(read(TimePoint::Reading::Second), second);
        QCOMPARE(read(TimePoint::Reading::First), first);
    }
}

QTEST_GUILESS_MAIN(TimePointTest)
#include "tst_timepoint.moc"

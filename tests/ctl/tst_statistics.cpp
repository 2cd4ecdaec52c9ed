// SPDX-License-Identifier: Apache-2.0

// Counting: what is counted exactly, what is counted together, and which steps of time are
// shown.

#include "ctl/stats/statistics.h"
#include "ctl/stats/tally.h"
#include "ctl/stats/timehistogram.h"
#include "ctl/stats/wallclock.h"
#include "support/literals.h"

#include <QDateTime>
#include <QTest>

#include <ctime>
#include <limits>
#include <map>
#include <random>
#include <string>

namespace
{

constexpr qint64 minute = 60;
constexpr qint64 hour = 60 * minute;
constexpr qint64 day = 24 * hour;

qint64 seconds(const QString &time)
{
    return QDateTime::fromString(time + "Z"_s, Qt::ISODate).toSecsSinceEpoch();
}

QString timeText(qint64 time)
{
    return QDateTime::fromSecsSinceEpoch(time, Qt::UTC).toString("yyyy-MM-dd HH:mm:ss"_s);
}

Statistics::Facts facts(quint64 number, const Instant &time = {1700000000, 0})
{
    Statistics::Facts made;
    made.number = number;
    made.time = time;
    made.path = "/a";
    made.size = 50;
    return made;
}

//! As "first-last", with a comma in between.
QString textOf(const std::vector<Archive::NumberRange> &ranges)
{
    QStringList texts;
    for (const Archive::NumberRange &range : ranges) {
        texts.append("%1-%2"_s.arg(range.first).arg(range.last));
    }
    return texts.join(QLatin1Char(','));
}

} // namespace

class StatisticsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tally();
    void tallyOfManyKeys();
    void tallyOfLongKeys();
    void steps_data();
    void steps();
    void weeksBeginOnMondays();
    void monthsAndYears();
    void manyTimes_data();
    void manyTimes();
    void wallClock_data();
    void wallClock();
    void amounts();
    void numbers_data();
    void numbers();
    void repeatedBeyondMemory();
    void missing();
    void clock();
    void damage();
};

void StatisticsTest::tally()
{
    Tally<std::string> paths;
    for (const char *const path : {"/b", "/a", "/c", "/c", "/a", "/d"}) {
        paths.add(std::string_view(path), {1, 10});
    }
    QString order;
    for (const auto *entry : paths.descending()) {
        order += QString::fromStdString(entry->first) + QString::number(entry->second.records)
            + QString::number(entry->second.bytes);
    }
    QCOMPARE(order, "/a220/c220/b110/d110"_s);
    QCOMPARE(paths.others().records, quint64(0));
}

void StatisticsTest::tallyOfManyKeys()
{
    constexpr auto most = qint32(Tally<qint32>::mostKeys);
    Tally<qint32> events;
    for (int round = 0; round < 2; ++round) {
        for (qint32 i = 0; i < most + 5; ++i) {
            events.add(i, {1, 3});
        }
    }
    QCOMPARE(events.amounts().size(), size_t(most));
    for (const auto &[id, amount] : events.amounts()) {
        QCOMPARE(amount.records, quint64(2));
    }
    QCOMPARE(events.others().records, quint64(10));
    QCOMPARE(events.others().bytes, quint64(30));
}

void StatisticsTest::tallyOfLongKeys()
{
    Tally<std::string> paths;
    const std::string front(60000, 'p');
    constexpr int keys = 1000;
    for (int i = 0; i < keys; ++i) {
        paths.add(front + std::to_string(1000 + i), {1, 1});
    }
    size_t held = 0;
    for (const auto &[path, amount] : paths.amounts()) {
        held += path.size();
    }
    QCOMPARE(held, Tally<std::string>::mostKeyBytes / 60004 * 60004);
    QCOMPARE(paths.amounts().size() + paths.others().records, size_t(keys));
    // What is shorter still finds room.
    paths.add(std::string_view("/a"), {1, 1});
    QCOMPARE(paths.amounts().count(std::string_view("/a")), size_t(1));
}

void StatisticsTest::steps_data()
{
    QTest::addColumn<QStringList>("times");
    QTest::addColumn<qint64>("step");
    QTest::addColumn<QString>("bars"); // as begin and count

    QTest::newRow("nothing has no bars") << QStringList() << qint64(1) << QString();
    QTest::newRow("one instant is a second")
        << QStringList{"2026-11-21T19:06:49"_s} << qint64(1) << "2026-11-21 19:06:49 1"_s;
    QTest::newRow("a second is as small as it gets")
        << QStringList{"2026-11-21T19:06:49"_s, "2026-11-21T19:06:49"_s, "2026-11-21T19:06:50"_s}
        << qint64(1) << "2026-11-21 19:06:49 2|2026-11-21 19:06:50 1"_s;
    QTest::newRow("the order does not matter")
        << QStringList{"2026-11-21T19:06:50"_s, "2026-11-21T19:06:49"_s, "2026-11-21T19:06:50"_s}
        << qint64(1) << "2026-11-21 19:06:49 1|2026-11-21 19:06:50 2"_s;
    QTest::newRow("what is far away makes no step larger")
        << QStringList{"1970-01-01T00:00:03"_s, "2026-11-21T19:06:49"_s, "9999-12-31T23:59:59"_s}
        << qint64(1) << "1970-01-01 00:00:03 1|2026-11-21 19:06:49 1|9999-12-31 23:59:59 1"_s;
    QStringList everyMinute;
    QStringList everyHour;
    for (int i = 0; i < 48; ++i) {
        everyMinute.append("2026-11-21T19:%1:30"_s.arg(i + 10, 2, 10, QLatin1Char('0')));
        everyHour.append(
            "2026-11-%1T%2:30:00"_s.arg(20 + i / 24).arg(i % 24, 2, 10, QLatin1Char('0')));
    }
    QTest::newRow("breaks are rows as well, up to three")
        << QStringList{everyHour[0], everyHour[2], everyHour[4], everyHour[6]} << qint64(1)
        << "2026-11-20 00:30:00 1|2026-11-20 02:30:00 1|2026-11-20 04:30:00 1|"
           "2026-11-20 06:30:00 1"_s;
    QTest::newRow("of more breaks there are larger steps, half of them empty")
        << QStringList{everyHour[0], everyHour[2], everyHour[4], everyHour[6], everyHour[8]} << hour
        << "2026-11-20 00:00:00 1|2026-11-20 02:00:00 1|2026-11-20 04:00:00 1|"
           "2026-11-20 06:00:00 1|2026-11-20 08:00:00 1"_s;
    QTest::newRow("two empty steps behind each are too many")
        << QStringList{everyMinute[0], everyMinute[3], everyMinute[6], everyMinute[9],
                       everyMinute[12]}
        << 2 * minute
        << "2026-11-21 19:10:00 1|2026-11-21 19:12:00 1|2026-11-21 19:16:00 1|"
           "2026-11-21 19:18:00 1|2026-11-21 19:22:00 1"_s;
    QString threeHours;
    for (const char *const begin :
         {"20 00", "20 03", "20 06", "20 09", "20 12", "20 15", "20 18", "20 21", "21 00", "21 03",
          "21 06", "21 09", "21 12", "21 15", "21 18", "21 21"}) {
        threeHours += (threeHours.isEmpty() ? ""_s : "|"_s) + "2026-11-"_s + QLatin1String(begin)
            + ":00:00 3"_s;
    }
    QTest::newRow("25 hours no longer fit, and steps of two neither")
        << everyHour + QStringList{"2026-11-22T10:00:00"_s} << 3 * hour
        << threeHours + "|2026-11-22 09:00:00 1"_s;
}

void StatisticsTest::steps()
{
    QFETCH(QStringList, times);
    QFETCH(qint64, step);
    QFETCH(QString, bars);
    TimeHistogram histogram;
    for (const QString &time : times) {
        histogram.add(seconds(time), {1, 1});
    }
    const TimeHistogram::Bars found = histogram.bars(24);
    QCOMPARE(found.step.unit, TimeStep::Unit::Second);
    QStringList texts;
    for (const TimeHistogram::Bar &bar : found.bars) {
        QCOMPARE(bar.end, bar.begin + found.step.count);
        texts.append(timeText(bar.begin) + " "_s + QString::number(bar.amount.records));
    }
    QCOMPARE(texts.join(QLatin1Char('|')), bars);
    QCOMPARE(found.step.count, step);
}

void StatisticsTest::weeksBeginOnMondays()
{
    const TimeStep week{TimeStep::Unit::Second, 7 * day};
    QCOMPARE(timeText(week.floor(seconds("2026-11-22T23:59:59"_s))), "2026-11-16 00:00:00"_s);
    QCOMPARE(timeText(week.floor(seconds("2026-11-23T00:00:00"_s))), "2026-11-23 00:00:00"_s);
    QCOMPARE(timeText(week.floor(seconds("1970-01-01T00:00:00"_s))), "1969-12-29 00:00:00"_s);
}

void StatisticsTest::monthsAndYears()
{
    const TimeStep month{TimeStep::Unit::Month, 1};
    QCOMPARE(timeText(month.floor(seconds("2024-02-29T23:59:59"_s))), "2024-02-01 00:00:00"_s);
    QCOMPARE(timeText(month.next(seconds("2024-12-01T00:00:00"_s))), "2025-01-01 00:00:00"_s);
    QCOMPARE(month.between(seconds("2024-12-01T00:00:00"_s), seconds("2026-01-01T00:00:00"_s)),
             qint64(13));
    QCOMPARE(timeText(month.floor(-1)), "1969-12-01 00:00:00"_s);
    const TimeStep decade{TimeStep::Unit::Month, 120};
    QCOMPARE(timeText(decade.floor(seconds("2026-11-21T00:00:00"_s))), "2020-01-01 00:00:00"_s);
}

void StatisticsTest::manyTimes_data()
{
    QTest::addColumn<qint64>("span");
    QTest::addColumn<qint64>("step"); // of seconds, or less than 0 of months

    QTest::newRow("a day of seconds is in quarters of an hour") << day << 15 * minute;
    QTest::newRow("two months of minutes are in days") << 60 * day << day;
    QTest::newRow("five years of hours are in months") << qint64(5) * 365 * day << qint64(-1);
    QTest::newRow("a hundred years of days are in decades")
        << qint64(100) * 365 * day << qint64(-120);
    QTest::newRow("all years are in centuries") << qint64(8029) * 365 * day << qint64(-1200);
}

//! There are more times than cells, and still every bar is right.
void StatisticsTest::manyTimes()
{
    QFETCH(qint64, span);
    QFETCH(qint64, step);
    constexpr qint64 begin = 1700000123;
    constexpr int times = 60000;
    std::mt19937_64 random(1);
    std::uniform_int_distribution<qint64> any(0, span - 1);
    TimeHistogram histogram;
    std::map<qint64, quint64> wanted;
    for (int i = 0; i < times; ++i) {
        const qint64 time = std::min(begin + any(random), qint64(253402300799));
        histogram.add(time, {1, 2});
        if (step > 0) {
            ++wanted[time - time % step];
        } else {
            const QDate date = QDateTime::fromSecsSinceEpoch(time, Qt::UTC).date();
            const qint64 month = qint64(date.year()) * 12 + date.month() - 1;
            const qint64 first = month - month % -step;
            ++wanted[QDateTime(QDate(int(first / 12), int(first % 12) + 1, 1), QTime(0, 0), Qt::UTC)
                         .toSecsSinceEpoch()];
        }
    }
    const TimeHistogram::Bars found = histogram.bars(TimeHistogram::mostRows);
    QCOMPARE(found.step.unit, step > 0 ? TimeStep::Unit::Second : TimeStep::Unit::Month);
    QCOMPARE(found.step.count, step > 0 ? step : -step);
    QCOMPARE(found.bars.size(), wanted.size());
    auto next = wanted.begin();
    for (const TimeHistogram::Bar &bar : found.bars) {
        QCOMPARE(bar.begin, next->first);
        QCOMPARE(bar.amount.records, next->second);
        QCOMPARE(bar.amount.bytes, 2 * next->second);
        ++next;
    }
}

void StatisticsTest::wallClock_data()
{
    QTest::addColumn<bool>("isUtc");
    QTest::addColumn<QString>("time");
    QTest::addColumn<qint64>("distance");

    QTest::newRow("UTC is as it is") << true << "2026-07-01T12:00:00"_s << qint64(0);
    QTest::newRow("winter") << false << "2026-01-01T12:00:00"_s << hour;
    QTest::newRow("summer") << false << "2026-07-01T12:00:00"_s << 2 * hour;
    QTest::newRow("the last second of winter") << false << "2026-03-29T00:59:59"_s << hour;
    QTest::newRow("the first one of summer") << false << "2026-03-29T01:00:00"_s << 2 * hour;
    QTest::newRow("the first year") << false << "1970-01-01T00:00:00"_s << hour;
}

void StatisticsTest::wallClock()
{
    QFETCH(bool, isUtc);
    QFETCH(QString, time);
    QFETCH(qint64, distance);
    qputenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    ::tzset();
    WallClock clock(isUtc ? WallClock::Zone::Utc : WallClock::Zone::Local);
    (void)clock.at(quint64(seconds("2026-03-29T00:50:00"_s))); // what is known is not taken for it
    QCOMPARE(clock.at(quint64(seconds(time))), seconds(time) + distance);
    qunsetenv("TZ");
    ::tzset();
}

void StatisticsTest::amounts()
{
    Statistics statistics(WallClock::Zone::Utc);
    Statistics::Facts one = facts(1);
    one.eventId = -5;
    one.isKnown = true;
    statistics.add(one);
    one = facts(2);
    one.eventId = -5;
    one.path = "/b";
    one.size = 70;
    statistics.add(one);
    QCOMPARE(statistics.total().records, quint64(2));
    QCOMPARE(statistics.total().bytes, quint64(120));
    QCOMPARE(statistics.knownEvents().amounts().at(-5).bytes, quint64(50));
    QCOMPARE(statistics.unknownEvents().amounts().at(-5).bytes, quint64(70));
    QCOMPARE(statistics.paths().amounts().at("/b").bytes, quint64(70));
    QCOMPARE(statistics.times().bars(24).bars.at(0).amount.bytes, quint64(120));
}

void StatisticsTest::numbers_data()
{
    QTest::addColumn<QList<int>>("inOrder");
    QTest::addColumn<int>("lowest");
    QTest::addColumn<int>("highest");
    QTest::addColumn<int>("restarts");
    QTest::addColumn<QString>("repeated");

    QTest::newRow("none") << QList<int>() << 0 << 0 << 0 << QString();
    QTest::newRow("that rise") << QList<int>{3, 4, 9} << 3 << 9 << 0 << QString();
    QTest::newRow("that begin again lower") << QList<int>{3, 4, 1, 2} << 1 << 4 << 1 << QString();
    QTest::newRow("that come again") << QList<int>{1, 2, 3, 2, 3, 4} << 1 << 4 << 1 << "2-3"_s;
    QTest::newRow("twice in a row") << QList<int>{1, 1} << 1 << 1 << 1 << "1-1"_s;
    QTest::newRow("three times") << QList<int>{1, 2, 1, 1} << 1 << 2 << 2 << "1-1"_s;
}

void StatisticsTest::numbers()
{
    QFETCH(QList<int>, inOrder);
    QFETCH(int, lowest);
    QFETCH(int, highest);
    QFETCH(int, restarts);
    QFETCH(QString, repeated);
    Statistics statistics(WallClock::Zone::Utc);
    for (const int number : inOrder) {
        statistics.add(facts(quint64(number)));
    }
    QCOMPARE(statistics.numbers().lowest, quint64(lowest));
    QCOMPARE(statistics.numbers().highest, quint64(highest));
    QCOMPARE(statistics.numbers().restarts, quint64(restarts));
    QCOMPARE(textOf(statistics.repeated().ranges), repeated);
    QCOMPARE(statistics.repeated().numbers == 0, repeated.isEmpty());
    QVERIFY(statistics.repeated().isComplete);
}

void StatisticsTest::repeatedBeyondMemory()
{
    Statistics many(WallClock::Zone::Utc);
    for (int round = 0; round < 2; ++round) {
        for (quint64 i = 0; i < 2 * Statistics::mostRanges; ++i) {
            many.add(facts(1 + 2 * i));
        }
    }
    QVERIFY(many.repeated().isComplete);
    QCOMPARE(many.repeated().numbers, quint64(2 * Statistics::mostRanges));
    QCOMPARE(many.repeated().ranges.size(), Statistics::mostRanges);

    Statistics tooMany(WallClock::Zone::Utc);
    for (quint64 i = 0; i < Statistics::mostSeen + 10; ++i) {
        tooMany.add(facts(1 + 2 * i));
    }
    QVERIFY(tooMany.repeated().isComplete); // as they rise there can be none
    tooMany.add(facts(1));
    QVERIFY(!tooMany.repeated().isComplete);
}

void StatisticsTest::missing()
{
    Statistics statistics(WallClock::Zone::Utc);
    for (quint64 i = 0; i < 2 * Statistics::mostRanges; ++i) {
        statistics.addMissing({10 * i + 1, 10 * i + 3});
    }
    QCOMPARE(statistics.missing().gaps, quint64(2 * Statistics::mostRanges));
    QCOMPARE(statistics.missing().numbers, quint64(6 * Statistics::mostRanges));
    QCOMPARE(statistics.missing().ranges.size(), Statistics::mostRanges);
    constexpr quint64 all = std::numeric_limits<quint64>::max();
    statistics.addMissing({1, all - 1});
    QCOMPARE(statistics.missing().numbers, all);
}

void StatisticsTest::clock()
{
    Statistics statistics(WallClock::Zone::Utc);
    QVERIFY(!statistics.clock().isKnown);
    quint64 number = 1;
    statistics.add(facts(number++, {1000, 500}));
    statistics.add(facts(number++, {1000, 500})); // no step
    statistics.add(facts(number++, {1000, 499}));
    for (quint64 i = 1; i <= 12; ++i) {
        statistics.add(facts(number++, {2000, 0}));
        statistics.add(facts(number++, {2000 - i, 0}));
    }
    QCOMPARE(statistics.clock().earliest.seconds, quint64(1000));
    QCOMPARE(statistics.clock().earliest.microseconds, quint32(499));
    QCOMPARE(statistics.clock().latest.seconds, quint64(2000));
    QCOMPARE(statistics.clock().stepsBack, quint64(13));
    const auto &largest = statistics.clock().largest;
    QCOMPARE(largest.size(), Statistics::mostSteps);
    QCOMPARE(largest.front().number, quint64(27));
    QCOMPARE(largest.front().to.seconds, quint64(1988));
    QCOMPARE(largest.back().number, quint64(9));
    QCOMPARE(microsecondsBetween({1000, 999999}, {1001, 0}), qint64(1));
}

void StatisticsTest::damage()
{
    Statistics statistics(WallClock::Zone::Utc);
    Statistics::Facts one = facts(1);
    one.state = Archive::State::Likely;
    statistics.add(one);
    one.state = Archive::State::Damaged;
    statistics.add(one);
    statistics.addUnreadable(30);
    statistics.addLost(100);
    statistics.addLost(11);
    QCOMPARE(statistics.damage().likely, quint64(1));
    QCOMPARE(statistics.damage().damaged, quint64(2));
    QCOMPARE(statistics.damage().unreadable, quint64(1));
    QCOMPARE(statistics.damage().places, quint64(2));
    QCOMPARE(statistics.damage().lostBytes, quint64(111));
    QCOMPARE(statistics.total().records, quint64(3));
    QCOMPARE(statistics.total().bytes, quint64(130));
    QCOMPARE(statistics.paths().amounts().at("/a").records, quint64(2));
}

QTEST_GUILESS_MAIN(StatisticsTest)
#include "tst_statistics.moc"

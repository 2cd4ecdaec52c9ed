// SPDX-License-Identifier: Apache-2.0

// What "stats" counts of folders made by hand, against counts of the tests' own and of what
// "show" prints; how it is laid out; and that no folder takes it much memory.

#include "ctl/ctlprocess.h"
#include "ctl/terminal.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMap>
#include <QTest>

#include <memory>
#include <random>

#include <sys/resource.h>
#include <sys/stat.h>

using RecordBytes::Fields;
using RecordBytes::record;
using RecordBytes::sized;

namespace
{

QByteArray ownCatalogue()
{
    return R"(<systemevents>
  <enum name="LogLevel"><item value="3" name="error"/><item value="5" name="notice"/></enum>
  <service name="power">
    <event id="1001" name="supply" loglevel="notice"><argument type="string" name="v"/>
      <description lang="en">Supply %1</description>
      <description lang="de">Versorgung %1</description></event>
    <event id="1002" name="overload" loglevel="error"><argument type="string" name="v"/>
      <description lang="en">Load %1</description></event>
  </service>
  <service name="text"><event id="9" name="string" loglevel="notice">
      <argument type="string" name="v"/><description lang="en">%1</description></event></service>
</systemevents>)";
}

QByteArray storedEvent(quint64 logNr, qint64 seconds = 1700000000, qint32 eventId = 1001,
                       const QByteArray &path = "/power/supply", const QByteArray &text = "text")
{
    Fields fields;
    fields.logNr = logNr;
    fields.seconds = seconds;
    fields.eventId = eventId;
    fields.path = path;
    fields.values = sized(text);
    return record(fields);
}

QByteArray numbered(quint64 from, quint64 to, qint64 seconds = 1700000000)
{
    QByteArray bytes;
    for (quint64 i = from; i <= to; ++i) {
        bytes += storedEvent(i, seconds + qint64(i));
    }
    return bytes;
}

//! Records of all kinds, the same each time.
QByteArray mixed(quint64 from, quint64 to)
{
    const QList<qint32> events{1001, 1001, 1001, 1002, 9, 77};
    const QList<QByteArray> paths{"/a", "/a", "/b/c", "/power/supply"};
    std::mt19937 random(uint(from) + 1); // of which the numbers are the same everywhere
    QByteArray bytes;
    for (quint64 i = from; i <= to; ++i) {
        const auto any = [&random](auto size) { return int(random() % uint(size)); };
        bytes
            += storedEvent(i, 1700000000 + qint64(i) * 700 - any(2000), events[any(events.size())],
                           paths[any(paths.size())], QByteArray(any(60), 'x'));
    }
    return bytes;
}

using Counts = QMap<QString, QPair<int, int>>; // records and bytes

void count(Counts &counts, const QString &key, int bytes)
{
    counts[key].first += 1;
    counts[key].second += bytes;
}

QString keyOf(const QJsonObject &object, const QString &member)
{
    const QJsonValue value = object.value(member);
    return value.isDouble() ? QString::number(value.toInt())
        : value.isString()  ? value.toString()
                            : "none"_s;
}

//! Counts of the tests' own, of the bytes of mixed().
struct OwnCounts {
    explicit OwnCounts(const QList<QByteArray> &files)
    {
        for (const QByteArray &file : files) {
            for (const RecordBytes::Stored &stored : RecordBytes::storedIn(file)) {
                add(file.mid(stored.begin, stored.end - stored.begin));
            }
        }
    }

    Counts events;
    Counts paths;
    Counts levels;
    Counts services;
    qint64 earliest = std::numeric_limits<qint64>::max();
    qint64 latest = 0;
    int stepsBack = 0;

private:
    void add(const QByteArray &bytes)
    {
        const int size = int(bytes.size());
        const auto event = qFromLittleEndian<qint32>(bytes.constData() + 24);
        const auto time = qint64(qFromLittleEndian<quint64>(bytes.constData() + 8));
        const auto pathSize = qFromLittleEndian<quint16>(bytes.constData() + 28);
        count(events, QString::number(event), size);
        count(paths, QString::fromUtf8(bytes.mid(30, pathSize)), size);
        count(levels, event == 77 ? "none"_s : event == 1002 ? "error"_s : "notice"_s, size);
        count(services, event == 77 ? "none"_s : event == 9 ? "text"_s : "power"_s, size);
        earliest = std::min(earliest, time);
        latest = std::max(latest, time);
        stepsBack += time < last ? 1 : 0;
        last = time;
    }

    qint64 last = 0;
};

//! The rows of an array, by a member.
Counts countsOf(const QJsonValue &rows, const QString &member)
{
    Counts counts;
    for (const QJsonValue row : rows.toArray()) {
        const QJsonObject object = row.toObject();
        counts[keyOf(object, member)]
            = {object.value("records"_s).toInt(), object.value("bytes"_s).toInt()};
    }
    return counts;
}

QByteArray withoutColours(QByteArray text)
{
    while (text.contains('\x1B')) {
        const auto begin = text.indexOf('\x1B');
        text.remove(begin, text.indexOf('m', begin) - begin + 1);
    }
    return text;
}

} // namespace

class CtlStatsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void memory_data();
    void memory();
    void table();
    void losses();
    void quiet();
    void topTen();
    void json();
    void jsonOfLosses();
    void jsonOfTimes();
    void selections_data();
    void selections();
    void newestFirst();
    void exitStatus_data();
    void exitStatus();
    void nothing();
    void damage();
    void unreadable();
    void withoutCatalogue();
    void zones();
    void hostileTexts();
    void manyPaths();
    void timeSteps_data();
    void timeSteps();
    void everyWidth_data();
    void everyWidth();
    void colours();
    void pager();
    void readsNoInput();
    void closedOutput();
    void fullOutput();

private:
    [[nodiscard]] QStringList arguments(const QStringList &more,
                                        const char *command = "stats") const
    {
        return QStringList{QString::fromLatin1(command), "-D"_s, folder->dir().path(), "-C"_s,
                           catalogue}
        + more;
    }
    [[nodiscard]] CtlRun stats(const QStringList &more = {}) const
    {
        return runCtl(arguments(more));
    }
    [[nodiscard]] QJsonObject object(const QStringList &more = {}) const
    {
        const CtlRun run = stats(QStringList{"-o"_s, "json"_s} + more);
        const QList<QJsonObject> objects = run.objects();
        if (objects.size() != 1) {
            qFatal("no single object: %s", run.out.constData());
        }
        return objects.first();
    }
    [[nodiscard]] QString line(const QString &options = {}, const QString &environment = {}) const
    {
        return environment + " \"$CTL\" stats --time utc -D "_s + folder->dir().path() + " -C "_s
            + catalogue + " "_s + options;
    }

    std::unique_ptr<LogFolder> folder;
    std::unique_ptr<QTemporaryDir> other;
    QString catalogue;
};

void CtlStatsTest::init()
{
    folder = std::make_unique<LogFolder>();
    other = std::make_unique<QTemporaryDir>();
    catalogue = other->filePath("events.xml"_s);
    QFile file(catalogue);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(ownCatalogue()) > 0);
}

void CtlStatsTest::memory_data()
{
    QTest::addColumn<int>("pathSize");
    QTest::addColumn<int>("records");
    QTest::addColumn<int>("files");
    QTest::addColumn<bool>("isDamaged");

    QTest::newRow("100 MB of long paths") << 60000 << 4 << 400 << false;
    QTest::newRow("40 MB of short ones, events, times and gaps") << 20 << 8000 << 80 << false;
    QTest::newRow("10 MB of which every file is damaged") << 20 << 8000 << 20 << true;
}

void CtlStatsTest::memory()
{
    QFETCH(int, pathSize);
    QFETCH(int, records);
    QFETCH(int, files);
    QFETCH(bool, isDamaged);
    quint64 number = 1;
    for (int index = files - 1; index >= 0; --index) {
        QByteArray bytes;
        for (int i = 0; i < records; ++i) {
            number += 2;
            bytes += storedEvent(number, qint64(number * 104729 % 253402300799), qint32(number),
                                 '/' + QByteArray::number(number).rightJustified(pathSize, 'p'));
        }
        if (isDamaged) {
            bytes.replace(bytes.size() / 2, 100, QByteArray(100, '\0'));
        }
        folder->put(index, bytes);
    }
    for (const char *const format : {"text", "json"}) {
        QCOMPARE(stats({"-o"_s, QString::fromLatin1(format)}).status, isDamaged ? 3 : 0);
    }
    rusage usage{};
    QCOMPARE(::getrusage(RUSAGE_CHILDREN, &usage), 0);
    qInfo("at most %ld KiB", usage.ru_maxrss);
#ifndef __SANITIZE_ADDRESS__ // which keeps freed memory for a while
    QVERIFY2(usage.ru_maxrss / 1024 < 40, qPrintable(QString::number(usage.ru_maxrss)));
#endif
}

void CtlStatsTest::table()
{
    folder->put(1, storedEvent(1, 1700000000) + storedEvent(2, 1700000060, 1002, "/a"));
    folder->put(0, storedEvent(3, 1700000130) + storedEvent(4, 1700000131, 77, "/a"));
    const CtlRun run = stats({"--time"_s, "utc"_s});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    const QByteArray wanted
        = "Log        " + folder->dir().path().toUtf8() + R"(, 2 files, 186 bytes
Records    4, numbers 1 to 4
Size       47 bytes a record, 186 bytes in all
Period     2023-11-14T22:13:20Z to 2023-11-14T22:15:31Z, 2 min 11 s
Busiest    /a with 50.0% of the records
Missing    none
Repeated   none
Clock      never went back
Damage     none

Level                 records   share  bytes each
error                       1   25.0%          41  ██████████████▌
notice                      2   50.0%          52  █████████████████████████████
none: unknown events        1   25.0%          41  ██████████████▌

Event                 records   share  bytes each
1001 supply                 2   50.0%          52  █████████████████████████████
1002 overload               1   25.0%          41  ██████████████▌
77                          1   25.0%          41  ██████████████▌

Service               records   share  bytes each
power                       3   75.0%          48  █████████████████████████████
none: unknown events        1   25.0%          41  █████████▋

Path                  records   share  bytes each
/a                          2   50.0%          41  █████████████████████████████
/power/supply               2   50.0%          52  █████████████████████████████

Time, by second       records   share  bytes each
2023-11-14 22:13:20         1   25.0%          52  █████████████████████████████
none for 59 s
2023-11-14 22:14:20         1   25.0%          41  █████████████████████████████
none for 1 min 9 s
2023-11-14 22:15:30         1   25.0%          52  █████████████████████████████
2023-11-14 22:15:31         1   25.0%          41  █████████████████████████████
)";
    QCOMPARE(QString::fromUtf8(run.out), QString::fromUtf8(wanted));
}

void CtlStatsTest::losses()
{
    folder->put(1, numbered(1, 4) + numbered(8, 8) + numbered(10, 12));
    folder->put(0, numbered(11, 14, 1699990000));
    const CtlRun run = stats();
    QCOMPARE(run.status, 0);
    for (const char *const each :
         {"Missing    4 numbers: 5 to 7, 9\n", "Repeated   2 numbers: 11 to 12\n",
          "Restarts   numbers began again 1 time\n",
          "Clock      went back 1 time: by 2 h 46 min at number 11\n"}) {
        QVERIFY2(run.out.contains(each), run.out.constData());
    }
}

void CtlStatsTest::quiet()
{
    folder->put(0, numbered(1, 4));
    const CtlRun run = stats({"-q"_s});
    QVERIFY(run.out.contains("Busiest "));
    for (const char *const each : {"Missing", "Repeated", "Clock", "Damage"}) {
        QVERIFY2(!run.out.contains(each), each);
    }
    folder->put(0, numbered(1, 4) + numbered(6, 6));
    QVERIFY(stats({"-q"_s}).out.contains("\nMissing    1 number: 5\n\n"));
}

void CtlStatsTest::topTen()
{
    QByteArray bytes;
    quint64 number = 0;
    for (int i = 0; i < 13; ++i) {
        for (int k = 0; k <= i; ++k) {
            bytes += storedEvent(++number, 1700000000, 100 + i, "/p" + QByteArray::number(i));
        }
    }
    folder->put(0, bytes);
    const QByteArray out = stats().out;
    for (const QByteArray &each :
         {QByteArray("112 "), QByteArray("103 "), QByteArray("/p12 "), QByteArray("/p3 ")}) {
        QVERIFY2(out.contains('\n' + each), out.constData());
    }
    QVERIFY(!out.contains("\n102 "));
    QVERIFY(!out.contains("\n/p2 "));
    // 1 + 2 + 3 records of three events and of three paths.
    const QByteArray others = "\n3 others ";
    QCOMPARE(out.count(others), QByteArray::size_type(2));
    QCOMPARE(out.mid(out.indexOf(others)).simplified().left(15), QByteArray("3 others 6 6.6%"));
}

void CtlStatsTest::json()
{
    const QList<QByteArray> files{mixed(1, 300), mixed(301, 700)};
    folder->put(1, files[0]);
    folder->put(0, files[1]);
    const OwnCounts own(files);
    QVERIFY(own.stepsBack > 10);
    const CtlRun run = stats({"-o"_s, "json"_s});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.out.count('\n'), QByteArray::size_type(1));
    const QJsonObject found = run.objects().first();
    QCOMPARE(countsOf(found.value("events"_s), "event"_s), own.events);
    QCOMPARE(countsOf(found.value("paths"_s), "path"_s), own.paths);
    QCOMPARE(countsOf(found.value("levels"_s), "level"_s), own.levels);
    QCOMPARE(countsOf(found.value("services"_s), "service"_s), own.services);
    QCOMPARE(found.value("folder"_s).toString(), folder->dir().path());
    QCOMPARE(found.value("files"_s).toInt(), 2);
    QCOMPARE(found.value("isComplete"_s).toBool(), true);
    QCOMPARE(found.value("size"_s).toInt(), int(files[0].size() + files[1].size()));
    QCOMPARE(found.value("bytes"_s).toInt(), int(files[0].size() + files[1].size()));
    QCOMPARE(found.value("records"_s).toInt(), 700);
    QCOMPARE(found.value("lowest"_s).toString(), "1"_s);
    QCOMPARE(found.value("highest"_s).toString(), "700"_s);
    const QString format = "yyyy-MM-ddTHH:mm:ss.250000Z"_s;
    QCOMPARE(found.value("earliest"_s).toString(),
             QDateTime::fromSecsSinceEpoch(own.earliest, Qt::UTC).toString(format));
    QCOMPARE(found.value("latest"_s).toString(),
             QDateTime::fromSecsSinceEpoch(own.latest, Qt::UTC).toString(format));
    QCOMPARE(found.value("clockBack"_s).toObject().value("times"_s).toInt(), own.stepsBack);
    const QJsonObject event = found.value("events"_s).toArray().first().toObject();
    QCOMPARE(event.value("name"_s).toString(), "supply"_s);
    QCOMPARE(event.value("service"_s).toString(), "power"_s);
    QCOMPARE(event.value("level"_s).toString(), "notice"_s);
    QCOMPARE(event.value("levelNumber"_s).toInt(), 5);
    for (const char *const none : {"otherEvents", "otherPaths"}) {
        QCOMPARE(found.value(QLatin1String(none)).toObject().value("records"_s).toInt(-1), 0);
    }
}

void CtlStatsTest::jsonOfLosses()
{
    folder->put(1, numbered(1, 4) + numbered(8, 8) + numbered(10, 12));
    folder->put(0, numbered(11, 14, 1699990000));
    const QJsonObject found = object();
    const auto text = [&found](const char *member) {
        return QString::fromUtf8(QJsonDocument(found.value(QLatin1String(member)).toObject())
                                     .toJson(QJsonDocument::Compact));
    };
    QCOMPARE(text("missing"), R"({"gaps":2,"numbers":"4","ranges":[["5","7"],["9","9"]]})"_s);
    QCOMPARE(text("repeated"), R"({"isComplete":true,"numbers":"2","ranges":[["11","12"]]})"_s);
    QCOMPARE(found.value("restarts"_s).toInt(), 1);
    QCOMPARE(text("clockBack"),
             R"({"largest":[{"from":"2023-11-14T22:13:32.250000Z","number":"11",)"
             R"("to":"2023-11-14T19:26:51.250000Z"}],"times":1})"_s);
    QCOMPARE(text("damage"),
             R"({"damaged":0,"likely":0,"lostBytes":0,"notCounted":0,"places":0})"_s);
}

void CtlStatsTest::jsonOfTimes()
{
    folder->put(0, mixed(1, 500));
    const QJsonObject found = object();
    const int step = found.value("step"_s).toObject().value("seconds"_s).toInt();
    QVERIFY(step > 1);
    QVERIFY(found.value("times"_s).toArray().size() <= 100);
    Counts wanted;
    const QList<QJsonObject> records = runCtl(arguments({"-o"_s, "json"_s}, "show")).objects();
    QCOMPARE(records.size(), 500);
    for (const QJsonObject &each : records) {
        const qint64 time
            = QDateTime::fromString(each.value("time"_s).toString().left(19) + "Z"_s, Qt::ISODate)
                  .toSecsSinceEpoch();
        count(wanted,
              QDateTime::fromSecsSinceEpoch(time - time % step, Qt::UTC)
                  .toString("yyyy-MM-ddTHH:mm:ss.000000Z"_s),
              each.value("length"_s).toInt());
    }
    QCOMPARE(countsOf(found.value("times"_s), "from"_s), wanted);
}

void CtlStatsTest::selections_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("isSome"); // and not all

    QTest::newRow("all of them") << QStringList() << false;
    QTest::newRow("the last ones") << QStringList{"-n"_s, "37"_s} << true;
    QTest::newRow("in any order") << QStringList{"-n"_s, "37"_s, "-r"_s} << true;
    QTest::newRow("since") << QStringList{"-S"_s, "2023-11-16T22:00:00Z"_s} << true;
    QTest::newRow("until") << QStringList{"-U"_s, "2023-11-16T22:00:00Z"_s} << true;
    QTest::newRow("numbers") << QStringList{"--number"_s, "20..90"_s, "--number"_s, "600.."_s}
                             << true;
    QTest::newRow("a level") << QStringList{"-p"_s, "error"_s} << true;
    QTest::newRow("levels") << QStringList{"-p"_s, "5..5"_s} << true;
    QTest::newRow("an event") << QStringList{"-e"_s, "overload"_s, "-e"_s, "77"_s} << true;
    QTest::newRow("a service") << QStringList{"-s"_s, "text"_s} << true;
    QTest::newRow("paths") << QStringList{"--path"_s, "/b*"_s} << true;
    QTest::newRow("texts") << QStringList{"-g"_s, "Load xx*$"_s} << true;
    QTest::newRow("texts of a language")
        << QStringList{"-g"_s, "Versorgung"_s, "-l"_s, "de"_s} << true;
    QTest::newRow("several conditions")
        << QStringList{"-e"_s, "1001"_s, "--path"_s, "/a"_s, "-n"_s, "10"_s} << true;
}

//! Against what "show" prints with the same options.
void CtlStatsTest::selections()
{
    QFETCH(QStringList, options);
    QFETCH(bool, isSome);
    folder->put(2, mixed(1, 300));
    folder->put(1, mixed(310, 700));
    folder->put(0, mixed(650, 720));
    Counts events;
    Counts paths;
    const QList<QJsonObject> shown
        = runCtl(arguments(QStringList{"-o"_s, "json"_s} + options, "show")).objects();
    for (const QJsonObject &each : shown) {
        const int size = each.value("length"_s).toInt();
        count(events, keyOf(each, "event"_s), size);
        count(paths, keyOf(each, "path"_s), size);
    }
    const QJsonObject found = object(options);
    QCOMPARE(found.value("records"_s).toInt(), int(shown.size()));
    QCOMPARE(countsOf(found.value("events"_s), "event"_s), events);
    QCOMPARE(countsOf(found.value("paths"_s), "path"_s), paths);
    QVERIFY(!shown.isEmpty());
    QCOMPARE(shown.size() < 762, isSome);
    const QByteArray records = "\nRecords    " + QByteArray::number(shown.size()) + ", ";
    QVERIFY(stats(options).out.contains(records));
}

//! The order in which records are shown is not that of the log.
void CtlStatsTest::newestFirst()
{
    folder->put(1, mixed(1, 300));
    folder->put(0, mixed(310, 700));
    for (const QString &last : {"500"_s, "50"_s}) {
        const QStringList options{"-o"_s, "json"_s, "-n"_s, last};
        const CtlRun run = stats(options);
        QCOMPARE(run.status, 0);
        QCOMPARE(stats(options + QStringList{"-r"_s}).out, run.out);
    }
}

void CtlStatsTest::exitStatus_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("status");

    QTest::newRow("found") << QStringList() << 0;
    QTest::newRow("nothing matched") << QStringList{"--number"_s, "99"_s} << 1;
    QTest::newRow("nothing asked for") << QStringList{"-n"_s, "0"_s} << 1;
    QTest::newRow("a level that there is not") << QStringList{"-p"_s, "err"_s} << 2;
    QTest::newRow("nothing goes on") << QStringList{"-f"_s} << 2;
}

void CtlStatsTest::exitStatus()
{
    QFETCH(QStringList, options);
    QFETCH(int, status);
    folder->put(0, numbered(1, 9));
    QCOMPARE(stats(options).status, status);
    if (status < 2) {
        QCOMPARE(stats(options + QStringList{"-o"_s, "json"_s}).status, status);
    }
}

void CtlStatsTest::nothing()
{
    const CtlRun text = stats(); // of an empty folder
    QCOMPARE(text.status, 1);
    QCOMPARE(text.out, QByteArray());
    QCOMPARE(text.errors, QByteArray("systemeventctl: there are no such records\n"));
    const CtlRun silent = stats({"-q"_s});
    QCOMPARE(silent.status, 1);
    QCOMPARE(silent.out + silent.errors, QByteArray());
    const CtlRun json = stats({"-o"_s, "json"_s});
    QCOMPARE(json.status, 1);
    QCOMPARE(json.errors, QByteArray());
    const QJsonObject found = json.objects().first();
    QCOMPARE(found.value("records"_s).toInt(-1), 0);
    QVERIFY(found.value("lowest"_s).isNull());
    QVERIFY(found.value("earliest"_s).isNull());
    for (const char *const each : {"events", "paths", "levels", "services", "times"}) {
        QVERIFY2(found.value(QLatin1String(each)).isArray(), each);
        QCOMPARE(found.value(QLatin1String(each)).toArray().size(), 0);
    }
}

void CtlStatsTest::damage()
{
    QByteArray broken = storedEvent(5);
    broken[broken.size() - 3] = 'x'; // its end mark
    folder->put(0,
                numbered(1, 4) + broken + numbered(6, 7) + QByteArray(50, '\0') + numbered(9, 11));
    const CtlRun run = stats();
    QCOMPARE(run.status, 3);
    QCOMPARE(run.errors, QByteArray());
    QVERIFY2(run.out.contains("\nRecords    10, numbers 1 to 11\n"), run.out.constData());
    QVERIFY2(run.out.contains("\nDamage     1 damaged record, 50 bytes lost in 1 place\n"),
             run.out.constData());
    QVERIFY(run.out.contains("\nMissing    1 number: 8\n"));
    const QJsonObject harm = object().value("damage"_s).toObject();
    QCOMPARE(harm.value("damaged"_s).toInt(), 1);
    QCOMPARE(harm.value("places"_s).toInt(), 1);
    QCOMPARE(harm.value("lostBytes"_s).toInt(), 50);
    // Elsewhere there is none.
    QCOMPARE(stats({"--number"_s, "9.."_s}).status, 3); // but right beside it
    QCOMPARE(stats({"--number"_s, "10.."_s}).status, 0);
    // Of damage alone there is nothing to count but that.
    folder->put(0, QByteArray(500, '\0'));
    const CtlRun lost = stats();
    QCOMPARE(lost.status, 3);
    QVERIFY2(lost.out.contains("\nDamage     500 bytes lost in 1 place\n"), lost.out.constData());
    QVERIFY(!lost.out.contains("share"));
    QCOMPARE(object().value("records"_s).toInt(-1), 0);
}

void CtlStatsTest::unreadable()
{
    const CtlRun missing = runCtl({"stats"_s, "-D"_s, "/nowhere/at/all"_s, "-C"_s, catalogue});
    QCOMPARE(missing.status, 4);
    QCOMPARE(missing.out, QByteArray());
    QVERIFY(missing.errors.contains("/nowhere/at/all: the folder cannot be read"));
    const CtlRun noCatalogue
        = runCtl({"stats"_s, "-D"_s, folder->dir().path(), "-C"_s, "/nowhere"_s});
    QCOMPARE(noCatalogue.status, 4);
    folder->put(1, numbered(1, 4));
    folder->put(0, numbered(5, 9));
    QCOMPARE(::chmod(QFile::encodeName(folder->path(LogFolder::name(1))).constData(), 0), 0);
    const CtlRun run = runShell(asOrdinaryUser() + line("-o json"_s));
    QCOMPARE(run.status, 4);
    QVERIFY2(run.errors.contains("zib1.log: cannot be read"), run.errors.constData());
    const QJsonObject found = run.objects().first();
    QCOMPARE(found.value("isComplete"_s).toBool(true), false);
    QCOMPARE(found.value("records"_s).toInt(), 5); // of what can be read
    const CtlRun text = runShell(asOrdinaryUser() + line());
    QCOMPARE(text.status, 4);
    QVERIFY2(text.out.simplified().contains("of which not everything can be read Records"),
             text.out.constData());
}

void CtlStatsTest::withoutCatalogue()
{
    folder->put(0, numbered(1, 4));
    const CtlRun run = runCtl({"stats"_s, "-D"_s, folder->dir().path()});
    QCOMPARE(run.status, 0);
    QVERIFY(run.errors.contains("there is no catalogue"));
    QVERIFY(run.out.contains("\n1001 "));
    QVERIFY(!run.out.contains("\nLevel ")); // of which nothing is known
    QVERIFY(!run.out.contains("\nService "));
}

void CtlStatsTest::zones()
{
    folder->put(0, numbered(1, 1, 1700002799) + numbered(2, 2, 1700002800)); // 23:00 in UTC
    const QString zone = "env TZ=CET-1CEST,M3.5.0,M10.5.0/3"_s;
    const auto run = [&](const QString &options) {
        return runShell(zone + " \"$CTL\" stats -D "_s + folder->dir().path() + " -C "_s + catalogue
                        + " "_s + options)
            .out;
    };
    QVERIFY(run({}).contains("\nPeriod     2023-11-15 00:00:00 to 2023-11-15 00:00:02, 2 s\n"));
    QVERIFY(run({}).contains("\n2023-11-15 00:00:02 "));
    QVERIFY(run("--time utc"_s).contains("\n2023-11-14 23:00:02 "));
    QVERIFY(run("--time utc"_s).contains("\nPeriod     2023-11-14T23:00:00Z to "));
    QVERIFY(run("-o json"_s).contains("{\"from\":\"2023-11-14T23:00:02.000000Z\","));
    QCOMPARE(run("-o json --time local"_s), run("-o json"_s));
}

void CtlStatsTest::hostileTexts()
{
    QFile file(catalogue);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("<systemevents><enum name=\"LogLevel\"><item value=\"3\" name=\"\xC2\x9B"
               "31m\"/></enum><service name=\"&#10;line\xE2\x80\xAE\">"
               "<event id=\"1001\" name=\"\xC2\x9B"
               "2J&#9;\xE2\x80\xA8\" loglevel=\"\xC2\x9B"
               "31m\"/></service></systemevents>");
    file.close();
    QVERIFY(folder->dir().mkdir("a\x1B[2J\nb"_s));
    const QString inner = folder->path("a\x1B[2J\nb"_s);
    QFile log(inner + "/zib0.log"_s);
    QVERIFY(log.open(QIODevice::WriteOnly));
    log.write(numbered(1, 3) + storedEvent(4, 1700000004, 1001, "/\x1B[2J\r\n\xE2\x80\xAE<>&\"")
              + storedEvent(5, 1700000005, 1001, "/" + QByteArray(60000, 'p')) + numbered(6, 9));
    log.close();
    const QStringList source{"stats"_s, "-D"_s, inner, "-C"_s, catalogue};
    const CtlRun text = runCtl(source);
    QVERIFY(text.status == 0 || text.status == 3);
    QVERIFY2(text.out.startsWith("Log        "), text.out.constData());
    QVERIFY(text.out.contains("a\\x1b[2J\\x0ab"));
    const QString shown = QString::fromUtf8(text.out);
    for (const QChar c : shown) {
        const ushort code = c.unicode();
        QVERIFY(code == 0x0A || (code >= 0x20 && code < 0x7F) || code >= 0xA0);
        QVERIFY(code != 0x202E && code != 0x2028);
    }
    for (const QString &each : shown.split(QLatin1Char('\n'))) {
        QVERIFY2(each.size() <= 80, qPrintable(each));
    }
    const CtlRun json = runCtl(source + QStringList{"-o"_s, "json"_s});
    const QJsonObject found = json.objects().first();
    QCOMPARE(found.value("folder"_s).toString(), inner);
    QCOMPARE(found.value("services"_s).toArray().first().toObject().value("service"_s).toString(),
             QString::fromUtf8("\nline\xE2\x80\xAE"));
}

//! What there is no room for is not left out, and not taken for something else.
void CtlStatsTest::manyPaths()
{
    constexpr int room = 8192;
    QByteArray bytes;
    for (int i = 1; i <= room + 40; ++i) {
        bytes += storedEvent(quint64(i), 1700000000, 100000 + i, "/p" + QByteArray::number(i));
    }
    bytes += storedEvent(room + 41, 1700000000, 1002, "/p1"); // known ones always have room
    folder->put(0, bytes);
    const QJsonObject found = object();
    QCOMPARE(found.value("paths"_s).toArray().size(), room);
    QCOMPARE(found.value("events"_s).toArray().size(), room + 1);
    for (const char *const each : {"otherEvents", "otherPaths"}) {
        QCOMPARE(found.value(QLatin1String(each)).toObject().value("records"_s).toInt(), 40);
    }
    QCOMPARE(countsOf(found.value("levels"_s), "level"_s).value("none"_s).first, room + 40);
    const QByteArray out = stats().out;
    QVERIFY2(out.contains("\nBusiest    /p1 with 0.0% of the records, of the paths in memory\n"),
             out.constData());
    QVERIFY2(out.contains("\nmore than 8182 others "), out.constData());
}

void CtlStatsTest::timeSteps_data()
{
    QTest::addColumn<int>("distance"); // of 1,000 records, in seconds
    QTest::addColumn<QByteArray>("title");
    QTest::addColumn<QByteArray>("first");

    const auto row = [](int distance, const char *title, const char *first) {
        QTest::newRow(title) << distance << QByteArray(title) << QByteArray(first);
    };
    row(1, "Time, by minute ", "2023-11-14 22:13 ");
    row(60, "Time, by hour ", "2023-11-14 22:00 ");
    row(900, "Time, by 12 hours ", "2023-11-14 12:00 ");
    row(1800, "Time, by day ", "2023-11-14 Tue ");
    row(10000, "Time, by week ", "2023-11-13 Mon ");
    row(40000, "Time, by month ", "2023-11 ");
    row(150000, "Time, by 3 months ", "2023-10 ");
    row(500000, "Time, by year ", "2023 ");
    row(2000000, "Time, by 10 years ", "2020 ");
}

void CtlStatsTest::timeSteps()
{
    QFETCH(int, distance);
    QFETCH(QByteArray, title);
    QFETCH(QByteArray, first);
    QByteArray bytes;
    for (int i = 0; i < 1000; ++i) {
        bytes += storedEvent(quint64(i) + 1, 1700000000 + qint64(i) * distance);
    }
    folder->put(0, bytes);
    const QByteArray out = stats({"--time"_s, "utc"_s}).out;
    const auto begin = out.indexOf('\n' + title);
    QVERIFY2(begin >= 0, out.constData());
    QVERIFY2(out.indexOf('\n' + first, begin + 1) == out.indexOf('\n', begin + 1), out.constData());
}

void CtlStatsTest::everyWidth_data()
{
    QTest::addColumn<int>("columns");

    for (const int columns : {60, 80, 81, 100, 132, 200}) {
        QTest::addRow("%d columns", columns) << columns;
    }
}

void CtlStatsTest::everyWidth()
{
    QFETCH(int, columns);
    QByteArray bytes = mixed(1, 200);
    bytes += storedEvent(201, 1700200000, 1001, "/" + QByteArray(150, 'p') + "/end");
    folder->put(0, bytes);
    const QString shown = QString::fromUtf8(withoutColours(Terminal(line(), columns).finish()));
    int tables = 0;
    for (const QString &each : shown.split("\n\n"_s)) {
        int widest = 0;
        for (const QString &row : each.split(QLatin1Char('\n'))) {
            QVERIFY2(row.size() <= columns, qPrintable(row));
            QVERIFY2(!row.endsWith(QLatin1Char(' ')), qPrintable(row));
            widest = std::max(widest, row.endsWith(QChar(0x2588)) ? int(row.size()) : 0);
        }
        const bool isTable = each.contains("bytes each"_s);
        QCOMPARE(widest, isTable ? columns : 0); // of the longest bar
        tables += isTable ? 1 : 0;
    }
    QCOMPARE(tables, 5);
    QVERIFY(shown.contains("ppp/end "_s));
}

void CtlStatsTest::colours()
{
    folder->put(0, mixed(1, 200));
    const QByteArray red = "\n\x1B[1;31merror\x1B[0m ";
    QVERIFY(Terminal(line(), 80).finish().contains(red));
    QVERIFY(!Terminal(line("--color never"_s), 80).finish().contains('\x1B'));
    QVERIFY(!Terminal(line({}, "NO_COLOR=1"_s), 80).finish().contains('\x1B'));
    QVERIFY(!stats().out.contains('\x1B'));
    QVERIFY(stats({"--color"_s, "always"_s}).out.contains(red));
    QCOMPARE(withoutColours(stats({"--color"_s, "always"_s}).out), stats().out);
    QVERIFY(!stats({"--color"_s, "always"_s, "-o"_s, "json"_s}).out.contains('\x1B'));
}

void CtlStatsTest::pager()
{
    folder->put(0, numbered(1, 9));
    const QString own = "PAGER='echo paged; cat'"_s;
    QVERIFY(Terminal(line({}, own), 80).finish().startsWith("paged\n"));
    QVERIFY(!Terminal(line("--no-pager"_s, own), 80).finish().contains("paged"));
    QVERIFY(!Terminal(line("| cat"_s, own), 80).finish().contains("paged"));
    Terminal left(line({}, "PAGER=true"_s), 80);
    (void)left.finish();
    QCOMPARE(left.status(), 0);
}

void CtlStatsTest::readsNoInput()
{
    folder->put(0, numbered(1, 2));
    const CtlRun run = runShell("printf input | { "_s + line() + " >/dev/null; cat; }"_s);
    QCOMPARE(run.out, QByteArray("input"));
}

void CtlStatsTest::closedOutput()
{
    folder->put(0, numbered(1, 9));
    const CtlRun run = runShell("{ "_s + line("-o json"_s) + "; echo $? >&2; } | true"_s);
    QVERIFY2(run.errors == "141\n" || run.errors == "0\n", run.errors.constData());
}

void CtlStatsTest::fullOutput()
{
    folder->put(0, numbered(1, 9));
    const CtlRun run = runShell(line(">/dev/full"_s));
    QCOMPARE(run.status, 4);
    QVERIFY(run.errors.contains("standard output cannot be written: No space left on device"));
}

QTEST_GUILESS_MAIN(CtlStatsTest)
#include "tst_ctlstats.moc"

// SPDX-License-Identifier: Apache-2.0

// What "collect" gives to a store that is to be complete: of folders made by hand, of random
// histories of a log, and beside a writer that rotates all the time.
// SEL_FOLLOW_SECONDS sets for how long the writer writes (3), SEL_COLLECT_SEED and
// SEL_COLLECT_ROUNDS which histories there are, and how many (20).

#include "binlog/binaryloginterface.h"
#include "ctl/ctlprocess.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <numeric>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include <sys/resource.h>

using RecordBytes::Fields;
using RecordBytes::record;
using RecordBytes::sized;

namespace
{

QByteArray storedEvent(quint64 logNr, qint64 seconds, qint32 microseconds = 250000)
{
    Fields fields;
    fields.logNr = logNr;
    fields.seconds = seconds;
    fields.microseconds = microseconds;
    fields.eventId = 9;
    fields.values = sized("number " + QByteArray::number(logNr));
    return record(fields);
}

//! A record each second, with the second of its number behind \a epoch.
QByteArray numbered(quint64 from, quint64 to, qint64 epoch = 1700000000)
{
    QByteArray bytes;
    for (quint64 i = from; i <= to; ++i) {
        bytes += storedEvent(i, epoch + qint64(i));
    }
    return bytes;
}

//! A time as the tool writes it.
QString timeText(qint64 seconds, int microseconds = 250000)
{
    return QDateTime::fromMSecsSinceEpoch(1000 * seconds, Qt::UTC).toString("yyyy-MM-ddTHH:mm:ss"_s)
        + ".%1Z"_s.arg(microseconds, 6, 10, QLatin1Char('0'));
}

constexpr qint64 early = 1700000000; //!< when the numbers of numbered() begin
constexpr qint64 late = 1800000000;  //!< when those do that began again

//! The last record that a store has, as options.
QStringList behind(quint64 number, const QString &time)
{
    return {"--after"_s, QString::number(number), "--at"_s, time};
}

QStringList behind(quint64 number, qint64 epoch = early)
{
    return behind(number, timeText(epoch + qint64(number)));
}

/*!
 * The lines in short: numbers of whole records, with a letter behind those of others; "lost",
 * "missing A-B", "restarted N", "resume N".
 */
QString shortForm(const CtlRun &run)
{
    QStringList words;
    const QList<QJsonObject> lines = run.objects();
    for (const QJsonObject &line : lines) {
        if (line.contains("missing"_s)) {
            const QJsonArray range = line.value("missing"_s).toArray();
            words.append("missing %1-%2"_s.arg(range.at(0).toString(), range.at(1).toString()));
        } else if (line.contains("restarted"_s)) {
            words.append("restarted "_s + line.value("restarted"_s).toString());
        } else if (line.contains("resume"_s)) {
            words.append("resume "_s + line.value("resume"_s).toString());
        } else if (line.contains("number"_s)) {
            const QString state = line.value("state"_s).toString();
            words.append(line.value("number"_s).toString()
                         + (state == "whole"_s ? QString() : state.left(1)));
        } else {
            words.append(line.value("state"_s).toString());
        }
    }
    return words.join(QLatin1Char(' '));
}

//! What is kept of a device, as the document describes it.
class Store
{
public:
    using Key = std::pair<quint64, QString>; //!< a number and its time

    //! Runs the tool once, and takes what it has printed; its status.
    int collect(const QDir &dir)
    {
        QStringList arguments{"collect"_s, "-q"_s, "-D"_s, dir.path()};
        if (!position.second.isEmpty()) {
            arguments += behind(position.first, position.second);
        }
        const CtlRun run = runCtl(arguments);
        take(run);
        return run.status;
    }
    //! The same, and calls a function again and again meanwhile.
    template <typename Function>
    int collectBeside(const QDir &dir, Function &&function)
    {
        QStringList arguments{"collect"_s, "-q"_s, "-D"_s, dir.path()};
        if (!position.second.isEmpty()) {
            arguments += behind(position.first, position.second);
        }
        QProcess process;
        process.start(ctlProgram(), arguments);
        while (!process.waitForFinished(1) && process.state() != QProcess::NotRunning) {
            function();
        }
        CtlRun run;
        run.out = process.readAllStandardOutput();
        take(run);
        return process.exitCode();
    }
    void take(const CtlRun &run)
    {
        lines = shortForm(run);
        history.push_back(lines);
        const QList<QJsonObject> objects = run.objects();
        if (objects.isEmpty() || !objects.last().contains("resume"_s)) {
            qFatal("there is no place to go on from: %s", run.out.constData());
        }
        for (const QJsonObject &line : objects) {
            take(line);
        }
    }

    //! For who looks for a mistake.
    void tellRunsWith(quint64 number) const
    {
        for (const QString &run : history) {
            if (run.contains(QString::number(number))) {
                qWarning("%s", qPrintable(run));
            }
        }
    }

    std::vector<Key> received; //!< in the order in which they came
    std::set<Key> records;
    std::vector<std::pair<quint64, quint64>> missing;
    int restarts = 0;
    Key position;
    QString lines;                //!< of the last run, in short
    std::vector<QString> history; //!< the same of all runs

private:
    void take(const QJsonObject &line)
    {
        if (line.contains("missing"_s)) {
            const QJsonArray range = line.value("missing"_s).toArray();
            missing.emplace_back(range.at(0).toString().toULongLong(),
                                 range.at(1).toString().toULongLong());
        } else if (line.contains("restarted"_s)) {
            ++restarts;
        } else if (line.contains("resume"_s)) {
            position = {line.value("resume"_s).toString().toULongLong(),
                        line.value("time"_s).toString()};
        } else if (line.contains("number"_s)) {
            received.emplace_back(line.value("number"_s).toString().toULongLong(),
                                  line.value("time"_s).toString());
            records.insert(received.back());
        }
    }
};

} // namespace

class CtlCollectTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void lines_data();
    void lines();
    void numbersThatBeganAgain_data();
    void numbersThatBeganAgain();
    void damage_data();
    void damage();
    void forms();
    void sameObjectsAsShow();
    void everyMicrosecond_data();
    void everyMicrosecond();
    void emptyFolder();
    void tornEnd();
    void recordInPieces();
    void unreadable();
    void wrongUsage_data();
    void wrongUsage();
    void outputs();
    void besideTheWriter_data();
    void besideTheWriter();
    void randomHistories();
    void memory();

private:
    [[nodiscard]] CtlRun collect(const QStringList &more = {}) const
    {
        return runCtl(
            QStringList{"collect"_s, "-D"_s, folder->dir().path(), "-C"_s, testCatalogue()} + more);
    }
    //! The oldest file first.
    void put(const QList<QByteArray> &files) const
    {
        for (int i = 0; i < int(files.size()); ++i) {
            folder->put(int(files.size()) - 1 - i, files.at(i));
        }
    }

    std::unique_ptr<LogFolder> folder;
};

void CtlCollectTest::init()
{
    folder = std::make_unique<LogFolder>();
}

void CtlCollectTest::lines_data()
{
    QTest::addColumn<QList<QByteArray>>("files"); // the oldest first
    QTest::addColumn<QStringList>("from");
    QTest::addColumn<QString>("wanted");

    using Files = QList<QByteArray>;
    const auto row
        = [](const char *name, const Files &files, const QStringList &from, const char *wanted) {
              QTest::newRow(name) << files << from << QString::fromLatin1(wanted);
          };
    const Files two{numbered(3, 5), numbered(6, 8)};
    row("without a number it begins with the oldest", two, {}, "3 4 5 6 7 8 resume 8");
    row("so it does behind 0", two, behind(0, "1970-01-01T00:00:00.000000Z"_s),
        "3 4 5 6 7 8 resume 8");
    row("so it does behind no record at all", two, {"--after"_s, "0"_s}, "3 4 5 6 7 8 resume 8");
    row("behind a record comes what is newer", two, behind(4), "5 6 7 8 resume 8");
    row("behind the last one of a file comes the next file", two, behind(5), "6 7 8 resume 8");
    row("behind the last one nothing is new", two, behind(8), "resume 8");
    row("what was rotated away is missing", two, behind(1), "missing 2-2 3 4 5 6 7 8 resume 8");
    row("unless all of it was there", two, behind(2), "3 4 5 6 7 8 resume 8");
    row("after a clearing numbers go on", {numbered(20, 21)}, behind(8),
        "missing 9-19 20 21 resume 21");
    row("a hole is missing", {numbered(3, 5), numbered(8, 9)}, behind(4),
        "5 missing 6-7 8 9 resume 9");
    row("each hole by itself", {numbered(3, 3) + numbered(5, 5) + numbered(7, 9)}, behind(3),
        "missing 4-4 5 missing 6-6 7 8 9 resume 9");
    row("a current file without a record is none", {numbered(3, 5), QByteArray()}, behind(4),
        "5 resume 5");
    row("a folder without a record keeps the place", {QByteArray()}, behind(4), "resume 4");
}

void CtlCollectTest::lines()
{
    QFETCH(QList<QByteArray>, files);
    QFETCH(QStringList, from);
    QFETCH(QString, wanted);
    put(files);
    const CtlRun run = collect(from);
    QCOMPARE(shortForm(run), wanted);
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
}

void CtlCollectTest::numbersThatBeganAgain_data()
{
    QTest::addColumn<QList<QByteArray>>("files"); // the oldest first
    QTest::addColumn<QStringList>("from");
    QTest::addColumn<QString>("wanted");

    using Files = QList<QByteArray>;
    const auto row
        = [](const char *name, const Files &files, const QStringList &from, const char *wanted) {
              QTest::newRow(name) << files << from << QString::fromLatin1(wanted);
          };
    const Files two{numbered(3, 5), numbered(6, 8)};
    row("another time means that numbers began again", {numbered(1, 5, late)}, behind(4),
        "restarted 1 1 2 3 4 5 resume 5");
    row("so does a microsecond", two, behind(4, timeText(early + 4, 250001)),
        "restarted 3 3 4 5 6 7 8 resume 8");
    row("so does a number beyond the largest", {numbered(1, 3, late)}, behind(4),
        "restarted 1 1 2 3 resume 3");
    row("what was rotated away of the new numbers is missing",
        {numbered(3, 4, late), numbered(5, 9, late)}, behind(8),
        "restarted 3 missing 1-2 3 4 5 6 7 8 9 resume 9");
    row("numbers given again in part are told from where they are, with all of it",
        {numbered(3, 6) + numbered(7, 8, late)}, behind(8), "restarted 3 3 4 5 6 7 8 resume 8");
    row("numbers that began again and are beyond look as if they had gone on",
        {numbered(20, 21, late)}, behind(8), "missing 9-19 20 21 resume 21");

    const Files runs{numbered(10, 12), numbered(1, 3, late)};
    row("lower numbers in newer files have begun again", runs, {},
        "10 11 12 restarted 1 1 2 3 resume 3");
    row("behind a record of the old ones", runs, behind(11), "12 restarted 1 1 2 3 resume 3");
    row("behind the last one of them", runs, behind(12), "restarted 1 1 2 3 resume 3");
    row("behind one that was rotated away", runs, behind(8),
        "missing 9-9 10 11 12 restarted 1 1 2 3 resume 3");
    row("behind one of the new ones", runs, behind(2, late), "3 resume 3");
    row("behind the last of these", runs, behind(3, late), "resume 3");
    row("numbers that both have are told by the time", {numbered(1, 12), numbered(1, 3, late)},
        behind(2), "3 4 5 6 7 8 9 10 11 12 restarted 1 1 2 3 resume 3");
    row("also those of the new ones", {numbered(1, 12), numbered(1, 3, late)}, behind(2, late),
        "3 resume 3");
    row("in the middle of a file as well", {numbered(10, 12) + numbered(1, 3, late)}, behind(11),
        "12 restarted 1 1 2 3 resume 3");
    row("where another one has its number, the old ones may be its own",
        {numbered(10, 12), numbered(1, 9, late)}, behind(8),
        "missing 9-9 10 11 12 restarted 1 1 2 3 4 5 6 7 8 9 resume 9");
    row("but not where they are older", {numbered(10, 12), numbered(1, 3, late)},
        behind(2, timeText(late)), "restarted 10 10 11 12 restarted 1 1 2 3 resume 3");

    row("a record that is gone from among the others is gone on behind",
        {numbered(1, 3) + numbered(5, 7)}, behind(4), "5 6 7 resume 7");
    row("and what is gone with it is missing", {numbered(1, 3), numbered(7, 8)}, behind(4),
        "missing 5-6 7 8 resume 8");
    row("unless those before it are later: then numbers began again",
        {numbered(1, 3, late) + numbered(5, 7, late)}, behind(4),
        "restarted 1 1 2 3 missing 4-4 5 6 7 resume 7");
}

void CtlCollectTest::numbersThatBeganAgain()
{
    lines();
}

void CtlCollectTest::damage_data()
{
    QTest::addColumn<QList<QByteArray>>("files"); // the oldest first
    QTest::addColumn<QStringList>("from");
    QTest::addColumn<QString>("wanted");
    QTest::addColumn<int>("status");

    using Files = QList<QByteArray>;
    const auto row = [](const char *name, const Files &files, const QStringList &from,
                        const char *wanted, int status) {
        QTest::newRow(name) << files << from << QString::fromLatin1(wanted) << status;
    };
    const QByteArray zeros(40, '\0');
    QByteArray wrongEnd = numbered(5, 5);
    wrongEnd[int(wrongEnd.size()) - 1] = '\x7f';
    QByteArray wrongFirst = wrongEnd;
    wrongFirst.replace(0, 8, RecordBytes::number(1, 8));
    QByteArray wrongHead = numbered(5, 5);
    wrongHead.replace(0, 8, QByteArray(8, '\xff'));

    row("bytes that are no record are lost, and what was there is missing",
        {numbered(1, 4) + zeros + numbered(7, 9)}, behind(3), "4 lost missing 5-6 7 8 9 resume 9",
        3);
    row("a damaged record with its number is given, and not missing",
        {numbered(1, 4) + wrongEnd + numbered(6, 9)}, behind(3), "4 5d 6 7 8 9 resume 9", 3);
    row("one without its number is lost", {numbered(1, 4) + wrongHead + numbered(6, 9)}, behind(3),
        "4 lost missing 5-5 6 7 8 9 resume 9", 3);
    row("one between damage on both sides is likely, and not missing",
        {numbered(1, 4) + zeros + numbered(6, 6) + zeros + numbered(8, 12)}, behind(3),
        "4 lost 6l lost missing 5-5 missing 7-7 8 9 10 11 12 resume 12", 3);
    row("a likely one that does not fit between the others moves nothing",
        {numbered(10, 14) + zeros + numbered(2, 2) + zeros + numbered(17, 20)}, behind(13),
        "14 lost 2l lost missing 15-16 17 18 19 20 resume 20", 3);
    row("damage in front of the record is told already", {numbered(1, 4) + zeros + numbered(7, 9)},
        behind(8), "9 resume 9", 0);
    row("damage at the end is left for the next time", {numbered(1, 4) + zeros}, behind(3),
        "4 resume 4", 0);
    row("also a record, as its number may be given again", {numbered(1, 4) + wrongEnd}, behind(3),
        "4 resume 4", 0);
    row("and one that is likely", {numbered(1, 4) + zeros + numbered(9, 9) + zeros}, behind(3),
        "4 resume 4", 0);
    row("also that of the file before, while there is no other record",
        {numbered(1, 4) + zeros, QByteArray()}, behind(4), "resume 4", 0);
    row("and told once there is one", {numbered(1, 4) + zeros, numbered(6, 7)}, behind(4),
        "lost missing 5-5 6 7 resume 7", 3);
    row("numbers begin again with a whole record",
        {numbered(10, 12), wrongFirst + numbered(2, 5, late)}, behind(11),
        "12 1d restarted 2 2 3 4 5 resume 5", 3);
    row("a damaged record that the store has is found",
        {numbered(1, 4) + wrongEnd + numbered(6, 9)}, behind(5), "6 7 8 9 resume 9", 0);
    row("one that has become unreadable is gone on behind, as its neighbours are known",
        {numbered(1, 4) + wrongHead + numbered(6, 9)}, behind(5), "lost 6 7 8 9 resume 9", 3);
    row("a folder of nothing but damage has nothing to give", {zeros}, behind(5), "resume 5", 0);
}

void CtlCollectTest::damage()
{
    QFETCH(QList<QByteArray>, files);
    QFETCH(QStringList, from);
    QFETCH(QString, wanted);
    QFETCH(int, status);
    put(files);
    folder->setAge("zib0.log"_s, 3600); // a fresh torn end is waited for
    const CtlRun run = collect(from);
    QCOMPARE(shortForm(run), wanted);
    QCOMPARE(run.status, status);
}

void CtlCollectTest::forms()
{
    put({numbered(3, 3) + numbered(6, 6)});
    const CtlRun first = collect();
    const QList<QByteArray> lines = first.out.split('\n');
    QCOMPARE(lines.at(1), QByteArray(R"({"missing":["4","5"]})"));
    QCOMPARE(lines.at(3), QByteArray(R"({"resume":"6","time":"2023-11-14T22:13:26.250000Z"})"));
    QCOMPARE(lines.size(), QList<QByteArray>::size_type(5));
    put({numbered(1, 1, late)});
    const CtlRun second = collect(behind(6, "2023-11-14T22:13:26.250000Z"_s));
    QCOMPARE(second.out.left(second.out.indexOf('\n')), QByteArray(R"({"restarted":"1"})"));
}

void CtlCollectTest::sameObjectsAsShow()
{
    put({numbered(1, 3), numbered(4, 6)});
    const CtlRun shown = runCtl(
        {"show"_s, "-o"_s, "json"_s, "-D"_s, folder->dir().path(), "-C"_s, testCatalogue()});
    const CtlRun collected = collect();
    QVERIFY(shown.out.contains("\"message\":\"number 6\""));
    QCOMPARE(collected.out.left(shown.out.size()), shown.out);
    QCOMPARE(collected.out.count('\n'), shown.out.count('\n') + 1);
}

void CtlCollectTest::everyMicrosecond_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<int>("microseconds");

    QTest::newRow("none") << qint64(1700000000) << 0;
    QTest::newRow("one") << qint64(1700000000) << 1;
    QTest::newRow("the last one of a second") << qint64(1700000000) << 999999;
    QTest::newRow("a clock that was never set") << qint64(0) << 123456;
    QTest::newRow("an hour that comes twice in summer time") << qint64(1792891845) << 7;
    QTest::newRow("a leap day") << qint64(1709164800) << 10;
    QTest::newRow("the last second that can be written") << qint64(253402300799) << 999999;
}

void CtlCollectTest::everyMicrosecond()
{
    QFETCH(qint64, seconds);
    QFETCH(int, microseconds);
    put({storedEvent(1, seconds, microseconds)});
    Store store;
    QCOMPARE(store.collect(folder->dir()), 0);
    QCOMPARE(store.lines, "1 resume 1"_s);
    const Store::Key position = store.position;
    QCOMPARE(store.collect(folder->dir()), 0);
    QCOMPARE(store.lines, "resume 1"_s);
    QCOMPARE(store.position, position);
    QCOMPARE(runShell("TZ=Europe/Berlin \"$CTL\" collect -q -D "_s + folder->dir().path()
                      + " --after 1 --at "_s + position.second)
                 .out.count('\n'),
             QByteArray::size_type(1));
}

void CtlCollectTest::emptyFolder()
{
    Store store;
    QCOMPARE(store.collect(folder->dir()), 0);
    QCOMPARE(store.lines, "resume 0"_s);
    QCOMPARE(store.position.second, "1970-01-01T00:00:00.000000Z"_s);
    put({numbered(7, 8)});
    QCOMPARE(store.collect(folder->dir()), 0);
    QCOMPARE(store.lines, "7 8 resume 8"_s);
    const CtlRun nowhere = runCtl({"collect"_s, "-D"_s, "/nowhere"_s});
    QCOMPARE(nowhere.status, 4);
    QCOMPARE(nowhere.out, QByteArray());
}

//! Whatever has reached the file of a record that is being written.
void CtlCollectTest::tornEnd()
{
    const QByteArray next = numbered(4, 4);
    for (int length = 0; length <= next.size(); ++length) {
        put({numbered(1, 3) + next.left(length)});
        folder->setAge("zib0.log"_s, 3600);
        const CtlRun run = collect(behind(2));
        const bool isWhole = length == next.size();
        QCOMPARE(shortForm(run), isWhole ? "3 4 resume 4"_s : "3 resume 3"_s);
        QCOMPARE(run.status, 0);
    }
}

//! A bundle that comes byte by byte while it is collected: the file is never as it was.
void CtlCollectTest::recordInPieces()
{
    put({numbered(1, 3)});
    QCOMPARE(shortForm(collect()), "1 2 3 resume 3"_s);
    const QByteArray bundle = numbered(4, 6);
    const int leastRuns = 5; // whatever time one takes
    const int most = int(bundle.size()) / leastRuns;
    Store store;
    int runs = 0;
    for (int i = 0; i < bundle.size(); ++runs) {
        const int end = std::min(i + most, int(bundle.size()));
        const auto appendNext = [&] {
            folder->append(0, bundle.mid(i, end > i ? 1 : 0));
            i = std::min(i + 1, end);
        };
        QCOMPARE(store.collectBeside(folder->dir(), appendNext), 0);
    }
    QCOMPARE(store.collect(folder->dir()), 0);
    QCOMPARE(store.received.size(), size_t(6));
    QCOMPARE(store.records.size(), size_t(6));
    QVERIFY(store.missing.empty());
    QVERIFY(runs >= leastRuns);
}

void CtlCollectTest::unreadable()
{
    put({numbered(1, 2), numbered(3, 4), numbered(5, 6)});
    const auto collectAsUser = [this](quint64 number) {
        return runShell(asOrdinaryUser() + "\"$CTL\" collect -D "_s + folder->dir().path()
                        + " -C "_s + testCatalogue() + QLatin1Char(' ')
                        + behind(number).join(QLatin1Char(' ')));
    };
    QVERIFY(QFile::setPermissions(folder->path("zib1.log"_s), QFile::Permissions()));
    const CtlRun failed = collectAsUser(2);
    QCOMPARE(failed.status, 4);
    QVERIFY2(failed.errors.contains("zib1.log: cannot be read to its end: Permission denied"),
             failed.errors.constData());
    QVERIFY(!failed.out.contains("resume"));
    QVERIFY(!failed.out.contains("missing"));
    // What is not needed need not be read.
    const CtlRun newer = collectAsUser(5);
    QCOMPARE(shortForm(newer), "6 resume 6"_s);
    QCOMPARE(newer.status, 0);
    const CtlRun all = runShell(asOrdinaryUser() + "\"$CTL\" collect -D "_s + folder->dir().path());
    QCOMPARE(all.status, 4);
    QVERIFY(!all.out.contains("resume"));
}

void CtlCollectTest::wrongUsage_data()
{
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("a time wants a number") << QStringList{"--at"_s, timeText(early)};
    QTest::newRow("a number wants a time") << QStringList{"--after"_s, "5"_s};
    QTest::newRow("a number is one") << QStringList{"--after"_s, "x"_s, "--at"_s, timeText(early)};
    QTest::newRow("and not negative")
        << QStringList{"--after"_s, "-1"_s, "--at"_s, timeText(early)};
    QTest::newRow("a time is one") << QStringList{"--after"_s, "5"_s, "--at"_s, "soon"_s};
    QTest::newRow("and one of a record")
        << QStringList{"--after"_s, "5"_s, "--at"_s, "@999999999999"_s};
    QTest::newRow("there is no selection") << QStringList{"-n"_s, "5"_s};
    QTest::newRow("there is one format") << QStringList{"-o"_s, "text"_s};
}

void CtlCollectTest::wrongUsage()
{
    QFETCH(QStringList, arguments);
    put({numbered(1, 9)});
    const CtlRun run = collect(arguments);
    QCOMPARE(run.status, 2);
    QCOMPARE(run.out, QByteArray());
    QVERIFY2(run.errors.endsWith("see \"systemeventctl collect --help\"\n"),
             run.errors.constData());
}

void CtlCollectTest::outputs()
{
    QByteArray many;
    for (quint64 i = 0; i < 5; ++i) {
        many += numbered(quint64(1000) * i + 1, quint64(1000) * (i + 1));
    }
    put({many});
    const QString command = "\"$CTL\" collect -q -D "_s + folder->dir().path();
    const CtlRun full = runShell(command + " >/dev/full"_s);
    QCOMPARE(full.status, 4);
    QVERIFY(full.errors.contains("standard output cannot be written: No space left on device"));
    const CtlRun closed
        = runShell("exec 3>&1; { "_s + command + "; echo $? >&3; } | head -n 1 >/dev/null"_s);
    QCOMPARE(closed.out, QByteArray("141\n"));
    QCOMPARE(closed.errors, QByteArray());
}

namespace
{

quint64 missingCount(const Store &store)
{
    return std::accumulate(
        store.missing.begin(), store.missing.end(), quint64(0),
        [](quint64 sum, const auto &range) { return sum + range.second - range.first + 1; });
}

//! The first number from 1 on that is not there once or missing once; 0 where none is.
quint64 notOnce(const Store &store, quint64 count)
{
    std::map<quint64, int> times;
    for (const Store::Key &key : store.received) {
        ++times[key.first];
    }
    for (const auto &[first, last] : store.missing) {
        for (quint64 number = first; number <= last; ++number) {
            ++times[number];
        }
    }
    for (quint64 number = 1; number <= count; ++number) {
        if (times[number] != 1) {
            store.tellRunsWith(number);
            return number;
        }
    }
    return times.size() == count ? 0 : count + 1;
}

int secondsFor()
{
    bool isNumber = false;
    const int seconds = qEnvironmentVariableIntValue("SEL_FOLLOW_SECONDS", &isNumber);
    return isNumber ? seconds : 3;
}

} // namespace

void CtlCollectTest::besideTheWriter_data()
{
    QTest::addColumn<int>("highestIndex");
    QTest::addColumn<bool>("isCleared");
    QTest::addColumn<bool>("mayMiss");

    QTest::newRow("what is kept for long enough comes once") << 4000 << false << false;
    QTest::newRow("what is rotated away too soon is missing") << 1 << false << true;
    QTest::newRow("what is cleared is missing") << 10 << true << true;
}

//! A writer that rotates many times a second, and a store that collects all the time.
void CtlCollectTest::besideTheWriter()
{
    QFETCH(int, highestIndex);
    QFETCH(bool, isCleared);
    QFETCH(bool, mayMiss);
    constexpr uint fileLimit = 2000; // bytes
    BinaryLogInterface log(2560, 30, highestIndex, fileLimit, folder->dir());
    qint64 rotations = 0;
    QObject::connect(&log, &BinaryLogInterface::logsRotated, &log, [&rotations] { ++rotations; });
    quint64 count = 0;
    const auto write = [&](int events) {
        for (int i = 0; i < events; ++i) {
            log.logEvent(9, {"/power/supply"_s, "event"_s});
        }
        log.writeBundle();
        count += quint64(events);
    };
    const auto isThere = [this, highestIndex](quint64 number) {
        for (int i = 0; i <= std::min(highestIndex, 20); ++i) {
            if (RecordBytes::numbersIn(folder->content(i)).contains(number)) {
                return true;
            }
        }
        return false;
    };
    const qint64 duration = qint64(1000) * secondsFor();
    QElapsedTimer timer;
    timer.start();
    Store store;
    write(10);
    // What a store without any record has missed it does not know.
    QCOMPARE(store.collect(folder->dir()), 0);
    int runs = 0;
    for (; timer.elapsed() < duration || runs < 9; ++runs) {
        const size_t missingBefore = store.missing.size();
        QCOMPARE(store.collectBeside(folder->dir(), [&write] { write(10); }), 0);
        for (size_t i = missingBefore; i < store.missing.size(); ++i) {
            QVERIFY(!isThere(store.missing[i].second));
        }
        // More than is kept, between two runs.
        for (int i = 0; mayMiss && !isCleared && runs % 4 == 3 && i < 20; ++i) {
            write(10);
        }
        if (isCleared && runs % 4 == 3) {
            write(10);
            log.clearLogfiles();
            write(1);
        }
    }
    QCOMPARE(store.collect(folder->dir()), 0);
    QCOMPARE(store.restarts, 0);
    QCOMPARE(store.position.first, count);
    QCOMPARE(store.records.size(), store.received.size());
    const quint64 gone = missingCount(store);
    QCOMPARE(notOnce(store, count), quint64(0));
    QCOMPARE(gone > 0, mayMiss);
    qInfo("%d runs, %zu records, %llu missing, %lld rotations a second", runs,
          store.received.size(), gone, rotations * 1000 / timer.elapsed());
}

namespace
{

//! One record of a device, and what became of it.
struct Given {
    int order = 0; //!< among all that the device has given
    int run = 0;   //!< of numbers that follow one another
    quint64 number = 0;
    qint64 seconds = 0;
    bool isReadable = true; //!< its number and time can be read
    QByteArray bytes;
};

//! A device whose log goes through everything that happens to logs.
class Device
{
public:
    Device(const LogFolder &logFolder, QRandomGenerator &generator)
        : folder(logFolder)
        , random(generator)
        , mostFiles(size_t(random.bounded(1, 5)))
    {
    }

    void write(int count)
    {
        for (int i = 0; i < count; ++i) {
            if (files.empty() || files.back().size() >= recordsInFile) {
                files.emplace_back();
            }
            while (files.size() > mostFiles) {
                files.pop_front();
            }
            clock += random.bounded(1, 5);
            Given record{given++, run, next, clock, true, storedEvent(next, clock)};
            ++next;
            files.back().push_back(record);
        }
    }
    void clear() { files.clear(); }
    //! The next start finds no number to go on with.
    void deleteAll()
    {
        files.clear();
        beginAgain();
    }
    //! In a file of its own, as in that of others one record alone would pass for damage.
    void beginAgain()
    {
        if (!files.empty() && !files.back().empty()) {
            files.emplace_back();
        }
        next = 1;
        ++run;
    }
    //! A power cut takes what was not on the disk yet; its numbers are given again.
    void loseEnd()
    {
        if (files.empty() || files.back().size() < 4) {
            return;
        }
        for (int i = random.bounded(1, 4); i > 0; --i) {
            lost.insert(files.back().back().order);
            files.back().pop_back();
        }
        next = files.back().back().number + 1;
    }
    //! One record of a file, with so many behind it that these are beyond doubt.
    void damage(const Store::Key &spared)
    {
        constexpr size_t behind = 6;
        if (files.empty()) {
            return;
        }
        File &file = files[size_t(random.bounded(int(files.size())))];
        const bool isSound = std::all_of(file.begin(), file.end(), [](const Given &each) {
            return each.bytes == storedEvent(each.number, each.seconds);
        });
        if (!isSound || file.size() <= behind || file.front().run != file.back().run) {
            return;
        }
        Given &record = file[size_t(random.bounded(int(file.size() - behind)))];
        if (Store::Key(record.number, timeText(record.seconds)) == spared) {
            return;
        }
        // Numbers begin again with a whole record.
        const int kind = random.bounded(record.order == file.front().order ? 2 : 3);
        if (kind == 0) {
            record.bytes.fill('\0');
        } else if (kind == 1) {
            record.bytes.replace(0, 8, QByteArray(8, '\xff'));
        } else {
            record.bytes[int(record.bytes.size()) - 1] = '\x7f';
        }
        record.isReadable = kind == 2;
    }

    //! Brings the files into the folder.
    void store() const
    {
        const QStringList names = folder.dir().entryList({"zib*.log"_s});
        for (const QString &name : names) {
            QFile::remove(folder.path(name));
        }
        for (size_t i = 0; i < files.size(); ++i) {
            QByteArray content;
            for (const Given &record : files[i]) {
                content += record.bytes;
            }
            folder.put(int(files.size() - 1 - i), content);
        }
    }
    //! The records that are there and can be read, in the order in which they were given.
    [[nodiscard]] std::vector<Given> records() const
    {
        std::vector<Given> found;
        for (const File &file : files) {
            std::copy_if(file.begin(), file.end(), std::back_inserter(found),
                         [](const Given &record) { return record.isReadable; });
        }
        return found;
    }
    [[nodiscard]] bool isLost(const Given &record) const { return lost.count(record.order) > 0; }

private:
    using File = std::vector<Given>;
    static constexpr size_t recordsInFile = 12;

    const LogFolder &folder;
    QRandomGenerator &random;
    size_t mostFiles;
    std::deque<File> files; //!< the oldest first
    std::set<int> lost;
    quint64 next = 1;
    qint64 clock = early;
    int given = 0;
    int run = 0;
};

/*!
 * What a store has to be told, by somebody who knows all that has happened: \a position is the
 * last record that it has; null where it has none.
 */
QString expected(const Device &device, const Given *position, std::vector<Given> &news)
{
    const std::vector<Given> there = device.records();
    QStringList words;
    quint64 last = position ? position->number : 0;
    bool mayMiss = position != nullptr;
    news = there;
    if (position && !there.empty()) {
        const Given &first = there.front();
        const bool beganAgain = first.run > position->run || device.isLost(*position);
        const bool falls = std::adjacent_find(there.begin(), there.end(),
                                              [](const Given &one, const Given &next) {
                                                  return next.number <= one.number;
                                              })
            != there.end();
        const bool isEarlier = falls && first.seconds < position->seconds;
        if (beganAgain && (first.number <= position->number || isEarlier)) {
            words.append("restarted %1"_s.arg(first.number));
            last = first.seconds > position->seconds ? 0 : first.number - 1;
        } else if (!beganAgain) {
            news.erase(std::remove_if(
                           news.begin(), news.end(),
                           [position](const Given &each) { return each.order <= position->order; }),
                       news.end());
        }
    }
    for (const Given &record : news) {
        if (mayMiss && record.number <= last) {
            words.append("restarted %1"_s.arg(record.number));
        } else if (mayMiss && record.number > last + 1) {
            words.append("missing %1-%2"_s.arg(last + 1).arg(record.number - 1));
        }
        words.append(QString::number(record.number));
        last = record.number;
        mayMiss = true;
    }
    const quint64 end = !news.empty() ? news.back().number : position ? position->number : 0;
    words.append("resume %1"_s.arg(end));
    return words.join(QLatin1Char(' '));
}

} // namespace

namespace
{

//! What was printed, without what is said of damage; \a isDamaged: something was.
QString withoutDamage(const QString &lines, bool &isDamaged)
{
    const QStringList words = lines.split(QLatin1Char(' '));
    QStringList shown;
    isDamaged = false;
    for (QString word : words) {
        const bool isDoubtful = word.endsWith(QLatin1Char('d')) && word != "restarted"_s;
        const bool isLost = word == "lost"_s;
        isDamaged = isDamaged || isDoubtful || isLost;
        word.chop(isDoubtful ? 1 : 0);
        if (!isLost) {
            shown.append(word);
        }
    }
    return shown.join(QLatin1Char(' '));
}

//! Something, by chance, and what is written then.
void happen(Device &device, int what, const Store::Key &spared, QRandomGenerator &random)
{
    switch (what) {
    case 0:
        device.clear();
        break;
    case 1:
        device.deleteAll();
        break;
    case 2:
        device.beginAgain();
        break;
    case 3:
        device.loseEnd();
        break;
    case 4:
    case 5:
    case 6:
        device.damage(spared);
        break;
    default:
        break;
    }
    device.write(random.bounded(what == 0 ? 2 : 25));
    device.store();
}

//! One device and its store; empty, or what went wrong.
QString historyOf(const LogFolder &folder, QRandomGenerator &random, Store &store)
{
    Device device(folder, random);
    std::unique_ptr<Given> position;
    for (int step = 0; step < 30; ++step) {
        happen(device, random.bounded(20), store.position, random);
        std::vector<Given> news;
        const QString wanted = expected(device, position.get(), news);
        const int status = store.collect(folder.dir());
        bool isDamaged = false;
        const bool isRight
            = withoutDamage(store.lines, isDamaged) == wanted && status == (isDamaged ? 3 : 0)
            && std::all_of(news.begin(), news.end(), [&store](const Given &record) {
                   return store.records.count({record.number, timeText(record.seconds)}) == 1;
               });
        if (!isRight) {
            return "step %1, status %2:\n%3\nwanted:\n%4"_s.arg(step).arg(status).arg(store.lines,
                                                                                      wanted);
        }
        if (!news.empty()) {
            position = std::make_unique<Given>(news.back());
        }
    }
    return {};
}

} // namespace

void CtlCollectTest::randomHistories()
{
    bool isNumber = false;
    const int given = qEnvironmentVariableIntValue("SEL_COLLECT_SEED", &isNumber);
    const auto seed = isNumber ? quint32(given) : QRandomGenerator::global()->generate() >> 1U;
    const int wanted = qEnvironmentVariableIntValue("SEL_COLLECT_ROUNDS", &isNumber);
    const int rounds = isNumber ? wanted : 20;
    qInfo("SEL_COLLECT_SEED=%u", seed);
    QRandomGenerator random(seed);
    int restarts = 0;
    size_t holes = 0;
    size_t received = 0;
    for (int round = 0; round < rounds; ++round) {
        const LogFolder own;
        Store store;
        const QString wrong = historyOf(own, random, store);
        QVERIFY2(wrong.isEmpty(), qPrintable("seed %1, round %2, "_s.arg(seed).arg(round) + wrong));
        restarts += store.restarts;
        holes += store.missing.size();
        received += store.records.size();
    }
    QVERIFY(restarts > 0 && holes > 0);
    qInfo("%zu records, %zu holes, %d restarts", received, holes, restarts);
}

void CtlCollectTest::memory()
{
#ifdef __SANITIZE_ADDRESS__
    QSKIP("The sanitizer takes its own.");
#endif
    // 40 MB: what it holds does not grow with the folder.
    for (int file = 0; file < 400; ++file) {
        const quint64 first = quint64(399 - file) * 1000 + 1;
        folder->put(file, numbered(first, first + 999));
    }
    rusage before{};
    (void)getrusage(RUSAGE_CHILDREN, &before);
    const CtlRun run
        = runShell("\"$CTL\" collect -q -D "_s + folder->dir().path() + QLatin1Char(' ')
                   + behind(1, timeText(early)).join(QLatin1Char(' ')) + " | tail -n 1"_s);
    QCOMPARE(shortForm(run), "resume 400000"_s);
    rusage after{};
    (void)getrusage(RUSAGE_CHILDREN, &after);
    QVERIFY2(after.ru_maxrss < 40L * 1024, qPrintable(QString::number(after.ru_maxrss)));
    qInfo("%ld KiB", after.ru_maxrss);
}

QTEST_GUILESS_MAIN(CtlCollectTest)
#include "tst_ctlcollect.moc"

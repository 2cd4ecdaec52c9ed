// SPDX-License-Identifier: Apache-2.0

// What "show" prints of folders made by hand: which records, in which order, and in which
// form; and what is told of damage.

#include "ctl/ctlprocess.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QTest>

#include <algorithm>
#include <memory>

using RecordBytes::Fields;
using RecordBytes::number;
using RecordBytes::record;
using RecordBytes::sized;

namespace
{

QByteArray storedEvent(quint64 logNr, const QByteArray &text = "text", qint64 seconds = 1700000000)
{
    Fields fields;
    fields.logNr = logNr;
    fields.seconds = seconds;
    fields.eventId = 9;
    fields.values = sized(text);
    return record(fields);
}

QByteArray numbered(quint64 from, quint64 to)
{
    QByteArray bytes;
    for (quint64 i = from; i <= to; ++i) {
        bytes += storedEvent(i, "number " + QByteArray::number(i));
    }
    return bytes;
}

//! Two events, in English and German, with levels.
QByteArray ownCatalogue()
{
    return R"(<systemevents>
  <enum name="LogLevel"><item value="3" name="error"/><item value="5" name="notice"/></enum>
  <service name="power">
    <event id="1001" name="supply" loglevel="notice"><argument type="double" name="volts"/>
      <description lang="en">Supply has %1 V</description>
      <description lang="de">Versorgung hat %1 V</description></event>
    <event id="1002" name="overload" loglevel="error"><argument type="int32" name="load"/>
      <description lang="en">Load is %1</description></event>
  </service>
  <service name="text"><event id="9" name="string" loglevel="notice">
      <argument type="string" name="v"/><description lang="en">%1</description></event></service>
</systemevents>)";
}

QByteArray eventRecord(quint64 logNr, qint32 eventId, const QByteArray &values)
{
    Fields fields;
    fields.logNr = logNr;
    fields.eventId = eventId;
    fields.values = values;
    return record(fields);
}

QByteArray supply(quint64 logNr)
{
    return eventRecord(logNr, 1001, QByteArray::fromHex("0000000000003840")); // 24.0
}

QByteArray overload(quint64 logNr)
{
    return eventRecord(logNr, 1002, number(7, 4));
}

//! The first words of lines.
QString numbersOf(const QByteArray &out)
{
    QStringList found;
    const QList<QByteArray> lines = out.split('\n');
    for (const QByteArray &line : lines) {
        const QByteArray first = line.trimmed().split(' ').first();
        if (!first.isEmpty()) {
            found.append(QString::fromUtf8(first));
        }
    }
    return found.join(QLatin1Char(' '));
}

} // namespace

class CtlShowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void theDefault();
    void order_data();
    void order();
    void lastOnes_data();
    void lastOnes();
    void selections_data();
    void selections();
    void exitStatus_data();
    void exitStatus();
    void namesOfTheCatalogue_data();
    void namesOfTheCatalogue();
    void missingAndLost_data();
    void missingAndLost();
    void damageInJson();
    void missingCatalogue();
    void unreadable();
    void languages_data();
    void languages();
    void unknownLanguage();
    void times_data();
    void times();
    void timesThatComeTwice();
    void textForPeople();
    void jsonMovesNoCursor();
    void catalogueOfNothing();
    void csv();
    void csvQuotes();
    void raw();
    void rawDamage();
    void json();
    void noColourInPipes_data();
    void noColourInPipes();
    void readsNoInput();
    void closedOutput();

private:
    [[nodiscard]] QStringList arguments(const QStringList &more) const
    {
        return QStringList{"show"_s, "-D"_s, folder->dir().path(), "-C"_s, catalogue} + more;
    }
    [[nodiscard]] CtlRun show(const QStringList &more = {}) const
    {
        return runCtl(arguments(more));
    }
    //! With settings of the environment, as "NAME=value".
    [[nodiscard]] CtlRun showWith(const QString &environment, const QStringList &more) const
    {
        QString line = "env -u LC_ALL "_s + environment + " \"$CTL\""_s;
        for (const QString &argument : arguments(more)) {
            line += " '"_s + argument + "'"_s;
        }
        return runShell(line);
    }

    std::unique_ptr<LogFolder> folder;
    std::unique_ptr<QTemporaryDir> other;
    QString catalogue;
};

void CtlShowTest::init()
{
    folder = std::make_unique<LogFolder>();
    other = std::make_unique<QTemporaryDir>();
    catalogue = other->filePath("events.xml"_s);
    QFile file(catalogue);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(ownCatalogue()) > 0);
}

void CtlShowTest::theDefault()
{
    folder->put(0, numbered(1, 9));
    const QStringList source{"-D"_s, folder->dir().path(), "-C"_s, catalogue};
    const CtlRun wanted = show();
    QCOMPARE(wanted.status, 0);
    QCOMPARE(numbersOf(wanted.out), "1 2 3 4 5 6 7 8 9"_s);
    QCOMPARE(runCtl(source).out, wanted.out);
    QCOMPARE(runCtl(QStringList{"-n"_s, "5"_s} + source).out, show({"-n"_s, "5"_s}).out);
    QCOMPARE(numbersOf(runCtl(QStringList{"-n"_s, "5"_s} + source).out), "5 6 7 8 9"_s);
}

void CtlShowTest::order_data()
{
    QTest::addColumn<QList<QByteArray>>("files"); // the oldest first
    QTest::addColumn<QString>("wanted");

    using Files = QList<QByteArray>;
    const auto row = [](const char *name, const Files &files, const char *wanted) {
        QTest::newRow(name) << files << QString::fromLatin1(wanted);
    };
    row("files are read oldest first", {numbered(1, 2), numbered(3, 4)}, "1 2 3 4");
    row("a clock that goes back changes nothing",
        {storedEvent(1, "a", 1700000000), storedEvent(2, "b", 1600000000) + storedEvent(3, "c", 1)},
        "1 2 3");
    row("swapped files find their places", {numbered(5, 8), numbered(1, 4)}, "1 2 3 4 5 6 7 8");
    row("three files in any order", {numbered(5, 6), numbered(1, 2), numbered(3, 4)},
        "1 2 3 4 5 6");
    row("swapped parts of a file find their places",
        {numbered(1, 2) + numbered(5, 6) + numbered(3, 4) + numbered(7, 8)}, "1 2 3 4 5 6 7 8");
    row("parts of other files too",
        {numbered(1, 2) + numbered(5, 6) + numbered(3, 4), numbered(7, 8)}, "1 2 3 4 5 6 7 8");
    row("numbers that began again come behind", {numbered(1, 4), numbered(1, 2)}, "1 2 3 4 1 2");
    row("and go on there", {numbered(3, 4), numbered(1, 6)}, "3 4 1 2 3 4 5 6");
    row("in the middle of a file", {numbered(5, 9) + numbered(1, 3)}, "1 2 3 5 6 7 8 9");
    row("an empty file is nothing", {numbered(1, 2), QByteArray()}, "1 2");
    row("a file with one record", {numbered(1, 1), numbered(2, 2)}, "1 2");
}

void CtlShowTest::order()
{
    QFETCH(QList<QByteArray>, files);
    QFETCH(QString, wanted);
    for (int i = 0; i < files.size(); ++i) {
        folder->put(int(files.size()) - 1 - i, files.at(i));
    }
    QCOMPARE(numbersOf(show().out), wanted);
    QStringList reversed = wanted.split(QLatin1Char(' '));
    std::reverse(reversed.begin(), reversed.end());
    QCOMPARE(numbersOf(show({"-r"_s}).out), reversed.join(QLatin1Char(' ')));
    QCOMPARE(numbersOf(show({"-r"_s, "-n"_s, "2"_s}).out),
             QStringList(reversed.mid(0, 2)).join(QLatin1Char(' ')));
    const QStringList all = wanted.split(QLatin1Char(' '));
    QCOMPARE(numbersOf(show({"-n"_s, "3"_s}).out),
             QStringList(all.mid(std::max<int>(int(all.size()) - 3, 0))).join(QLatin1Char(' ')));
}

void CtlShowTest::lastOnes_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("wanted");

    const auto row = [](const char *name, const QString &options, const char *wanted) {
        QTest::newRow(name) << options.split(QLatin1Char(' ')) << QString::fromLatin1(wanted);
    };
    row("the last ones", "-n 2"_s, "8 9");
    row("over more than a file", "-n 5"_s, "5 6 7 8 9");
    row("exactly a file", "-n 4"_s, "6 7 8 9");
    row("more than there are", "-n 99"_s, "1 2 3 4 5 6 7 8 9");
    row("none", "-n 0"_s, "");
    row("of those that are selected", "-n 2 --number ..7"_s, "6 7");
    row("of those with a text", "-n 2 -g [1-4]$"_s, "3 4");
    row("the newest first", "-n 3 -r"_s, "9 8 7");
    row("the newest first over files", "-r -n 5"_s, "9 8 7 6 5");
    row("none of the newest", "-r -n 0"_s, "");
    row("of those that are selected, the newest first", "-r -n 2 --number ..7"_s, "7 6");
    row("long names", "--lines 1 --reverse"_s, "9");
}

void CtlShowTest::lastOnes()
{
    QFETCH(QStringList, options);
    QFETCH(QString, wanted);
    folder->put(2, numbered(1, 2));
    folder->put(1, numbered(3, 5));
    folder->put(0, numbered(6, 9));
    const CtlRun run = show(options);
    QCOMPARE(numbersOf(run.out), wanted);
    QCOMPARE(run.status, wanted.isEmpty() ? 1 : 0);
}

void CtlShowTest::selections_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("wanted");

    const auto row = [](const char *name, const QStringList &options, const char *wanted) {
        QTest::newRow(name) << options << QString::fromLatin1(wanted);
    };
    row("a range of numbers", {"--number"_s, "2..3"_s}, "2 3");
    row("from a number on", {"--number"_s, "4.."_s}, "4 5 6");
    row("up to a number", {"--number"_s, "..2"_s}, "1 2");
    row("one number", {"--number"_s, "5"_s}, "5");
    row("two ranges", {"--number"_s, "1"_s, "--number"_s, "5.."_s}, "1 5 6");
    row("since an instant that is one's own", {"-S"_s, "@1700000002"_s}, "3 4 5 6");
    row("until an instant that is one's own", {"-U"_s, "@1700000002"_s}, "1 2 3");
    row("since and until", {"--since"_s, "@1700000001"_s, "--until"_s, "@1700000002"_s}, "2 3");
    row("a time as it is printed", {"-S"_s, "2023-11-14T22:13:25.250000Z"_s}, "6");
    row("the past hour has nothing", {"-S"_s, "1h"_s}, "");
    row("nor have the past two days", {"-S"_s, "-2d"_s}, "");
    row("all is before yesterday", {"-U"_s, "yesterday"_s}, "1 2 3 4 5 6");
    row("a level and the more urgent", {"-p"_s, "error"_s}, "2");
    row("a level by number", {"-p"_s, "5"_s}, "1 2 4 6");
    row("a range of levels", {"-p"_s, "4..notice"_s}, "1 4 6");
    row("an event by name", {"-e"_s, "overload"_s}, "2");
    row("events by id, known or not", {"-e"_s, "1002"_s, "-e"_s, "555"_s}, "2 3 5");
    row("a service", {"-s"_s, "power"_s}, "1 2 4");
    row("two services", {"-s"_s, "power"_s, "-s"_s, "text"_s}, "1 2 4 6");
    row("a path across slashes", {"--path"_s, "/n*e"_s}, "4");
    row("two paths", {"--path"_s, "/net*"_s, "--path"_s, "*?ly"_s}, "1 2 3 4 5 6");
    row("a text", {"-g"_s, "^Supply.*4 V$"_s}, "1 4");
    row("with case", {"-g"_s, "supply"_s}, "");
    row("two texts", {"-g"_s, "Load"_s, "--grep"_s, "text"_s}, "2 6");
    row("all together", {"-s"_s, "power"_s, "-p"_s, "5..5"_s, "--number"_s, "2.."_s}, "4");
}

void CtlShowTest::selections()
{
    QFETCH(QStringList, options);
    QFETCH(QString, wanted);
    QByteArray bytes;
    Fields fields;
    for (int i = 1; i <= 6; ++i) {
        fields.logNr = quint64(i);
        fields.seconds = 1700000000 + i - 1;
        fields.microseconds = i == 6 ? 250000 : 0;
        const bool isSupply = i == 1 || i == 4;
        fields.eventId = isSupply ? 1001 : i == 2 ? 1002 : i == 6 ? 9 : 555;
        fields.path = i == 4 ? "/net/a/b/cable" : "/power/supply";
        fields.values = isSupply ? QByteArray::fromHex("0000000000003840")
            : i == 2             ? number(7, 4)
                                 : sized("text");
        bytes += record(fields);
    }
    folder->put(0, bytes);
    const CtlRun run = show(options);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(numbersOf(run.out), wanted);
    QCOMPARE(run.status, wanted.isEmpty() ? 1 : 0);
    if (options.contains("-S"_s) && wanted.isEmpty()) {
        return;
    }
    // The same of a damaged log, where salvage prints it.
    const CtlRun salvaged = runCtl(
        QStringList{"salvage"_s, "-D"_s, folder->dir().path(), "-C"_s, catalogue, "-o"_s, "text"_s}
        + options);
    QCOMPARE(numbersOf(salvaged.out), wanted);
    QCOMPARE(salvaged.status, wanted.isEmpty() ? 1 : 0);
}

void CtlShowTest::exitStatus_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("options");
    QTest::addColumn<int>("status");

    const QByteArray lost = numbered(1, 4) + QByteArray(50, '\0') + numbered(5, 8);
    QTest::newRow("records were found") << numbered(1, 3) << "-o text"_s << 0;
    QTest::newRow("an empty folder has none") << QByteArray() << "-o text"_s << 1;
    QTest::newRow("nothing was selected") << numbered(1, 3) << "--number 7"_s << 1;
    QTest::newRow("missing numbers are no damage")
        << numbered(1, 3) + numbered(7, 8) << "-o text"_s << 0;
    QTest::newRow("damage was found") << lost << "-o text"_s << 3;
    QTest::newRow("damage counts where nothing was selected") << lost << "-e 1001"_s << 3;
    QTest::newRow("damage elsewhere is none") << lost << "--number 6..7"_s << 0;
    QTest::newRow("damage before the last ones is none") << lost << "-n 3"_s << 0;
    QTest::newRow("damage among the last ones is") << lost << "-n 5"_s << 3;
    QTest::newRow("damage before the newest is none") << lost << "-r -n 3"_s << 0;
    QTest::newRow("damage among the newest is") << lost << "-r -n 5"_s << 3;
    QTest::newRow("a number is wanted") << numbered(1, 3) << "-n few"_s << 2;
    QTest::newRow("following has no way back") << numbered(1, 3) << "-f -r"_s << 2;
}

void CtlShowTest::exitStatus()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, options);
    QFETCH(int, status);
    folder->put(0, content);
    for (const QString &format : {"text"_s, "json"_s, "csv"_s, "raw"_s}) {
        const CtlRun run = show(
            QString(options).replace("-o text"_s, ""_s).split(QLatin1Char(' '), Qt::SkipEmptyParts)
            + QStringList{"-o"_s, format});
        QCOMPARE(run.status, status);
    }
}

void CtlShowTest::namesOfTheCatalogue_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("complaint");

    QTest::newRow("a level") << QStringList{"-p"_s, "err"_s}
                             << QByteArray("systemeventctl: the catalogue has no level \"err\"; it "
                                           "has: error, notice; numbers do as well\n");
    QTest::newRow("an event") << QStringList{"-e"_s, "x"_s}
                              << QByteArray("systemeventctl: the catalogue has no event \"x\"; it "
                                            "has: overload, string, supply\n");
    QTest::newRow("a service") << QStringList{"-s"_s, "x"_s}
                               << QByteArray("systemeventctl: the catalogue has no service \"x\"; "
                                             "it has: power, text\n");
}

void CtlShowTest::namesOfTheCatalogue()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, complaint);
    folder->put(0, numbered(1, 3));
    const CtlRun run = show(options);
    QCOMPARE(run.status, 2);
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(run.errors, complaint);
}

void CtlShowTest::missingAndLost_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("options");
    QTest::addColumn<QString>("wanted"); // both outputs in one

    const QByteArray lost = numbered(1, 2) + QByteArray(50, '\0') + numbered(4, 9);
    const QString zeros
        = "systemeventctl: lost: zib0.log from %1 to %2: zeros"_s.arg(numbered(1, 2).size())
              .arg(numbered(1, 2).size() + 50);
    const QString three = "systemeventctl: missing: number 3"_s;
    QTest::newRow("in their places") << lost << "-n 99"_s
                                     << "1 2|"_s + zeros + "|"_s + three + "|4 5 6 7 8 9"_s;
    QTest::newRow("with the newest first") << lost << "-r"_s
                                           << "9 8 7 6 5 4|"_s + three + "|"_s + zeros + "|2 1"_s;
    QTest::newRow("with what is selected besides") << lost << "-g [29]$"_s
                                                   << "2|"_s + zeros + "|"_s + three + "|9"_s;
    QTest::newRow("not with numbers elsewhere") << lost << "--number 5..6"_s
                                                << "5 6"_s;
    QTest::newRow("with a number that is missing")
        << lost << "--number 3"_s << zeros + "|"_s + three;
    QTest::newRow("beside a neighbour") << lost << "--number 4..5"_s << zeros + "|4 5"_s;
    QTest::newRow("several numbers") << numbered(1, 1) + numbered(5, 5) << "-n 2"_s
                                     << "1|systemeventctl: missing: numbers 2 to 4|5"_s;
    QTest::newRow("nothing in front of the last ones")
        << numbered(1, 1) + numbered(5, 6) << "-n 2"_s
        << "5 6"_s;
    QTest::newRow("nothing where numbers began again")
        << numbered(5, 6) + numbered(1, 7) << "-n 99"_s
        << "5 6 1 2 3 4 5 6 7"_s;
}

void CtlShowTest::missingAndLost()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, options);
    QFETCH(QString, wanted);
    folder->put(0, content);
    QString line = "\"$CTL\" "_s + options + " -D "_s + folder->dir().path() + " -C "_s + catalogue
        + " 2>&1"_s;
    const CtlRun run = runShell(line);
    QString shown;
    const QList<QByteArray> lines = run.out.split('\n');
    for (const QByteArray &each : lines) {
        const bool isNote = each.startsWith("systemeventctl: ");
        if (!each.isEmpty()) {
            shown += shown.isEmpty()                                                   ? ""_s
                : isNote || shown.section(QLatin1Char('|'), -1).startsWith("system"_s) ? "|"_s
                                                                                       : " "_s;
            shown += isNote ? QString::fromUtf8(each) : numbersOf(each);
        }
    }
    QCOMPARE(shown, wanted);
}

void CtlShowTest::damageInJson()
{
    const qint64 size = numbered(1, 2).size();
    folder->put(0, numbered(1, 2) + QByteArray(50, '\0') + numbered(4, 5));
    const CtlRun run = show({"-o"_s, "json"_s});
    QCOMPARE(run.status, 3);
    QCOMPARE(run.errors, QByteArray());
    const QList<QJsonObject> objects = run.objects();
    QCOMPARE(objects.size(), 5);
    QCOMPARE(objects[2].value("state"_s).toString(), "lost"_s);
    QCOMPARE(objects[2].value("offset"_s).toInt(), int(size));
    QCOMPARE(objects[2].value("length"_s).toInt(), 50);
    QCOMPARE(objects[3].value("number"_s).toString(), "4"_s);
}

void CtlShowTest::missingCatalogue()
{
    folder->put(0, supply(1));
    const CtlRun named = runCtl({"show"_s, "-D"_s, folder->dir().path(), "-C"_s, "/nowhere.xml"_s});
    QCOMPARE(named.status, 4);
    QVERIFY(named.errors.contains("/nowhere.xml: the catalogue cannot be read"));
    const CtlRun usual = runCtl({"show"_s, "-D"_s, folder->dir().path()});
    QCOMPARE(usual.status, 0);
    QVERIFY(usual.errors.contains("there is no catalogue"));
    QVERIFY2(usual.out.contains(" - 1001 "), usual.out.constData());
    // Nothing has a level or a service then, and only an id is an event's.
    QCOMPARE(runCtl({"-D"_s, folder->dir().path(), "-p"_s, "debug"_s, "-q"_s}).status, 1);
    QCOMPARE(runCtl({"-D"_s, folder->dir().path(), "-s"_s, "power"_s, "-q"_s}).status, 1);
    QCOMPARE(runCtl({"-D"_s, folder->dir().path(), "-e"_s, "1001"_s, "-q"_s}).status, 0);
    QCOMPARE(runCtl({"-D"_s, folder->dir().path(), "-q"_s}).errors, QByteArray());
}

void CtlShowTest::unreadable()
{
    const CtlRun missing = runCtl({"show"_s, "-D"_s, "/nowhere/at/all"_s, "-C"_s, catalogue});
    QCOMPARE(missing.status, 4);
    QVERIFY(missing.errors.contains("/nowhere/at/all: the folder cannot be read: "
                                    "No such file or directory; name another one with -D"));
    const CtlRun noFolder = runCtl({"show"_s, "-D"_s, catalogue, "-C"_s, catalogue});
    QCOMPARE(noFolder.status, 4);
    QVERIFY(noFolder.errors.contains("Not a directory"));
}

void CtlShowTest::languages_data()
{
    QTest::addColumn<QString>("environment");
    QTest::addColumn<QString>("options");
    QTest::addColumn<QByteArray>("text");

    const QByteArray english = "Supply has 24 V";
    const QByteArray german = "Versorgung hat 24 V";
    const QString none;
    QTest::newRow("English without a locale") << "LC_MESSAGES= LANG="_s << none << english;
    QTest::newRow("the locale's") << "LC_MESSAGES= LANG=de_DE.UTF-8"_s << none << german;
    QTest::newRow("whether it is installed or not") << "LANG=de_LI@x"_s << none << german;
    QTest::newRow("by the language alone") << "LANG=de"_s << none << german;
    QTest::newRow("messages count before the rest")
        << "LANG=en_GB LC_MESSAGES=de_AT.UTF-8"_s << none << german;
    QTest::newRow("what is for all counts first")
        << "LANG=de LC_MESSAGES=de LC_ALL=C.UTF-8"_s << none << english;
    QTest::newRow("an empty one does not count") << "LANG=de LC_ALL="_s << none << german;
    QTest::newRow("English where the catalogue has no such texts")
        << "LANG=fi_FI.UTF-8"_s << none << english;
    QTest::newRow("what is named counts most") << "LC_ALL=en_GB"_s
                                               << "-l de"_s << german;
    QTest::newRow("English can be named") << "LC_ALL=de_DE"_s
                                          << "--language en"_s << english;
}

void CtlShowTest::languages()
{
    QFETCH(QString, environment);
    QFETCH(QString, options);
    QFETCH(QByteArray, text);
    folder->put(0, supply(1) + overload(2));
    const CtlRun run = showWith(environment, options.split(QLatin1Char(' '), Qt::SkipEmptyParts));
    QCOMPARE(run.errors, QByteArray());
    QVERIFY2(run.out.contains(text), run.out.constData());
    QVERIFY(run.out.contains("Load is 7")); // there is no other text
}

void CtlShowTest::unknownLanguage()
{
    folder->put(0, supply(1));
    const CtlRun run = show({"-l"_s, "fi"_s});
    QCOMPARE(run.status, 0);
    QVERIFY(run.out.contains("Supply has 24 V"));
    QVERIFY2(run.errors.contains("it has: de, en"), run.errors.constData());
    QCOMPARE(show({"-l"_s, "fi"_s, "-q"_s}).errors, QByteArray());
}

void CtlShowTest::times_data()
{
    QTest::addColumn<QString>("options");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("cell");

    const QByteArray utc = "2023-11-14T22:13:20.250000Z";
    const QByteArray local = "2023-11-14 23:13:20.250000";
    QTest::newRow("local for people, UTC in tables") << QString() << local << utc;
    QTest::newRow("local") << "--time local"_s << local << local;
    QTest::newRow("UTC") << "--time utc"_s << utc << utc;
    const QByteArray iso = "2023-11-14T23:13:20.250000+01:00";
    QTest::newRow("ISO") << "--time iso"_s << iso << iso;
    const QByteArray seconds = "1700000000.250000";
    QTest::newRow("Unix") << "--time unix"_s << seconds << seconds;
    QTest::newRow("relative") << "--time relative"_s << QByteArray("h ago") << QByteArray("h ago,");
}

void CtlShowTest::times()
{
    QFETCH(QString, options);
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, cell);
    folder->put(0, supply(1));
    const QStringList split = options.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const QString zone = "TZ=CET-1CEST,M3.5.0,M10.5.0/3"_s;
    const CtlRun forPeople = showWith(zone, split);
    QVERIFY2(forPeople.out.contains(text), forPeople.out.constData());
    const CtlRun table = showWith(zone, split + QStringList{"-o"_s, "csv"_s});
    QVERIFY2(table.out.contains(cell), table.out.constData());
    const CtlRun json = showWith(zone, split + QStringList{"-o"_s, "json"_s});
    QVERIFY(json.out.contains(R"("time":"2023-11-14T22:13:20.250000Z")")); // a contract
}

//! Its printed time is that of another instant, too: -S takes the first, -U the second.
void CtlShowTest::timesThatComeTwice()
{
    QByteArray bytes;
    Fields fields;
    fields.logNr = 0;
    for (const qint64 seconds : {1792887600, 1792888200, 1792891800, 1792892400}) {
        ++fields.logNr;
        fields.seconds = seconds;
        fields.microseconds = 0;
        fields.eventId = 9;
        fields.values = sized("text");
        bytes += record(fields);
    }
    folder->put(0, bytes);
    const QString zone = "TZ=CET-1CEST,M3.5.0,M10.5.0/3"_s;
    const auto numbers
        = [&](const QStringList &options) { return numbersOf(showWith(zone, options).out); };
    QCOMPARE(showWith(zone, {}).out.count("2026-10-25 02:30:00.000000"), QByteArray::size_type(2));
    QCOMPARE(numbers({"-S"_s, "2026-10-25 02:30"_s}), "2 3 4"_s);
    QCOMPARE(numbers({"-U"_s, "2026-10-25 02:30"_s}), "1 2 3"_s);
    QCOMPARE(numbers({"-S"_s, "2026-10-25 02:30"_s, "-U"_s, "2026-10-25 02:30"_s}), "2 3"_s);
}

void CtlShowTest::textForPeople()
{
    folder->put(0,
                supply(9) + overload(10) + eventRecord(11, 555, "x")
                    + storedEvent(12, "\x1B[2J\xC2\x9B\r\nfeed\xE2\x80\xAE\x7F"));
    const CtlRun run = showWith("TZ=UTC"_s, {});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out,
             QByteArray(" 9 2023-11-14 22:13:20.250000 notice supply   /power/supply        "
                        "Supply has 24 V\n"
                        "10 2023-11-14 22:13:20.250000 error  overload /power/supply        "
                        "Load is 7\n"
                        "11 2023-11-14 22:13:20.250000 -      555      /power/supply\n"
                        "12 2023-11-14 22:13:20.250000 notice string   /power/supply        "
                        "\\x1b[2J\\x9b\\x0d\\x0afeed\\u202e\\x7f\n"));
}

//! JSON is printed on terminals, too; a salvage prints nothing else unless told otherwise.
void CtlShowTest::jsonMovesNoCursor()
{
    const QByteArray text
        = "\x7F\xC2\x80\xC2\x9F\xC2\xA0\xE2\x80\x8D\xE2\x80\x8E\xE2\x80\xA8"
          "\xE2\x80\xAE\xE2\x80\xAF\xE2\x81\xA5\xE2\x81\xA6\xE2\x81\xA9\xE2\x81\xAA\xC2";
    folder->put(0, storedEvent(1, text));
    const CtlRun run = show({"-o"_s, "json"_s});
    const QByteArray escaped
        = "\\u007F\\u0080\\u009F\xC2\xA0\xE2\x80\x8D\\u200E\\u2028"
          "\\u202E\xE2\x80\xAF\xE2\x81\xA5\\u2066\\u2069\xE2\x81\xAA\xEF\xBF\xBD";
    QVERIFY2(run.out.contains("\"message\":\"" + escaped + "\""), run.out.constData());
    QCOMPARE(run.objects().value(0).value("message"_s).toString(), QString::fromUtf8(text));
}

void CtlShowTest::catalogueOfNothing()
{
    folder->put(0, supply(1));
    const QStringList options{"show"_s, "-D"_s, folder->dir().path(), "-C"_s, "/dev/null"_s};
    const CtlRun run = runCtl(options);
    QCOMPARE(run.status, 0);
    QVERIFY2(run.errors.contains("/dev/null: the catalogue has no events"), run.errors.constData());
    QCOMPARE(runCtl(options + QStringList{"-q"_s}).errors, QByteArray());
}

void CtlShowTest::csv()
{
    folder->put(0, supply(1) + eventRecord(2, 555, "x") + QByteArray(50, '\0') + overload(4));
    const CtlRun run = show({"-o"_s, "csv"_s});
    QCOMPARE(run.status, 3);
    const QByteArray begin = QByteArray::number(supply(1).size() + eventRecord(2, 555, "x").size());
    const QByteArray end
        = QByteArray::number(supply(1).size() + eventRecord(2, 555, "x").size() + 50);
    QCOMPARE(run.out,
             "number,time,event,name,service,level,levelNumber,path,message,state\r\n"
             "1,2023-11-14T22:13:20.250000Z,1001,supply,power,notice,5,/power/supply,"
             "Supply has 24 V,whole\r\n"
             "2,2023-11-14T22:13:20.250000Z,555,,,,,/power/supply,,whole\r\n"
             ",,,,,,,,zib0.log from "
                 + begin + " to " + end
                 + ": zeros,lost\r\n"
                   "4,2023-11-14T22:13:20.250000Z,1002,overload,power,error,3,/power/supply,"
                   "Load is 7,whole\r\n");
    QCOMPARE(show({"-o"_s, "csv"_s, "-e"_s, "9"_s, "--number"_s, "99"_s}).out,
             QByteArray("number,time,event,name,service,level,levelNumber,path,message,state\r\n"));
}

void CtlShowTest::csvQuotes()
{
    folder->put(0,
                storedEvent(1, "a,b") + storedEvent(2, "say \"x\"") + storedEvent(3, "line\r\nfeed")
                    + storedEvent(4,
                                  "\xFFS\xC3\xBC"
                                  "d")
                    + storedEvent(5, " a "));
    const QByteArray out = show({"-o"_s, "csv"_s}).out;
    QVERIFY(out.contains(",\"a,b\",whole\r\n"));
    QVERIFY(out.contains(",\"say \"\"x\"\"\",whole\r\n"));
    QVERIFY(out.contains(",\"line\r\nfeed\",whole\r\n"));
    QVERIFY(out.contains(",\xEF\xBF\xBDS\xC3\xBC"
                         "d,whole\r\n"));
    QVERIFY(out.contains(", a ,whole\r\n"));
}

void CtlShowTest::raw()
{
    folder->put(0, supply(1) + eventRecord(2, 555, "xy"));
    QCOMPARE(
        show({"-o"_s, "raw"_s}).out,
        QByteArray("offset  bytes                    meaning (zib0.log, bytes 0 to 53)\n"
                   "     0  01 00 00 00 00 00 00 00  log number 1\n"
                   "     8  00 f1 53 65 00 00 00 00  seconds 1700000000: 2023-11-14T22:13:20Z\n"
                   "    16  90 d0 03 00              microseconds 250000\n"
                   "    20  00 00 00 00              padding\n"
                   "    24  e9 03 00 00              event id 1001: supply\n"
                   "    28  0d 00                    path, string: 13 bytes of UTF-8\n"
                   "    30  2f 70 6f 77 65 72 2f 73  \"/power/supply\"\n"
                   "    38  75 70 70 6c 79\n"
                   "    43  00 00 00 00 00 00 38 40  volts, double: 24\n"
                   "    51  0a                       end mark\n"
                   "    52  34 00                    trailer: 52 bytes stand before it\n"
                   "\n"
                   "offset  bytes                    meaning (zib0.log, bytes 54 to 101)\n"
                   "     0  02 00 00 00 00 00 00 00  log number 2\n"
                   "     8  00 f1 53 65 00 00 00 00  seconds 1700000000: 2023-11-14T22:13:20Z\n"
                   "    16  90 d0 03 00              microseconds 250000\n"
                   "    20  00 00 00 00              padding\n"
                   "    24  2b 02 00 00              event id 555, which the catalogue does not "
                   "know\n"
                   "    28  0d 00                    path, string: 13 bytes of UTF-8\n"
                   "    30  2f 70 6f 77 65 72 2f 73  \"/power/supply\"\n"
                   "    38  75 70 70 6c 79\n"
                   "    43  78 79                    values\n"
                   "    45  0a                       end mark\n"
                   "    46  2e 00                    trailer: 46 bytes stand before it\n"));
}

void CtlShowTest::rawDamage()
{
    // Whatever is cut off, each byte that is shown has its place.
    const QByteArray whole = numbered(1, 3) + supply(4);
    for (qint64 size = numbered(1, 3).size() + 1; size < whole.size(); ++size) {
        folder->put(0, whole.left(int(size)));
        folder->setAge("zib0.log"_s, 100);
        const CtlRun run = show({"-o"_s, "raw"_s});
        QCOMPARE(run.status, 3);
        QVERIFY2(run.out.contains("lost: ") || run.out.contains("damaged"), run.out.constData());
    }
    folder->put(0, numbered(1, 2) + eventRecord(3, 1001, "short") + numbered(4, 5));
    const CtlRun run = show({"-o"_s, "raw"_s, "--number"_s, "3"_s});
    QVERIFY2(run.out.contains("volts, double: not stored, or not all of it"), run.out.constData());
    QVERIFY(run.out.contains("end mark"));
}

void CtlShowTest::json()
{
    folder->put(0, supply(1));
    const CtlRun run = show({"-o"_s, "json"_s});
    QCOMPARE(run.out, runCtl({"salvage"_s, "-D"_s, folder->dir().path(), "-C"_s, catalogue}).out);
    QCOMPARE(run.objects().first().value("message"_s).toString(), "Supply has 24 V"_s);
}

void CtlShowTest::noColourInPipes_data()
{
    QTest::addColumn<QString>("environment");
    QTest::addColumn<QString>("options");
    QTest::addColumn<bool>("isColoured");

    QTest::newRow("none in a pipe") << "TERM=xterm"_s << QString() << false;
    QTest::newRow("always is always") << "TERM=dumb"_s
                                      << "--color always"_s << true;
    QTest::newRow("also against the user's wish in general") << "NO_COLOR=1"_s
                                                             << "--color always"_s << true;
    QTest::newRow("never is never") << "TERM=xterm"_s
                                    << "--color never"_s << false;
    QTest::newRow("auto is neither") << "TERM=xterm"_s
                                     << "--color auto"_s << false;
}

void CtlShowTest::noColourInPipes()
{
    QFETCH(QString, environment);
    QFETCH(QString, options);
    QFETCH(bool, isColoured);
    folder->put(0, supply(1) + overload(2));
    const CtlRun run = showWith(environment, options.split(QLatin1Char(' '), Qt::SkipEmptyParts));
    QCOMPARE(run.out.contains("\x1B[1;31merror\x1B[0m "), isColoured);
    QCOMPARE(run.out.contains('\x1B'), isColoured);
}

void CtlShowTest::readsNoInput()
{
    folder->put(0, numbered(1, 2));
    const CtlRun run = runShell("{ \"$CTL\" -q -D "_s + folder->dir().path()
                                + " >/dev/null; cat; } <<end\nstill here\nend"_s);
    QCOMPARE(run.out, QByteArray("still here\n"));
}

void CtlShowTest::closedOutput()
{
    folder->put(0, numbered(1, 2000));
    const CtlRun run = runShell("exec 3>&1; { \"$CTL\" -q -D "_s + folder->dir().path()
                                + "; echo $? >&3; } | :"_s);
    QCOMPARE(run.out, QByteArray("141\n"));
    QCOMPARE(run.errors, QByteArray());
    const CtlRun full = runShell("\"$CTL\" -q -D "_s + folder->dir().path() + " >/dev/full"_s);
    QCOMPARE(full.status, 4);
    QVERIFY(full.errors.contains("No space left on device"));
}

QTEST_GUILESS_MAIN(CtlShowTest)
#include "tst_ctlshow.moc"

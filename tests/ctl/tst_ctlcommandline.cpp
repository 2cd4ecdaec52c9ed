// SPDX-License-Identifier: Apache-2.0

// What the tool makes of its arguments, before any folder is looked at.

#include "ctl/ctlprocess.h"
#include "support/literals.h"

#include <QTest>

class CtlCommandLineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wrongUsage_data();
    void wrongUsage();
    void help_data();
    void help();
    void version();
    void fullOutput();
};

void CtlCommandLineTest::wrongUsage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("complaint");

    QTest::newRow("what comes behind options is no command")
        << QStringList{"-D"_s, "a"_s, "verify"_s} << "verify"_s;
    QTest::newRow("a selection is not for every command")
        << QStringList{"verify"_s, "-n"_s, "5"_s} << "-n"_s;
    const QList<QStringList> wrongValues{
        {"-n"_s, "few"_s, "--lines"_s, "no number from 0 to"_s},
        {"-n"_s, "-1"_s, "--lines"_s, "no number from 0 to"_s},
        {"-S"_s, "soon"_s, "--since"_s, "yesterday, 1h"_s},
        {"-U"_s, "2026-02-30"_s, "--until"_s, "yesterday, 1h"_s},
        {"--number"_s, "5..3"_s, "--number"_s, "12..34, 12.., ..34 or 12"_s},
        {"--number"_s, ".."_s, "--number"_s, "12..34"_s},
        {"--number"_s, "a"_s, "--number"_s, "12..34"_s},
        {"-p"_s, ".."_s, "--level"_s, "by name or number"_s},
        {"-e"_s, "99999999999"_s, "--event"_s, "neither the id"_s},
        {"--path"_s, "[a"_s, "--path"_s, "* stands for any text"_s},
        {"-g"_s, "(a"_s, "--grep"_s, "missing closing parenthesis"_s},
        {"-o"_s, "xml"_s, "--output"_s, "text, json, csv, raw"_s},
        {"--time"_s, "mine"_s, "--time"_s, "local, utc, iso, unix, relative"_s},
        {"--color"_s, "red"_s, "--color"_s, "auto, always, never"_s},
    };
    for (const QStringList &value : wrongValues) {
        for (const QString &part : value.mid(2)) {
            QTest::addRow("%s %s names %s", qPrintable(value[0]), qPrintable(value[1]),
                          qPrintable(part))
                << QStringList(value.mid(0, 2)) << part;
        }
    }
    QTest::newRow("counts are no table of records")
        << QStringList{"stats"_s, "-o"_s, "csv"_s} << "text, json"_s;
    QTest::newRow("and have the times of people")
        << QStringList{"stats"_s, "--time"_s, "unix"_s} << "local, utc"_s;
    QTest::newRow("an unknown command is told") << QStringList{"mend"_s} << "mend"_s;
    QTest::newRow("an unknown option is told") << QStringList{"verify"_s, "--mend"_s} << "--mend"_s;
    QTest::newRow("an option of another command is unknown")
        << QStringList{"verify"_s, "--dry-run"_s} << "--dry-run"_s;
    QTest::newRow("one command at a time") << QStringList{"verify"_s, "repair"_s} << "repair"_s;
    QTest::newRow("words are told in their order")
        << QStringList{"verify"_s, "one"_s, "two"_s} << "these were not expected: one two;"_s;
    QTest::newRow("a command behind options is told where it belongs")
        << QStringList{"-q"_s, "stats"_s} << "a command stands in front of its options"_s;
    QTest::newRow("a number goes with its time")
        << QStringList{"collect"_s, "--after"_s, "5"_s} << "--after and --at go together"_s;
    QTest::newRow("and a time with its number")
        << QStringList{"collect"_s, "--at"_s, "now"_s} << "--after and --at go together"_s;
    QTest::newRow("an option without its value is told")
        << QStringList{"verify"_s, "-D"_s} << "-"_s;
    QTest::newRow("an option comes once")
        << QStringList{"verify"_s, "-D"_s, "a"_s, "-D"_s, "b"_s} << "--directory"_s;
    QTest::newRow("the format is text or json")
        << QStringList{"verify"_s, "-o"_s, "xml"_s} << "--output"_s;
    QTest::newRow("a time limit is a number")
        << QStringList{"repair"_s, "--time-limit"_s, "soon"_s} << "--time-limit"_s;
    QTest::newRow("a time limit is above zero")
        << QStringList{"repair"_s, "--time-limit"_s, "0"_s} << "--time-limit"_s;
}

void CtlCommandLineTest::wrongUsage()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, complaint);
    const CtlRun run = runCtl(arguments);
    QCOMPARE(run.status, 2);
    QCOMPARE(run.out, QByteArray());
    QVERIFY2(run.errors.startsWith("systemeventctl: "), run.errors.constData());
    QVERIFY2(QString::fromUtf8(run.errors).contains(complaint), run.errors.constData());
    QVERIFY2(run.errors.endsWith("--help\"\n"), run.errors.constData());
    QCOMPARE(run.errors.count('\n'), QByteArray::size_type(1));
}

void CtlCommandLineTest::help_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("part");

    QTest::newRow("the tool names its commands")
        << QStringList{"--help"_s} << QByteArray("salvage");
    QTest::newRow("also those of two words")
        << QStringList{"--help"_s} << QByteArray("  catalogue check  tells");
    QTest::newRow("-h is the same") << QStringList{"-h"_s} << QByteArray("salvage");
    QTest::newRow("show has its own")
        << QStringList{"show"_s, "--help"_s} << QByteArray("--follow");
    QTest::newRow("which is also that of options alone")
        << QStringList{"-n"_s, "5"_s, "-h"_s} << QByteArray("--follow");
    QTest::newRow("stats has its own")
        << QStringList{"stats"_s, "--help"_s} << QByteArray("--output text|json ");
    QTest::newRow("verify has its own")
        << QStringList{"verify"_s, "--help"_s} << QByteArray("--catalogue FILE");
    QTest::newRow("salvage has its own")
        << QStringList{"salvage"_s, "--help"_s} << QByteArray("-O, --output-directory DIR");
    QTest::newRow("report has its own")
        << QStringList{"report"_s, "--help"_s} << QByteArray("report FILE.html [OPTIONS]");
    QTest::newRow("watch has its own")
        << QStringList{"watch"_s, "--help"_s} << QByteArray("--grep REGEX");
    QTest::newRow("emit names its arguments")
        << QStringList{"emit"_s, "--help"_s} << QByteArray("emit EVENT [VALUE...] [OPTIONS]");
    QTest::newRow("settings names its arguments")
        << QStringList{"settings"_s, "--help"_s} << QByteArray("settings [NAME [VALUE]] [OPTIONS]");
    QTest::newRow("collect has its own")
        << QStringList{"collect"_s, "--help"_s} << QByteArray("--after NUMBER");
    QTest::newRow("clear has its own") << QStringList{"clear"_s, "--help"_s} << QByteArray("--yes");
    QTest::newRow("repair has its own")
        << QStringList{"repair"_s, "-h"_s} << QByteArray("--dry-run");
}

void CtlCommandLineTest::help()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, part);
    const CtlRun run = runCtl(arguments);
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    QVERIFY(run.out.contains(part));
    const QList<QByteArray> lines = run.out.split('\n');
    QVERIFY(lines.size() <= 60);
    for (const QByteArray &line : lines) {
        QVERIFY2(line.size() < 80, line.constData());
        QVERIFY2(!line.endsWith(' '), line.constData());
    }
}

void CtlCommandLineTest::version()
{
    const CtlRun run = runCtl({"--version"_s});
    QCOMPARE(run.status, 0);
    QVERIFY(run.out.startsWith("systemeventctl "));
    QCOMPARE(run.out.count('\n'), QByteArray::size_type(1));
}

void CtlCommandLineTest::fullOutput()
{
    const CtlRun run = runShell("\"$CTL\" --help >/dev/full"_s);
    QCOMPARE(run.status, 4);
    QVERIFY(run.errors.contains("standard output cannot be written: No space left on device"));
}

QTEST_GUILESS_MAIN(CtlCommandLineTest)
#include "tst_ctlcommandline.moc"

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

    QTest::newRow("a command is wanted") << QStringList() << "a command is missing"_s;
    QTest::newRow("an unknown command is told") << QStringList{"mend"_s} << "mend"_s;
    QTest::newRow("an unknown option is told") << QStringList{"verify"_s, "--mend"_s} << "--mend"_s;
    QTest::newRow("an option of another command is unknown")
        << QStringList{"verify"_s, "--dry-run"_s} << "--dry-run"_s;
    QTest::newRow("one command at a time") << QStringList{"verify"_s, "repair"_s} << "repair"_s;
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
    QTest::newRow("-h is the same") << QStringList{"-h"_s} << QByteArray("salvage");
    QTest::newRow("verify has its own")
        << QStringList{"verify"_s, "--help"_s} << QByteArray("--catalogue FILE");
    QTest::newRow("salvage has its own")
        << QStringList{"salvage"_s, "--help"_s} << QByteArray("-O, --output-directory DIR");
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

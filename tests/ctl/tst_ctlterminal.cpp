// SPDX-License-Identifier: Apache-2.0

// What is different where standard output is a terminal: lines as wide as it, colours, a
// pager, notes in their places, and Ctrl-C.

#include "ctl/ctlprocess.h"
#include "ctl/terminal.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using RecordBytes::Fields;
using RecordBytes::record;
using RecordBytes::sized;

namespace
{

QByteArray setting(quint64 logNr, const QByteArray &text)
{
    Fields fields;
    fields.logNr = logNr;
    fields.eventId = 4005;
    fields.path = "/update/settings";
    fields.values = sized(text);
    return record(fields);
}

QByteArray settings(quint64 from, quint64 to)
{
    QByteArray bytes;
    for (quint64 i = from; i <= to; ++i) {
        bytes += setting(i, "number." + QByteArray::number(i));
    }
    return bytes;
}

QByteArray withoutColours(QByteArray text)
{
    for (const char *const colour : {"\x1B[0m", "\x1B[1m", "\x1B[1;35m"}) {
        text.replace(colour, "");
    }
    return text;
}

} // namespace

class CtlTerminalTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void narrow();
    void wide();
    void everyWidth();
    void longTexts();
    void colours_data();
    void colours();
    void notesInTheirPlaces();
    void tablesMoveNoCursor();
    void pager_data();
    void pager();
    void usualPager();
    void withoutAnyPager();
    void pagerThatEnds();
    void pagerAndInterrupt();

private:
    [[nodiscard]] QString line(const QString &options = {}, const QString &environment = {}) const
    {
        return environment + " \"$CTL\" show --time utc -D "_s + folder->dir().path() + " -C "_s
            + testCatalogue() + " "_s + options;
    }
    [[nodiscard]] static QByteArray run(const QString &command, int columns = 80)
    {
        return Terminal(command, columns).finish();
    }

    std::unique_ptr<LogFolder> folder;
};

void CtlTerminalTest::init()
{
    folder = std::make_unique<LogFolder>();
    folder->put(0, setting(9, "device.name") + setting(10, "x"));
}

void CtlTerminalTest::narrow()
{
    QCOMPARE(withoutColours(run(line())),
             QByteArray(" 9 2023-11-14T22:13:20.250000Z notice settingChanged /update/settings\n"
                        "   Setting device.name is now …\n"
                        "10 2023-11-14T22:13:20.250000Z notice settingChanged /update/settings\n"
                        "   Setting x is now …\n"));
}

void CtlTerminalTest::wide()
{
    QCOMPARE(withoutColours(run(line(), 132)),
             QByteArray(" 9 2023-11-14T22:13:20.250000Z notice settingChanged /update/settings     "
                        "Setting device.name is now …\n"
                        "10 2023-11-14T22:13:20.250000Z notice settingChanged /update/settings     "
                        "Setting x is now …\n"));
}

void CtlTerminalTest::everyWidth()
{
    QByteArray words;
    for (int i = 1; i < 30; ++i) {
        words += QByteArray(i, 'w') + " Gerät ";
    }
    folder->put(0, setting(9, words));
    for (int columns = 75; columns <= 140; columns += 5) {
        const QByteArray shown = withoutColours(run(line(), columns));
        const QStringList lines = QString::fromUtf8(shown).split(QLatin1Char('\n'));
        QVERIFY(lines.size() > 3);
        for (const QString &each : lines) {
            QVERIFY2(each.size() <= columns, qPrintable(each));
            QVERIFY2(!each.endsWith(QLatin1Char(' ')), qPrintable(each));
        }
        QCOMPARE(QString::fromUtf8(shown).simplified().count("Gerät"_s), 29);
    }
}

void CtlTerminalTest::longTexts()
{
    // Words without an end, wide characters, and more columns than a line has for a path.
    folder->put(0, setting(1, QByteArray(200, 'x')));
    for (const QByteArray &each : run(line()).split('\n')) {
        QVERIFY2(withoutColours(each).size() <= 80, each.constData());
    }
    folder->put(
        0, setting(1, "電源電源電源電源電源電源電源電源電源電源電源電源電源電源電源電源電源電源"));
    const QStringList lines
        = QString::fromUtf8(withoutColours(run(line("--color never"_s)))).split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 5);
    QVERIFY(2 * lines.at(2).trimmed().size() <= 78);
    Fields fields;
    fields.logNr = 1;
    fields.eventId = 4005;
    fields.path = "/a/path/that/is/so/long/that/it/does/not/fit/behind/the/name";
    fields.values = sized("x");
    folder->put(0, record(fields));
    QCOMPARE(withoutColours(run(line())),
             QByteArray("1 2023-11-14T22:13:20.250000Z notice settingChanged\n"
                        "  /a/path/that/is/so/long/that/it/does/not/fit/behind/the/name\n"
                        "  Setting x is now …\n"));
}

void CtlTerminalTest::colours_data()
{
    QTest::addColumn<QString>("environment");
    QTest::addColumn<QString>("options");
    QTest::addColumn<bool>("isColoured");

    QTest::newRow("a terminal has colours") << QString() << QString() << true;
    QTest::newRow("auto is the same") << QString() << "--color auto"_s << true;
    QTest::newRow("never is never") << QString() << "--color never"_s << false;
    QTest::newRow("NO_COLOR is none") << "NO_COLOR=1"_s << QString() << false;
    QTest::newRow("an empty NO_COLOR is nothing") << "NO_COLOR="_s << QString() << true;
    QTest::newRow("always is always") << "NO_COLOR=1"_s
                                      << "--color always"_s << true;
    QTest::newRow("a terminal that is dumb has none") << "TERM=dumb"_s << QString() << false;
    QTest::newRow("one without a name too") << "TERM="_s << QString() << false;
    QTest::newRow("JSON has none") << QString() << "-o json"_s << false;
}

void CtlTerminalTest::colours()
{
    QFETCH(QString, environment);
    QFETCH(QString, options);
    QFETCH(bool, isColoured);
    const QByteArray shown = run(line(options, environment));
    QCOMPARE(shown.contains("\x1B[1mnotice\x1B[0m "), isColoured);
    QCOMPARE(shown.contains('\x1B'), isColoured);
}

void CtlTerminalTest::notesInTheirPlaces()
{
    const QByteArray before = settings(1, 4);
    folder->put(0, before + QByteArray(50, '\0') + settings(7, 9));
    const QByteArray note = "-- lost: zib0.log from " + QByteArray::number(before.size()) + " to "
        + QByteArray::number(before.size() + 50) + ": zeros";
    const QByteArray shown = withoutColours(run(line(" 2>/dev/null"_s)));
    QVERIFY2(shown.contains("number.4 is now …\n" + note + "\n-- missing: numbers 5 to 6\n7 "),
             shown.constData());
    QVERIFY(run(line()).contains("\x1B[1;35m" + note + "\x1B[0m\n"));
}

void CtlTerminalTest::tablesMoveNoCursor()
{
    folder->put(0, setting(1, "\x1B[2J\xC2\x9B\r\nfeed"));
    QVERIFY(run(line("-o csv"_s)).contains("Setting \\x1b[2J\\x9b\\x0d\\x0afeed is now …"));
    QVERIFY(!run(line("-o json"_s)).contains('\x1B'));
    QVERIFY(!run(line("-o raw"_s)).contains('\x1B'));
}

void CtlTerminalTest::pager_data()
{
    QTest::addColumn<QString>("environment");
    QTest::addColumn<QString>("options");
    QTest::addColumn<bool>("isPaged");

    const QString pager = "PAGER='echo paged; cat'"_s;
    QTest::newRow("the user's pager is run") << pager << QString() << true;
    QTest::newRow("with every format") << pager << "-o json"_s << true;
    QTest::newRow("the newest first too") << pager << "-r"_s << true;
    QTest::newRow("not where it is not wanted") << pager << "--no-pager"_s << false;
    QTest::newRow("not in a pipe") << pager << "| cat"_s << false;
    QTest::newRow("an empty one is none") << "PAGER="_s << QString() << false;
    QTest::newRow("one that is not there is none") << "PAGER=nosuchpager"_s << QString() << false;
}

void CtlTerminalTest::pager()
{
    QFETCH(QString, environment);
    QFETCH(QString, options);
    QFETCH(bool, isPaged);
    Terminal terminal(line(options, environment), 80);
    const QByteArray shown = terminal.finish();
    QCOMPARE(terminal.status(), 0);
    QCOMPARE(shown.startsWith("paged\n"), isPaged);
    QVERIFY(shown.contains("device.name"));
}

void CtlTerminalTest::usualPager()
{
    const QTemporaryDir programs;
    QFile less(programs.filePath("less"_s));
    QVERIFY(less.open(QIODevice::WriteOnly)
            && less.write("#!/bin/sh\necho \"less $* $LESSCHARSET\"\nexec cat\n") > 0);
    less.close();
    QVERIFY(less.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    const QByteArray shown = run("unset PAGER; PATH="_s + programs.path() + ":$PATH"_s + line());
    QVERIFY2(shown.startsWith("less -FRX utf-8\n"), shown.constData());
    const QByteArray plain
        = run("unset PAGER; TERM=dumb; PATH="_s + programs.path() + ":$PATH"_s + line());
    QVERIFY2(plain.startsWith(" 9 "), plain.constData()); // it would ask to go on
}

void CtlTerminalTest::withoutAnyPager()
{
    const QByteArray shown = run("unset PAGER; PATH=/nowhere"_s + line());
    QVERIFY2(withoutColours(shown).startsWith(" 9 "), shown.constData());
}

void CtlTerminalTest::pagerThatEnds()
{
    folder->put(0, settings(1, 3000));
    Terminal terminal(line({}, "PAGER='head -n 1'"_s), 80);
    const QByteArray shown = terminal.finish();
    QCOMPARE(terminal.status(), 0);
    QCOMPARE(shown.count('\n'), QByteArray::size_type(1));
}

void CtlTerminalTest::pagerAndInterrupt()
{
    // More than a pipe holds: the tool waits while the pager does not read.
    folder->put(0, settings(1, 3000));
    const QString waiting
        = "trap 'x=1' INT; head -c 1; echo paged; while [ -z \"$x\" ]; do sleep 0.01; done; "_s;
    Terminal terminal(line({},
                           "PAGER=\""_s
                               + QString(waiting)
                                     .replace(QLatin1Char('"'), "\\\""_s)
                                     .replace(QLatin1Char('$'), "\\$"_s)
                               + "cat; echo paged to its end\""_s),
                      80);
    terminal.waitFor("paged");
    terminal.type("\x03");
    const QByteArray shown = terminal.finish();
    QCOMPARE(terminal.status(), 130);
    QVERIFY2(shown.endsWith("paged to its end\n"), shown.right(200).constData());
    QVERIFY2(shown.contains("number.9 "), shown.left(300).constData());
    QVERIFY(!shown.contains("number.3000 "));
}

QTEST_GUILESS_MAIN(CtlTerminalTest)
#include "tst_ctlterminal.moc"

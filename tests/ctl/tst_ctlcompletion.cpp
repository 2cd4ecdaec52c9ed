// SPDX-License-Identifier: Apache-2.0

// What the tool offers for a word that is being typed, and what bash and zsh make of it on
// a terminal.

#include "ctl/ctlprocess.h"
#include "ctl/terminal.h"
#include "support/literals.h"
#include "support/recordbytes.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

namespace
{

constexpr char catalogueXml[] = R"xml(<?xml version="1.0" encoding="UTF-8"?>
<systemevents>
  <enum name="LogLevel">
    <item value="4" name="warning"/>
    <item value="5" name="notice"/>
  </enum>
  <service name="power">
    <event id="1001" name="supplyChanged" loglevel="notice">
      <description lang="en">Supply</description>
      <description lang="de">Versorgung</description>
    </event>
    <event id="1002" name="fanChanged" loglevel="warning"/>
  </service>
  <service name="two words">
    <event id="2001" name="$(touch owned)" loglevel="notice"/>
    <event id="2002" name="&#10;broken&#9;&#x9b;" loglevel="notice"/>
  </service>
</systemevents>
)xml";

QByteArray recordOf(quint64 number, const QByteArray &path)
{
    RecordBytes::Fields fields;
    fields.logNr = number;
    fields.path = path;
    return RecordBytes::record(fields);
}

void write(const QString &name, const QByteArray &content)
{
    QFile file(name);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("cannot write %s", qPrintable(name));
    }
}

} // namespace

class CtlCompletionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void candidates_data();
    void candidates();
    void values_data();
    void values();
    void everyValue_data();
    void everyValue();
    void quiet_data();
    void quiet();
    void inShells_data();
    void inShells();

private:
    //! A row's candidates with those that are offered for its words.
    static void compare();
    //! The candidates alone, behind the line that says what they are.
    static QStringList offered(const QStringList &words)
    {
        const CtlRun run = runCtl(QStringList{"--complete"_s} + words);
        QStringList lines = QString::fromUtf8(run.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        for (QString &line : lines) {
            line = line.section(QLatin1Char('\t'), 0, 0);
        }
        return run.status == 0 && run.errors.isEmpty() ? lines : QStringList{"failed"_s};
    }

    QTemporaryDir home;
};

void CtlCompletionTest::initTestCase()
{
    QVERIFY(home.isValid());
    const QDir dir(home.path());
    QVERIFY(dir.mkpath("my logs"_s) && dir.mkpath("bin"_s) && dir.mkpath("functions"_s));
    write(dir.filePath("events.xml"_s), catalogueXml);
    write(dir.filePath("my logs/zib0.log"_s),
          recordOf(1, "/power/supply") + recordOf(2, "/doors/1") + recordOf(3, "/odd\n\x1b[2J"));
    QVERIFY(QFile::link(ctlProgram(), dir.filePath("bin/systemeventctl"_s)));
    const QString scripts = QString::fromLocal8Bit(qgetenv("SEL_COMPLETION"));
    QVERIFY(QFile::link(scripts + "/systemeventctl.zsh"_s,
                        dir.filePath("functions/_systemeventctl"_s)));
    // Ctrl-G tells what the line has become, and leaves the shell.
    write(dir.filePath("bashrc"_s),
          "PS1='ready '\nPATH=$PWD/bin:$PATH\nHISTFILE=\n. " + QFile::encodeName(scripts)
              + "/systemeventctl.bash\n"
                "bind -x '\"\\C-g\": printf \"line<%s>line\\n\" \"$READLINE_LINE\"; exit'\n");
    write(dir.filePath(".zshenv"_s), "unsetopt GLOBAL_RCS\n");
    write(dir.filePath(".zshrc"_s),
          "PS1='ready '\npath=($PWD/bin $path)\nfpath=($PWD/functions $fpath)\n"
          "autoload -Uz compinit && compinit -u -D\n"
          "tell() { zle -I; print -r -- \"line<$BUFFER>line\"; exit }\n"
          "bindkey -e\nzle -N tell\nbindkey '^G' tell\n");
    QVERIFY(QDir::setCurrent(home.path()));
}

void CtlCompletionTest::candidates_data()
{
    QTest::addColumn<QString>("words");
    QTest::addColumn<QString>("candidates");

    QTest::newRow("the first word is a command") << "re"_s
                                                 << "report repair"_s;
    QTest::newRow("one without such a beginning is none") << "xyz"_s
                                                          << ""_s;
    QTest::newRow("a group of commands is one word") << "cat"_s
                                                     << "catalogue"_s;
    QTest::newRow("its commands come behind it") << "catalogue "_s
                                                 << "check list show"_s;
    QTest::newRow("they have options of their own") << "catalogue check --w"_s
                                                    << "--werror"_s;
    QTest::newRow("and arguments") << "catalogue show -C events.xml fan"_s
                                   << "fanChanged"_s;
    QTest::newRow("options stand where show is meant") << "-C events.xml --lin"_s
                                                       << "--lines"_s;
    QTest::newRow("help and version stand alone") << "--ver"_s
                                                  << "--version"_s;
    QTest::newRow("the version does not stand behind a command") << "show --ver"_s
                                                                 << ""_s;
    QTest::newRow("an option is of its command alone") << "repair --d"_s
                                                       << "--directory --dry-run"_s;
    QTest::newRow("what comes once is offered once") << "repair --dry-run --d"_s
                                                     << "--directory"_s;
    QTest::newRow("so it is where it was short") << "repair -Dx --d"_s
                                                 << "--dry-run"_s;
    QTest::newRow("what may come again is offered again") << "show -e1 --ev"_s
                                                          << "--event"_s;
    QTest::newRow("a short option is as it is") << "show -f"_s
                                                << "-f"_s;
    QTest::newRow("no option stands behind --") << "emit -- --p"_s
                                                << ""_s;
    QTest::newRow("a word that an option waits for is no command's")
        << "emit -C events.xml --path x fan"_s
        << "fanChanged"_s;
}

void CtlCompletionTest::candidates()
{
    compare();
}

void CtlCompletionTest::values_data()
{
    QTest::addColumn<QString>("words");
    QTest::addColumn<QString>("candidates");

    QTest::newRow("formats of show") << "show -o "_s
                                     << "csv json raw text"_s;
    QTest::newRow("formats of verify") << "verify -o "_s
                                       << "json text"_s;
    QTest::newRow("a value behind =") << "show --time=u"_s
                                      << "--time=unix --time=utc"_s;
    QTest::newRow("a value behind a letter") << "show -oj"_s
                                             << "-ojson"_s;
    QTest::newRow("a value behind letters") << "show -roj"_s
                                            << "-rojson"_s;
    QTest::newRow("events by name") << "show -C events.xml -e "_s
                                    << "$(touch|owned) fanChanged supplyChanged"_s;
    QTest::newRow("events by id") << "show -C events.xml -e 1"_s
                                  << "1001 1002"_s;
    QTest::newRow("an event to be announced") << "emit --catalogue=events.xml su"_s
                                              << "supplyChanged"_s;
    QTest::newRow("levels") << "show -Cevents.xml -p "_s
                            << "notice warning"_s;
    QTest::newRow("the end of levels") << "show -Cevents.xml -p warning..n"_s
                                       << "warning..notice"_s;
    QTest::newRow("services") << "show -C events.xml -s "_s
                              << "power two|words"_s;
    QTest::newRow("languages") << "show -C events.xml -l "_s
                               << "de en"_s;
    QTest::newRow("paths of the log") << "show -D my|logs --path "_s
                                      << "/doors/1 /power/supply"_s;
    QTest::newRow("and of what announces") << "watch --path "_s
                                           << ""_s;
    QTest::newRow("times with a name") << "show -S t"_s
                                       << "today"_s;
    QTest::newRow("settings") << "settings logn"_s
                              << ""_s;
    QTest::newRow("settings by their case") << "settings logN"_s
                                            << "logNetwork logNetworkAddress logNetworkLang"_s;
}

void CtlCompletionTest::values()
{
    compare();
}

void CtlCompletionTest::compare()
{
    QFETCH(QString, words);
    QFETCH(QString, candidates);
    QStringList typed = words.split(QLatin1Char(' '));
    typed.replaceInStrings("|"_s, " "_s); // a blank within
    QStringList expected = candidates.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    expected.replaceInStrings("|"_s, " "_s);
    expected.prepend("words 0"_s);
    QCOMPARE(offered(typed), expected);
}

void CtlCompletionTest::everyValue_data()
{
    QTest::addColumn<QString>("command");
    const QString help = QString::fromUtf8(runCtl({"--help"_s}).out);
    const QString list = help.section("\nCommands:\n"_s, 1).section("\n\n"_s, 0, 0);
    QRegularExpressionMatchIterator lines
        = QRegularExpression("^  (\\w+(?: \\w+)?)  "_s, QRegularExpression::MultilineOption)
              .globalMatch(list);
    while (lines.hasNext()) {
        const QString command = lines.next().captured(1);
        QTest::newRow(qPrintable(command)) << command;
    }
}

// A new name of a value in a help is noticed here, and either known or listed.
void CtlCompletionTest::everyValue()
{
    QFETCH(QString, command);
    const QStringList free{"N"_s, "A..B"_s, "REGEX"_s, "SECONDS"_s, "TYPES"_s, "NUMBER"_s};
    const QStringList words = command.split(QLatin1Char(' '));
    const QString help = QString::fromUtf8(runCtl(words + QStringList{"--help"_s}).out);
    QRegularExpressionMatchIterator options
        = QRegularExpression("^  .*(--[\\w-]+) (\\S+)"_s, QRegularExpression::MultilineOption)
              .globalMatch(help.section("\nOptions:\n"_s, 1));
    int seen = 0;
    while (options.hasNext()) {
        const QRegularExpressionMatch option = options.next();
        if (free.contains(option.captured(2))) {
            continue;
        }
        QStringList line = words;
        if (option.captured(1) != "--directory"_s && help.contains("--directory"_s)) {
            line += QStringList{"-D"_s, "my logs"_s};
        }
        if (option.captured(1) != "--catalogue"_s && help.contains("--catalogue"_s)) {
            line += QStringList{"-C"_s, "events.xml"_s};
        }
        const QStringList found = offered(line + QStringList{option.captured(1), QString()});
        const bool isKnown = found.size() > 1 || found.value(0) == "files 0"_s
            || found.value(0) == "directories 0"_s
            || (!help.contains("--directory"_s) && option.captured(1) == "--path"_s);
        QVERIFY2(isKnown, qPrintable(option.captured(0)));
        ++seen;
    }
    QVERIFY(seen > 0 || !help.contains("--output"_s));
}

void CtlCompletionTest::quiet_data()
{
    QTest::addColumn<QStringList>("words");

    QTest::newRow("nothing at all") << QStringList{};
    QTest::newRow("a missing catalogue")
        << QStringList{"show"_s, "-C"_s, "none.xml"_s, "-e"_s, ""_s};
    QTest::newRow("a pipe for a catalogue")
        << QStringList{"show"_s, "-C"_s, "pipe"_s, "-e"_s, ""_s};
    QTest::newRow("no catalogue") << QStringList{"show"_s, "-C"_s, "broken"_s, "-s"_s, ""_s};
    QTest::newRow("a missing folder") << QStringList{"show"_s, "-D"_s, "none"_s, "--path"_s, ""_s};
    QTest::newRow("a folder that is none")
        << QStringList{"show"_s, "-D"_s, "broken"_s, "--path"_s, ""_s};
    QTest::newRow("damage") << QStringList{"show"_s, "-D"_s, "."_s, "--path"_s, ""_s};
    QTest::newRow("an unknown option") << QStringList{"show"_s, "--mend"_s, ""_s, "-"_s, "--x"_s};
    QTest::newRow("an unknown command") << QStringList{"mend"_s, "x"_s, "-C"_s, ""_s};
    QTest::newRow("a value behind a switch") << QStringList{"show"_s, "--follow="_s};
    QTest::newRow("nothing but dashes") << QStringList{"show"_s, "--"_s, "--"_s, "-"_s};
}

void CtlCompletionTest::quiet()
{
    QFETCH(QStringList, words);
    write("broken"_s, "<<<");
    write("zib0.log"_s, QByteArray(5000, 'x'));
    (void)::mkfifo("pipe", 0600);
    const CtlRun run = runCtl(QStringList{"--complete"_s} + words);
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    QVERIFY2(run.out.count('\n') <= 1, run.out.constData());
    QVERIFY(QFile::remove("zib0.log"_s));
}

void CtlCompletionTest::inShells_data()
{
    QTest::addColumn<QString>("shell");
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QByteArray>("line");

    const struct {
        const char *title;
        const char *typed;
        const char *line;
    } rows[] = {
        {"a command", "sh", "show "},
        {"an option", "show --foll", "show --follow "},
        {"a value", "show --color ne", "show --color never "},
        {"a value behind =", "show --color=ne", "show --color=never "},
        {"a value behind a letter", "show -oj", "show -ojson "},
        {"an event of the named catalogue", "show -C events.xml -e supp",
         "show -C events.xml -e supplyChanged "},
        {"a level", "show -C events.xml -p no", "show -C events.xml -p notice "},
        {"the end of levels", "show -C events.xml -p warning..no",
         "show -C events.xml -p warning..notice "},
        {"a service with a blank", "show -C events.xml -s tw",
         "show -C events.xml -s two\\ words "},
        {"a path of a folder in quotes", "show -D 'my logs' --path /po",
         "show -D 'my logs' --path /power/supply "},
        {"a path of a folder with a backslash", "show -D my\\ logs --path=/po",
         "show -D my\\ logs --path=/power/supply "},
        {"a path of a folder at home", "show -D ~/my\\ logs --path /po",
         "show -D ~/my\\ logs --path /power/supply "},
        {"a path of a folder behind =", "show --directory=my\\ logs --path /po",
         "show --directory=my\\ logs --path /power/supply "},
        {"a language", "show --catalogue=events.xml -l d", "show --catalogue=events.xml -l de "},
        {"a setting", "settings logta", "settings logtail "},
        {"a file", "verify -C eve", "verify -C events.xml "},
        {"a file behind =", "verify --catalogue=eve", "verify --catalogue=events.xml "},
        {"a folder", "verify -D my", "verify -D my\\ logs/"},
        {"a name that is a command of the shell is never run", "show -C events.xml -e \\$",
         "show -C events.xml -e \\$\\(touch\\ owned\\) "},
        {"what is typed is never run", "show -C $(touch owned) -e x",
         "show -C $(touch owned) -e x"},
        {"nothing where there is nothing", "show -C none.xml -p no", "show -C none.xml -p no"},
    };
    for (const QString &shell : {"bash"_s, "zsh"_s}) {
        for (const auto &row : rows) {
            QTest::addRow("%s: %s", qPrintable(shell), row.title)
                << shell << QByteArray(row.typed) << QByteArray(row.line);
        }
    }
}

void CtlCompletionTest::inShells()
{
    QFETCH(QString, shell);
    QFETCH(QByteArray, typed);
    QFETCH(QByteArray, line);
    if (QStandardPaths::findExecutable(shell).isEmpty()) {
        QSKIP("there is no such shell here");
    }
    const QString options = shell == "bash"_s ? "--rcfile bashrc -i"_s : "-i"_s;
    constexpr int wide = 250;
    Terminal terminal("HOME=$PWD ZDOTDIR=$PWD "_s + shell + QLatin1Char(' ') + options, wide);
    terminal.waitFor("ready ");
    terminal.type("systemeventctl " + typed + '\t');
    terminal.type("\x07");
    const QByteArray shown = terminal.finish();
    const auto begin = shown.indexOf("line<") + 5;
    QCOMPARE(shown.mid(begin, shown.indexOf(">line") - begin), "systemeventctl " + line);
    QVERIFY(!shown.contains("systemeventctl: "));
    QVERIFY(!QFile::exists("owned"_s));
}

QTEST_GUILESS_MAIN(CtlCompletionTest)
#include "tst_ctlcompletion.moc"

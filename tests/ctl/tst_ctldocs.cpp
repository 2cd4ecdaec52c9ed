// SPDX-License-Identifier: Apache-2.0

// docs/systemeventctl.md is run as it stands: each line behind a "$ " on a device whose log is
// that of demo/a-day, and beside it what a customer has sent. What is printed must be what the
// document shows, and it ends with the status that is named behind the block's "console".
//
// Of what is shown "…" on a line of its own stands for any lines, at the end of one for its
// rest; times of today are all the same. A command that goes on for ever is interrupted once it
// has printed something; "watch" is given something to watch.

#include "ctl/ctlprocess.h"
#include "support/device.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <memory>
#include <utility>

#include <sys/types.h>

namespace
{

//! A command of the document, and what it is said to do.
struct Command {
    QString line;
    QStringList shown; //!< empty where nothing is
    int status = 0;
    int place = 0; //!< in the document, a line
};

QString sourcePath(const char *name)
{
    return qEnvironmentVariable("SEL_SOURCE_DIR") + QLatin1Char('/') + QLatin1String(name);
}

QStringList linesOf(const QString &fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("%s cannot be read", qPrintable(fileName));
    }
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
}

//! The commands of the document's blocks. Those of other blocks are told to \a others.
QList<Command> commandsOf(const QStringList &document, QStringList &others)
{
    static const QRegularExpression begin("^```(\\w*)(?: (\\d))?$"_s);
    QList<Command> commands;
    bool isInBlock = false;
    bool isConsole = false;
    int status = 0;
    for (int i = 0; i < document.size(); ++i) {
        const QString &line = document[i];
        const QRegularExpressionMatch fence = begin.match(line);
        if (fence.hasMatch()) {
            isInBlock = !isInBlock;
            isConsole = isInBlock && fence.captured(1) == "console"_s;
            status = fence.captured(2).toInt();
        } else if (isConsole && line.startsWith("$ "_s)) {
            commands.append({line.mid(2), {}, status, i + 1});
        } else if (isConsole && !commands.isEmpty()) {
            commands.last().shown.append(line);
        } else if ((isInBlock || line.startsWith("    "_s)) && line.contains("systemeventctl "_s)) {
            others.append(line);
        }
    }
    return commands;
}

QString withoutToday(QString text)
{
    static const QRegularExpression time(
        "(20[0-9]{2}-[0-9]{2}-[0-9]{2})([ T])[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}"_s);
    const QString theDay = "2026-11-20"_s; // of demo/a-day
    QRegularExpressionMatchIterator found = time.globalMatch(text);
    QStringList today;
    while (found.hasNext()) {
        const QRegularExpressionMatch match = found.next();
        if (match.captured(1) != theDay) {
            today.append(match.captured());
        }
    }
    for (const QString &each : std::as_const(today)) {
        text.replace(each, "TODAY"_s);
    }
    return text;
}

//! Whether what was printed is what is shown.
bool isShown(const QStringList &shown, const QString &printed)
{
    QString pattern;
    for (const QString &line : shown) {
        const bool isCut = line.endsWith("…"_s);
        const QString text = isCut ? line.chopped(1) : line;
        if (isCut && text.isEmpty()) {
            pattern += "(?:.*\\n)*?"_s;
        } else {
            pattern
                += QRegularExpression::escape(withoutToday(text)) + (isCut ? ".*\\n"_s : "\\n"_s);
        }
    }
    return QRegularExpression("^"_s + pattern + "$"_s).match(withoutToday(printed)).hasMatch();
}

bool goesOnForEver(const QString &line)
{
    static const QRegularExpression follow("systemeventctl (watch(?!.* -n )|.*-f\\b)"_s);
    return follow.match(line).hasMatch();
}

} // namespace

class CtlDocsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void everyLineIsRun();
    void everyCommandIsShown();
    void cleanupTestCase();

private:
    void makeFolder();
    void announce();
    QString run(const Command &command, int &status);

    TestBus bus;
    std::unique_ptr<Device> device;
    QTemporaryDir folder; //!< where the reader of the document works
    QList<Command> commands;
};

void CtlDocsTest::initTestCase()
{
    QStringList others;
    commands = commandsOf(linesOf(sourcePath("docs/systemeventctl.md")), others);
    QVERIFY2(others.isEmpty(), qPrintable("nothing runs: "_s + others.join(QLatin1Char('\n'))));
    QVERIFY(commands.size() > 40);
    device = std::make_unique<Device>();
    Device::writeCatalogue(
        linesOf(sourcePath("demo/systemevent.xml")).join(QLatin1Char('\n')).toUtf8());
    makeFolder();
    device->config.values["SystemeventLogLocal"_s] = "1"_s;
    QVERIFY(device->start());
}

//! The log of a day, and what the document's reader has beside it.
void CtlDocsTest::makeFolder()
{
    QDir::setCurrent(folder.path());
    const CtlRun made
        = runShell("\"$SEL_SOURCE_DIR\"/demo/a-day day && mkdir -p customer /srv/public/log"
                   " && cp day/* /srv/public/log && mv day customer/log"
                   " && cp \"$SEL_SOURCE_DIR\"/demo/systemevent.xml customer"
                   " && cp customer/systemevent.xml ."
                   " && sed 's/\"int32\" name=\"minutes\"/\"Int32\" name=\"minutes\"/'"
                   " systemevent.xml > mine.xml"_s);
    QVERIFY2(made.status == 0, made.errors.constData());
    const QString tool = QFileInfo(ctlProgram()).absolutePath();
    qputenv("PATH", (tool + QLatin1Char(':') + qEnvironmentVariable("PATH")).toUtf8());
}

void CtlDocsTest::announce()
{
    device->change("/power/supply"_s, 1002, {20.5, 22.0});
}

//! What it prints, on both of its outputs.
QString CtlDocsTest::run(const Command &command, int &status)
{
    constexpr int patience = 60000; // milliseconds; only so that a hang ends
    constexpr int pause = 200;
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    // In place of the shell, where it can be, so that the interruption reaches it.
    const bool isOne = !command.line.contains(QRegularExpression("[|;&>]"_s));
    process.start("/bin/sh"_s, {"-c"_s, (isOne ? "exec "_s : QString()) + command.line});
    QByteArray printed;
    bool isInterrupted = false;
    const auto hasEnded = [&] {
        printed += process.readAll();
        if (goesOnForEver(command.line) && !printed.isEmpty() && !isInterrupted) {
            isInterrupted = ::kill(pid_t(process.processId()), SIGINT) == 0;
        }
        return process.state() == QProcess::NotRunning;
    };
    for (int waited = 0; waited < patience && !QTest::qWaitFor(hasEnded, pause); waited += pause) {
        if (command.line.contains("watch"_s)) {
            announce();
        }
    }
    status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return QString::fromUtf8(printed.replace("\r\n", "\n")); // of a table
}

void CtlDocsTest::everyLineIsRun()
{
    int wrong = 0;
    for (const Command &command : std::as_const(commands)) {
        int status = 0;
        const QString printed = run(command, status);
        // Ctrl-C ends "show -f" by its signal.
        const bool isEnd = status == command.status
            || (status == -1 && goesOnForEver(command.line) && command.line.contains("-f"_s));
        if (!isEnd || (!command.shown.isEmpty() && !isShown(command.shown, printed))) {
            qWarning("line %d: %s\nends with %d and prints\n%s", command.place,
                     qPrintable(command.line), status, qPrintable(printed));
            ++wrong;
        }
    }
    QCOMPARE(wrong, 0);
}

//! Of each command there is a line.
void CtlDocsTest::everyCommandIsShown()
{
    const CtlRun help = runCtl({"--help"_s});
    static const QRegularExpression row("^  ([a-z]+) "_s, QRegularExpression::MultilineOption);
    QRegularExpressionMatchIterator found = row.globalMatch(QString::fromUtf8(help.out));
    int count = 0;
    while (found.hasNext()) {
        const QString name = found.next().captured(1);
        const bool isThere
            = std::any_of(commands.cbegin(), commands.cend(), [&](const Command &each) {
                  return each.line.contains("systemeventctl "_s + name) || name == "show"_s;
              });
        QVERIFY2(isThere, qPrintable(name));
        ++count;
    }
    QVERIFY(count > 8);
}

void CtlDocsTest::cleanupTestCase()
{
    QDir::setCurrent("/"_s);
    device.reset();
}

QTEST_GUILESS_MAIN(CtlDocsTest)
#include "tst_ctldocs.moc"

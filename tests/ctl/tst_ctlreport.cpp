// SPDX-License-Identifier: Apache-2.0

// "report" as a command: what it ends with, and that its page is there as a whole or not at
// all. What the page shows is tested in a browser (tst_ctlreportpage).

#include "ctl/ctlprocess.h"
#include "ctl/terminal.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <csignal>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

using RecordBytes::Fields;
using RecordBytes::record;
using RecordBytes::sized;

namespace
{

QByteArray storedEvent(quint64 logNr, const QByteArray &text)
{
    Fields fields;
    fields.logNr = logNr;
    fields.eventId = 9;
    fields.values = sized(text);
    return record(fields);
}

QByteArray numbered(quint64 from, quint64 to)
{
    QByteArray bytes;
    for (quint64 i = from; i <= to; ++i) {
        bytes += storedEvent(i, QByteArray::number(i));
    }
    return bytes;
}

QByteArray contentOf(const QString &fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool isPage(const QString &fileName)
{
    const QByteArray content = contentOf(fileName);
    return content.startsWith("<!DOCTYPE html>\n") && content.endsWith("</html>\n");
}

} // namespace

class CtlReportTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void made();
    void damaged();
    void nothing();
    void replaced();
    void modeIsTheUsual();
    void refusals_data();
    void refusals();
    void besideTheLog();
    void wrongUsage();
    void unreadable();
    void interrupted();
    void fullDisk();
    void progress_data();
    void progress();
    void selection_data();
    void selection();

private:
    [[nodiscard]] QString page() const { return QDir(out->path()).filePath("page.html"_s); }
    [[nodiscard]] CtlRun report(const QString &target, const QStringList &more = {}) const
    {
        return runCtl(
            QStringList{"report"_s, target, "-C"_s, testCatalogue(), "-D"_s, log->dir().path()}
            + more);
    }
    //! All that lies beside the page.
    [[nodiscard]] QStringList files() const
    {
        return QDir(out->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    }
    //! A log that takes a second: its last record seems to be just being written.
    void putSlowLog() const { log->put(0, numbered(1, 3000) + numbered(3001, 3001).chopped(5)); }

    std::unique_ptr<LogFolder> log;
    std::unique_ptr<QTemporaryDir> out;
};

void CtlReportTest::init()
{
    log = std::make_unique<LogFolder>();
    out = std::make_unique<QTemporaryDir>();
}

void CtlReportTest::made()
{
    log->put(0, numbered(1, 40));
    const CtlRun run = report(page());
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.out, "40 records written to " + page().toUtf8() + '\n');
    QVERIFY(isPage(page()));
    QCOMPARE(files(), QStringList{"page.html"_s});

    const CtlRun quiet = report(page(), {"-q"_s});
    QCOMPARE(quiet.status, 0);
    QCOMPARE(quiet.out + quiet.errors, QByteArray());
}

void CtlReportTest::damaged()
{
    log->put(0, numbered(1, 4) + QByteArray(100, '\0') + numbered(5, 9));
    QCOMPARE(report(page()).status, 3);
    QVERIFY(isPage(page()));
}

void CtlReportTest::nothing()
{
    const CtlRun run = report(page());
    QCOMPARE(run.status, 1);
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(run.errors,
             QByteArray("systemeventctl: there are no such records, so no page was "
                        "written\n"));
    QCOMPARE(files(), QStringList());
    // What is there stays.
    log->put(0, numbered(1, 4));
    QCOMPARE(report(page()).status, 0);
    const QByteArray before = contentOf(page());
    log->put(0, {});
    QCOMPARE(report(page(), {"-q"_s}).status, 1);
    QCOMPARE(contentOf(page()), before);
}

void CtlReportTest::replaced()
{
    log->put(0, numbered(1, 4));
    QVERIFY(QDir(out->path()).mkdir("real"_s));
    const QString real = out->filePath("real/old.html"_s);
    QFile old(real);
    QVERIFY(old.open(QIODevice::WriteOnly));
    old.write("old");
    old.close();
    QVERIFY(QFile::link(real, page()));
    QCOMPARE(report(page()).status, 0);
    QVERIFY(QFileInfo(page()).isSymLink()); // and leads to the new one
    QVERIFY(isPage(real));
    QCOMPARE(QDir(out->filePath("real"_s)).entryList(QDir::Files), QStringList{"old.html"_s});
}

void CtlReportTest::modeIsTheUsual()
{
    log->put(0, numbered(1, 4));
    QCOMPARE(runShell("umask 027; exec \"$CTL\" report -q %1 -D %2 -C %3"_s.arg(
                          page(), log->dir().path(), testCatalogue()))
                 .status,
             0);
    struct stat status {
    };
    QCOMPARE(::stat(QFile::encodeName(page()).constData(), &status), 0);
    QCOMPARE(int(status.st_mode & 0777), 0640);
}

void CtlReportTest::refusals_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("reason");

    QTest::newRow("a folder") << "OUT"_s << 4 << QByteArray("is no regular file");
    QTest::newRow("a folder that is not there")
        << "OUT/none/page.html"_s << 4 << QByteArray("No such file or directory");
    QTest::newRow("a device is not replaced")
        << "/dev/null"_s << 4 << QByteArray("is no regular file");
    QTest::newRow("a log file") << "LOG/zib0.log"_s << 2 << QByteArray("a place of log files");
    QTest::newRow("what the daemon would take for one")
        << "LOG/zib1.html"_s << 2 << QByteArray("a place of log files");
    QTest::newRow("a log file through a link")
        << "OUT/linked.html"_s << 2 << QByteArray("a place of log files");
}

void CtlReportTest::refusals()
{
    QFETCH(QString, target);
    QFETCH(int, status);
    QFETCH(QByteArray, reason);
    target.replace("OUT"_s, out->path()).replace("LOG"_s, log->dir().path());
    log->put(0, numbered(1, 4));
    if (target.endsWith("linked.html"_s)) {
        QVERIFY(QFile::link(log->path("zib0.log"_s), target));
    }
    const CtlRun run = report(target);
    (void)QFile::remove(out->filePath("linked.html"_s));
    QCOMPARE(run.status, status);
    QVERIFY2(run.errors.contains(reason), run.errors.constData());
    QVERIFY(run.errors.contains(target.toUtf8()));
    QCOMPARE(files(), QStringList());
    QCOMPARE(log->content(0), numbered(1, 4));
    QCOMPARE(log->dir().entryList(QDir::Files), QStringList{"zib0.log"_s});
    QVERIFY(!QFileInfo("/dev/null"_s).isFile());
}

//! A folder that was sent by somebody may have the page in it.
void CtlReportTest::besideTheLog()
{
    log->put(0, numbered(1, 4));
    QCOMPARE(report(log->path("page.html"_s)).status, 0);
    QVERIFY(isPage(log->path("page.html"_s)));
    QCOMPARE(report(log->path("page.html"_s)).status, 0);
}

void CtlReportTest::wrongUsage()
{
    QCOMPARE(runCtl({"report"_s}).status, 2);
    QCOMPARE(runCtl({"report"_s, "a.html"_s, "b.html"_s}).status, 2);
    log->put(0, numbered(1, 4));
    for (const QStringList &wrong :
         {QStringList{"--no-such"_s}, QStringList{"-e"_s, "no such event"_s},
          QStringList{"-p"_s, "no such level"_s}, QStringList{"--time"_s, "unix"_s},
          QStringList{"-o"_s, "json"_s}}) {
        const CtlRun run = report(page(), wrong);
        QCOMPARE(run.status, 2);
        QCOMPARE(run.out, QByteArray());
        QVERIFY(!run.errors.isEmpty());
        QCOMPARE(files(), QStringList());
    }
    const CtlRun help = runCtl({"report"_s, "--help"_s});
    QCOMPARE(help.status, 0);
    QVERIFY(help.out.startsWith("Usage: systemeventctl report FILE.html [OPTIONS]\n"));
}

void CtlReportTest::unreadable()
{
    log->put(0, numbered(1, 4));
    QCOMPARE(runCtl({"report"_s, page(), "-D"_s, out->filePath("none"_s)}).status, 4);
    QCOMPARE(runCtl({"report"_s, page(), "-D"_s, log->dir().path(), "-C"_s, "/no/such"_s}).status,
             4);
    QCOMPARE(files(), QStringList());
}

void CtlReportTest::interrupted()
{
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        putSlowLog();
        QProcess process;
        process.start(ctlProgram(),
                      {"report"_s, page(), "-C"_s, testCatalogue(), "-D"_s, log->dir().path()});
        // In the middle of the work.
        QTRY_VERIFY(!files().isEmpty());
        QVERIFY(!files().contains("page.html"_s));
        QCOMPARE(::kill(pid_t(process.processId()), signal), 0);
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitStatus(), QProcess::CrashExit);
        QCOMPARE(process.exitCode(), signal);
        QCOMPARE(files(), QStringList());
    }
}

void CtlReportTest::fullDisk()
{
    log->put(0, numbered(1, 4000));
    // A limit of the size of files is met as a full disk is.
    const CtlRun run
        = runShell("trap '' XFSZ; ulimit -f 8; \"$CTL\" report %1 -D %2 -C %3; echo $?"_s.arg(
            page(), log->dir().path(), testCatalogue()));
    QCOMPARE(run.out, QByteArray("4\n"));
    QVERIFY2(run.errors.contains("cannot be written"), run.errors.constData());
    QCOMPARE(files(), QStringList());
}

void CtlReportTest::progress_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("of a report") << "report OUT/page.html"_s;
    QTest::newRow("of a search for damage") << "verify"_s;
    QTest::newRow("of records that go elsewhere") << "salvage >/dev/null"_s;
    QTest::newRow("of a clean set") << "salvage -O OUT/set"_s;
}

//! Only on a terminal, where nothing of it is left.
void CtlReportTest::progress()
{
    QFETCH(QString, command);
    command.replace("OUT"_s, out->path());
    const QString words = command.section(QLatin1Char('>'), 0, 0);
    const QString rest = command.mid(words.size());
    const QString line = "\"$CTL\" %1 -D %2 -C %3 %4 %5"_s;
    const auto with = [&](const QString &option) {
        QDir(out->filePath("set"_s)).removeRecursively();
        putSlowLog();
        return line.arg(words, log->dir().path(), testCatalogue(), option, rest);
    };
    Terminal terminal(with({}), 80);
    const QByteArray shown = terminal.finish();
    QCOMPARE(terminal.status(), 3);
    QVERIFY2(shown.contains(" %\x1B[K"), shown.constData());
    QVERIFY2(!shown.mid(shown.lastIndexOf(" %\x1B[K") + 5).contains('%'), shown.constData());
    QCOMPARE(shown.mid(shown.lastIndexOf('%') + 4).left(4), QByteArray("\r\x1B[K"));

    Terminal quiet(with("-q"_s), 80);
    QVERIFY(!quiet.finish().contains('%'));
    const CtlRun piped = runShell(with({}));
    QCOMPARE(piped.status, 3);
    QCOMPARE(piped.errors, QByteArray());
}

void CtlReportTest::selection_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("count"); // of forty records
    const auto row = [](const char *name, const QStringList &options, int count) {
        QTest::newRow(name) << options << count;
    };
    row("all", {}, 40);
    row("the last ones", {"-n"_s, "7"_s}, 7);
    row("by number", {"--number"_s, "11..13"_s}, 3);
    row("by event", {"-e"_s, "string"_s}, 40);
    row("by another event", {"-e"_s, "bool"_s}, 0);
    row("by service", {"-s"_s, "all"_s}, 40);
    row("by path", {"--path"_s, "/no/*"_s}, 0);
    row("by text", {"-g"_s, "^1\\d$"_s}, 10);
    row("by time", {"-S"_s, "2023-11-15"_s}, 0);
    row("by time, the other way round", {"-U"_s, "2023-11-15"_s}, 40);
    row("all together", {"-g"_s, "^1\\d$"_s, "--number"_s, "..12"_s, "-n"_s, "2"_s}, 2);
}

void CtlReportTest::selection()
{
    QFETCH(QStringList, options);
    QFETCH(int, count);
    log->put(0, numbered(1, 40));
    const CtlRun run = report(page(), options);
    QCOMPARE(run.status, count > 0 ? 0 : 1);
    QVERIFY2(count == 0 || run.out.startsWith(QByteArray::number(count) + " records written"),
             run.out.constData());
    QCOMPARE(isPage(page()), count > 0);
}

QTEST_GUILESS_MAIN(CtlReportTest)
#include "tst_ctlreport.moc"

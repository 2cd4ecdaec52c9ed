// SPDX-License-Identifier: Apache-2.0

// Random command lines over random folders: whatever is asked of whatever lies there, the
// tool ends by itself with a status that it documents, JSON is JSON, and nothing that any
// event says moves a terminal's cursor.
// SEL_CASES sets how many (120), SEL_SEED which.

#include "ctl/ctlprocess.h"
#include "reader/dice.h"
#include "support/environment.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace RecordBytes;

namespace
{

QByteArray randomBytes(Dice &dice, int size)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i) {
        bytes += char(dice.bits());
    }
    return bytes;
}

QByteArray randomText(Dice &dice)
{
    const QByteArrayList texts{"text",      "a \"quoted\" one\\",       "\x1B[2J\x1B]0;x\x07",
                               "\r\n,;\t",  "\xE2\x80\xAE\xC2\x9B[31m", "</script><b>",
                               "%1 %2 %99", QByteArray(3000, 'x')};
    return dice.chance(20) ? randomBytes(dice, dice.below(40)) : dice.oneOf(texts);
}

QByteArray randomRecord(Dice &dice, quint64 number)
{
    Fields fields;
    fields.logNr = dice.chance(2) ? dice.bits() : number;
    fields.seconds = dice.chance(5) ? dice.bits() : 1795288009 + number;
    fields.microseconds = quint32(dice.chance(5) ? dice.bits() : quint64(dice.below(1000000)));
    fields.eventId = qint32(dice.between(-5, 16));
    fields.path = randomText(dice);
    fields.values
        = fields.eventId == 9 ? sized(randomText(dice)) : randomBytes(dice, dice.below(24));
    return record(fields);
}

void damage(Dice &dice, QByteArray &content)
{
    if (content.isEmpty()) {
        return;
    }
    const int place = dice.below(int(content.size()));
    switch (dice.below(4)) {
    case 0:
        content.truncate(place);
        break;
    case 1:
        content[place] = char(dice.bits());
        break;
    case 2:
        content.insert(place, QByteArray(dice.below(600), '\0'));
        break;
    default:
        content.insert(place, randomBytes(dice, dice.below(100)));
    }
}

void fill(Dice &dice, const LogFolder &folder)
{
    quint64 number = 1 + (dice.bits() % 1000);
    for (int file = dice.below(4); file >= 0; --file) {
        QByteArray content;
        for (int i = dice.below(30); i > 0; --i) {
            content += randomRecord(dice, number);
            number += dice.chance(5) ? quint64(dice.below(9)) : 1;
        }
        for (int i = dice.chance(50) ? dice.below(4) : 0; i > 0; --i) {
            damage(dice, content);
        }
        folder.put(file, content);
        folder.setAge(LogFolder::name(file), 60); // what is being written now would be waited for
    }
}

QString randomTime(Dice &dice)
{
    const QStringList times{"yesterday"_s, "2026-11-21"_s,           "@1795288020"_s,
                            "1h"_s,        "2026-11-21T19:06:49Z"_s, "soon"_s,
                            ""_s};
    return dice.oneOf(times);
}

QStringList randomOptions(Dice &dice)
{
    const QStringList numbers{"5"_s, "3..9"_s, "..400"_s, "10.."_s, "9..3"_s, "x"_s};
    const QStringList small{"0"_s, "1"_s, "7"_s, "18446744073709551615"_s, "-1"_s};
    const QStringList levels{"warning"_s, "3..5"_s, "notice"_s, "none"_s, "4"_s};
    const QStringList events{"9"_s, "string"_s, "-5"_s, "4294967291"_s, "nosuch"_s};
    const QStringList globs{"*"_s, "*x*"_s, "[a-"_s, "/?"_s};
    const QStringList expressions{"x"_s, "^text$"_s, "("_s, "(a|b)*c"_s};
    const QStringList formats{"text"_s, "json"_s, "csv"_s, "raw"_s, "xml"_s};
    const QStringList styles{"local"_s, "utc"_s, "iso"_s, "unix"_s, "relative"_s};
    QStringList options;
    const auto maybe = [&](const QString &name, const QString &value) {
        if (dice.chance(12)) {
            options << name;
            if (!value.isNull()) {
                options << value;
            }
        }
    };
    maybe("-n"_s, dice.oneOf(small));
    maybe("-r"_s, QString());
    maybe("-S"_s, randomTime(dice));
    maybe("-U"_s, randomTime(dice));
    maybe("--number"_s, dice.oneOf(numbers));
    maybe("-p"_s, dice.oneOf(levels));
    maybe("-e"_s, dice.oneOf(events));
    maybe("-s"_s, "all"_s);
    maybe("--path"_s, dice.oneOf(globs));
    maybe("-g"_s, dice.oneOf(expressions));
    maybe("-o"_s, dice.oneOf(formats));
    maybe("--time"_s, dice.oneOf(styles));
    maybe("-l"_s, "de"_s);
    maybe("--sure"_s, QString());
    maybe("--dry-run"_s, QString());
    maybe("-q"_s, QString());
    maybe("--after"_s, dice.oneOf(small));
    return options;
}

bool isJson(const QByteArray &lines)
{
    const QByteArrayList all = lines.split('\n');
    for (const QByteArray &line : all) {
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(line, &error);
        if (!line.isEmpty() && (error.error != QJsonParseError::NoError || !document.isObject())) {
            return false;
        }
    }
    return all.last().isEmpty();
}

//! Whether a text for people has a control character besides the ends of its lines.
bool movesTheCursor(const QByteArray &text)
{
    const QString shown = QString::fromUtf8(text);
    return std::any_of(shown.cbegin(), shown.cend(), [](QChar c) {
        const ushort code = c.unicode();
        return c != QLatin1Char('\n') && (code < 0x20 || (code >= 0x7F && code < 0xA0));
    });
}

//! What a command line over a random folder has done; what is wrong with it, or nothing.
QString flawOf(const CtlRun &run, const QString &format)
{
    if (run.status < 0 || run.status > 4) {
        return "an end that no document knows"_s;
    }
    if ((run.status == 2 || run.status == 4) && run.errors.isEmpty()) {
        return "no word on why it fails"_s;
    }
    if (run.status == 2 && !run.out.isEmpty()) {
        return "wrong usage prints something"_s;
    }
    const bool isForPeople = format == "text"_s || format == "raw"_s;
    if (movesTheCursor(run.errors) || (isForPeople && movesTheCursor(run.out))) {
        return "a control character"_s;
    }
    return format == "json"_s && !isJson(run.out) ? "no JSON"_s : QString();
}

} // namespace

class CtlRandomTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void anythingOverAnything_data();
    void anythingOverAnything();
};

void CtlRandomTest::anythingOverAnything_data()
{
    QTest::addColumn<QString>("command");
    for (const QString &command :
         {"show"_s, "stats"_s, "salvage"_s, "verify"_s, "collect"_s, "report"_s, "repair"_s}) {
        QTest::newRow(qPrintable(command)) << command;
    }
}

void CtlRandomTest::anythingOverAnything()
{
    QFETCH(QString, command);
    const auto seed = numberFromEnvironment<quint32>("SEL_SEED", 1);
    const auto cases = numberFromEnvironment<quint32>("SEL_CASES", 120);
    const QTemporaryDir output;
    QList<int> ends{0, 0, 0, 0, 0};
    for (quint32 round = 0; round < cases; ++round) {
        Dice dice(seed, round);
        const LogFolder folder;
        fill(dice, folder);
        QStringList arguments{command, "-D"_s, folder.dir().path(), "-C"_s, testCatalogue()};
        if (command == "report"_s) {
            arguments << output.filePath("report.html"_s);
        }
        arguments += randomOptions(dice);
        const CtlRun run = runCtl(arguments);
        const int named = int(arguments.indexOf("-o"_s));
        const QString usual
            = command == "salvage"_s || command == "collect"_s ? "json"_s : "text"_s;
        const QString flaw = flawOf(run, named > 0 ? arguments.value(named + 1) : usual);
        QVERIFY2(flaw.isEmpty(),
                 qPrintable("%1: %2: %3\n"_s.arg(round).arg(flaw, arguments.join(QLatin1Char(' ')))
                            + QString::fromUtf8(run.out.left(2000) + run.errors.left(2000))));
        ++ends[run.status];
    }
    // Both kinds of command lines have been there.
    QVERIFY2(ends[0] + ends[3] > 0 && ends[2] > 0, qPrintable(command));
}

QTEST_GUILESS_MAIN(CtlRandomTest)
#include "tst_ctlrandom.moc"

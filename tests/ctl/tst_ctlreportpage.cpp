// SPDX-License-Identifier: Apache-2.0

// The page that "report" writes, in a real browser: what it shows of folders made by hand,
// and what a reader can do with it by mouse and by keyboard.

#include "../reader/dice.h"
#include "ctl/browser.h"
#include "ctl/ctlprocess.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QPoint>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

using RecordBytes::Fields;
using RecordBytes::number;
using RecordBytes::record;
using RecordBytes::sized;

namespace
{

constexpr char catalogueXml[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<systemevents>
  <enum name="LogLevel">
    <item value="3" name="error"/>
    <item value="4" name="warning"/>
    <item value="6" name="info"/>
  </enum>
  <enum name="Input">
    <item value="0" name="A"/>
    <item value="1" name="B"/>
  </enum>
  <service name="power">
    <event id="1001" name="supplyChanged" loglevel="info">
      <argument type="enum" name="input" enum="Input"/>
      <argument type="double" name="volts"/>
      <description lang="en">Input %1 with %2 V</description>
      <description lang="de">Eingang %1 mit %2 V</description>
    </event>
    <event id="1002" name="supplyLow" loglevel="warning">
      <argument type="double" name="volts"/>
      <description lang="en">Only %1 V</description>
      <description lang="de">Nur %1 V</description>
    </event>
  </service>
  <service name="doors">
    <event id="3001" name="doorOpened" loglevel="info">
      <argument type="string" name="door"/>
      <argument type="variant" name="card"/>
      <description lang="en">Door %1 opened with %2</description>
      <description lang="de">Tür %1 mit %2 geöffnet</description>
    </event>
    <event id="3003" name="doorForced" loglevel="error">
      <argument type="string" name="door"/>
      <description lang="en">Door %1 was forced</description>
    </event>
  </service>
</systemevents>
)";

constexpr qint64 firstSecond = 1795287600; // 2026-11-21 19:00:00 UTC

QByteArray real(double value)
{
    QByteArray bytes(8, '\0');
    std::memcpy(bytes.data(), &value, 8);
    return bytes;
}

//! A record at so many seconds behind the first one.
QByteArray recordAt(quint64 logNr, int second, qint32 eventId, const QByteArray &path,
                    const QByteArray &values)
{
    Fields fields;
    fields.logNr = logNr;
    fields.seconds = firstSecond + second;
    fields.eventId = eventId;
    fields.path = path;
    fields.values = values;
    return record(fields);
}

QByteArray forced(quint64 logNr, const QByteArray &door)
{
    return recordAt(logNr, int(logNr), 3003, "/doors/north", sized(door));
}

/*!
 * Forty records, one a minute: of ten each one of supplyLow and doorForced, two of an event
 * that the catalogue does not know, three of supplyChanged, three of doorOpened.
 */
QByteArray fortyRecords()
{
    QByteArray file;
    for (int i = 0; i < 40; ++i) {
        const auto logNr = quint64(i) + 1;
        const int second = i * 60;
        switch (i % 10) {
        case 0:
            file += recordAt(logNr, second, 1002, "/power/supply", real(21.5 - i / 100.0));
            break;
        case 1:
            file += recordAt(logNr, second, 3003, "/doors/north", sized("Nord"));
            break;
        case 2:
        case 3:
            file += recordAt(logNr, second, 7777, "/odd", "?");
            break;
        case 4:
        case 5:
        case 6:
            file += recordAt(logNr, second, 1001, "/power/supply",
                             number(quint64(i) % 2, 1) + real(24.125));
            break;
        default:
            file += recordAt(logNr, second, 3001, i % 10 == 9 ? "/doors/north" : "/doors/south",
                             sized("Küche") + number(3, 2) + number(quint64(i), 4));
        }
    }
    return file;
}

//! A report in a folder of its own.
class Report
{
public:
    [[nodiscard]] const LogFolder &log() const { return folder; }
    [[nodiscard]] QString catalogue() const { return folder.path("events.xml"_s); }

    //! Makes it of what the folder holds; the tool's status.
    [[nodiscard]] int make(const QStringList &more = {}) const
    {
        folder.put("events.xml"_s, catalogueXml);
        QDir().mkpath(folder.path("out"_s));
        const CtlRun run = runCtl(
            QStringList{"report"_s, page(), "-D"_s, folder.dir().path(), "-C"_s, catalogue()}
            + more);
        if (!run.errors.isEmpty()) {
            qWarning("%s", run.errors.constData());
        }
        return run.status;
    }
    [[nodiscard]] QString page() const { return folder.path("out/report.html"_s); }

private:
    LogFolder folder;
};

} // namespace

class CtlReportPageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void loads();
    void policy();
    void counts();
    void filters_data();
    void filters();
    void narrowing();
    void timeline();
    void sorting_data();
    void sorting();
    void languages();
    void messagesAreTheTools_data();
    void messagesAreTheTools();
    void nothingToShow();
    void largeNumbers();
    void anyBytes();
    void marks();
    void signs();
    void times();
    void details();
    void bytes();
    void hostileTexts_data();
    void hostileTexts();
    void hostileCatalogue();
    void keyboard();
    void colours();
    void paper();
    void asAskedFor();
    void withoutCatalogue();
    void manyRecords();

private:
    [[nodiscard]] bool show(const Report &report) { return browser->open(report.page()); }
    [[nodiscard]] QString text(const char *selector)
    {
        return browser
            ->value("document.querySelector('%1').textContent"_s.arg(QLatin1String(selector)))
            .toString();
    }
    //! The texts of all elements, one after another.
    [[nodiscard]] QStringList texts(const char *selector)
    {
        return strings("[...document.querySelectorAll('%1')].map((each) => each.textContent)"_s.arg(
            QLatin1String(selector)));
    }
    [[nodiscard]] QStringList strings(const QString &expression)
    {
        QStringList found;
        const QJsonArray values = browser->value(expression).toArray();
        for (int i = 0; i < values.size(); ++i) {
            found.append(values.at(i).toString());
        }
        return found;
    }
    void click(const QString &expression) { browser->value("(%1).click()"_s.arg(expression)); }
    void search(const QString &words);
    void choose(const QString &list, const QString &name);

    std::unique_ptr<Browser> browser;
};

void CtlReportPageTest::initTestCase()
{
    QVERIFY2(!ctlProgram().isEmpty(), "SEL_CTL names the tool");
    browser = std::make_unique<Browser>("Asia/Kolkata"_s); // where no machine for tests is
}

void CtlReportPageTest::cleanup()
{
    QCOMPARE(browser->problems(), QStringList());
}

//! Types into the field, and waits until it counts.
void CtlReportPageTest::search(const QString &words)
{
    browser->value(R"((() => {
        const field = document.getElementById('search');
        field.value = '%1';
        field.dispatchEvent(new Event('input'));
        return new Promise((resolve) => setTimeout(resolve, 120));
    })())"_s.arg(words));
}

//! Presses what has a name in one of the lists.
void CtlReportPageTest::choose(const QString &list, const QString &name)
{
    click("[...document.querySelectorAll('#%1 button')].find((each) => "
          "each.querySelector('bdi').textContent === '%2')"_s.arg(list, name));
}

void CtlReportPageTest::loads()
{
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    QCOMPARE(browser->problems(), QStringList());
    QCOMPARE(browser->requests().size(), 1); // itself
    QVERIFY(browser->value("document.getElementById('loading').hidden"_s).toBool());
    QVERIFY(browser->value("document.title"_s).toString().startsWith("Event log of "_s));
}

//! Nothing runs or is fetched but what the tool has put there.
void CtlReportPageTest::policy()
{
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make(), 0);
    QFile file(report.page());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QByteArray page = file.readAll();
    file.close();
    const QByteArray intruder = "<script>document.title = 'run'</script>"
                                "<style>body { width: 7px }</style>"
                                "<img src=\"http://127.0.0.1/picture\">"
                                "<p onclick=\"document.title = 'run'\" id=\"intruder\"></p>";
    QVERIFY(page.contains("<div id=\"main\""));
    page.replace("<div id=\"main\"", intruder + "<div id=\"main\"");
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(page);
    file.close();
    QVERIFY(show(report));
    browser->value("document.getElementById('intruder').click()"_s);
    browser->value(R"((() => {
        try { document.getElementById('intruder').innerHTML = '<b></b>'; } catch (refused) {}
    })())"_s);
    QCOMPARE(browser->value("document.getElementById('intruder').childNodes.length"_s).toInt(), 0);
    QVERIFY(browser->value("document.title"_s).toString().startsWith("Event log of "_s));
    QVERIFY(browser->value("document.body.clientWidth"_s).toInt() > 7);
    const QStringList said = browser->takeProblems();
    QVERIFY2(said.size() >= 4, qPrintable(said.join(QLatin1Char('\n'))));
    for (const QString &each : said) {
        QVERIFY2(each.contains("Content Security Policy"_s) || each.contains("TrustedHTML"_s),
                 qPrintable(each));
    }
}

void CtlReportPageTest::counts()
{
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    QCOMPARE(text("#result"), "40 records"_s);
    QCOMPARE(text("#count-records"), "40"_s);
    QCOMPARE(text("#span"), "39 min"_s);
    QCOMPARE(text("#count-missing"), "0"_s);
    QCOMPARE(text("#count-damaged"), "0"_s);
    QVERIFY(browser->value("document.getElementById('damage').hidden"_s).toBool());
    QCOMPARE(texts("#levels button"),
             QStringList({"error4"_s, "warning4"_s, "info24"_s, "unknown8"_s}));
    QCOMPARE(texts("#events button"),
             QStringList({"supplyChanged12"_s, "doorOpened12"_s, "event 77778"_s, "supplyLow4"_s,
                          "doorForced4"_s}));
    QCOMPARE(texts("#services button"), QStringList({"doors16"_s, "power16"_s, "(unknown)8"_s}));
    QCOMPARE(texts("#paths button"),
             QStringList({"/power/supply16"_s, "/doors/north8"_s, "/odd8"_s, "/doors/south8"_s}));
    QCOMPARE(texts(".row:first-child .cell"),
             QStringList({"1"_s, "2026-11-22 00:30:00.250000"_s, "warning"_s, "supplyLow"_s,
                          "/power/supply"_s, "Only 21.5 V"_s}));
}

void CtlReportPageTest::filters_data()
{
    QTest::addColumn<QStringList>("choices");
    QTest::addColumn<QString>("words");
    QTest::addColumn<int>("count");

    QTest::newRow("a level") << QStringList{"levels error"_s} << "" << 4;
    QTest::newRow("one of two levels")
        << QStringList{"levels error"_s, "levels info"_s} << "" << 28;
    QTest::newRow("a level taken back is none")
        << QStringList{"levels error"_s, "levels error"_s} << "" << 40;
    QTest::newRow("an event") << QStringList{"events supplyLow"_s} << "" << 4;
    QTest::newRow("a service") << QStringList{"services doors"_s} << "" << 16;
    QTest::newRow("events without a service") << QStringList{"services (unknown)"_s} << "" << 8;
    QTest::newRow("a path") << QStringList{"paths /doors/north"_s} << "" << 8;
    QTest::newRow("a path and a level")
        << QStringList{"paths /doors/north"_s, "levels info"_s} << "" << 4;
    QTest::newRow("nothing may be left") << QStringList{"paths /odd"_s, "levels info"_s} << "" << 0;
    QTest::newRow("words of a message") << QStringList() << "24.125 v" << 12;
    QTest::newRow("in any case") << QStringList() << "KÜCHE" << 12;
    QTest::newRow("words of a path") << QStringList() << "/doors/south" << 8;
    QTest::newRow("an event by its name") << QStringList() << "supplylow" << 4;
    QTest::newRow("an event by its number") << QStringList() << "7777" << 8;
    QTest::newRow("no expression is meant") << QStringList() << ".*" << 0;
    QTest::newRow("words and an event") << QStringList{"events doorOpened"_s} << "north" << 4;
}

void CtlReportPageTest::filters()
{
    QFETCH(QStringList, choices);
    QFETCH(QString, words);
    QFETCH(int, count);
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    for (const QString &choice : choices) {
        choose(choice.section(QLatin1Char(' '), 0, 0), choice.section(QLatin1Char(' '), 1));
    }
    search(words);
    const QString wanted = count == 40 ? "40 records"_s : "%1 of 40 records"_s.arg(count);
    QCOMPARE(text("#result"), wanted);
    QCOMPARE(browser->value("document.getElementById('grid').getAttribute('aria-rowcount')"_s),
             QJsonValue(QString::number(count + 1)));
    QCOMPARE(browser->value("document.getElementById('nothing').hidden"_s).toBool(), count > 0);
    click("document.getElementById('clear')"_s);
    QCOMPARE(text("#result"), "40 records"_s);
}

//! What is counted follows the choices of other kinds.
void CtlReportPageTest::narrowing()
{
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    choose("paths"_s, "/doors/north"_s);
    QCOMPARE(texts("#events button"), QStringList({"doorForced4"_s, "doorOpened4"_s}));
    QCOMPARE(texts("#levels button"),
             QStringList({"error4"_s, "warning0"_s, "info4"_s, "unknown0"_s}));
    QCOMPARE(texts("#paths button").first(), "/power/supply16"_s); // its own can still be added
    QCOMPARE(texts("#paths [aria-pressed=true] .name"), QStringList{"/doors/north"_s});
    choose("events"_s, "doorForced"_s);
    QCOMPARE(texts("#events button"), QStringList({"doorForced4"_s, "doorOpened4"_s}));
    QCOMPARE(text("#result"), "4 of 40 records"_s);
}

void CtlReportPageTest::timeline()
{
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    // From half a minute behind the ninth record to half a minute behind the nineteenth.
    const auto pointAt = [this](double minute) {
        const QJsonArray point = browser
                                     ->value(R"((() => {
                const box = document.getElementById('timeline').getBoundingClientRect();
                const share = (%1 / 39 + 0.01) / 1.02;
                return [box.left + MARGIN.left + share * (box.width - MARGIN.left - MARGIN.right),
                        box.top + 60];
              })())"_s.arg(minute))
                                     .toArray();
        return QPoint(int(point.at(0).toDouble()), int(point.at(1).toDouble()));
    };
    browser->drag(pointAt(8.5), pointAt(18.5));
    QCOMPARE(text("#result"), "10 of 40 records"_s);
    QCOMPARE(texts(".row .number").first(), "10"_s);
    QCOMPARE(texts(".row .number").last(), "19"_s);
    QCOMPARE(texts("#levels .count"), QStringList({"1"_s, "1"_s, "6"_s, "2"_s}));
    QVERIFY(text("#range").startsWith("2026-11-22 00:38:"_s));
    click("document.getElementById('closer')"_s);
    QCOMPARE(text("#result"), "5 of 40 records"_s);
    click("document.getElementById('wider')"_s);
    QCOMPARE(text("#result"), "10 of 40 records"_s);
    click("document.getElementById('later')"_s);
    QVERIFY(texts(".row .number").first().toInt() > 10);
    click("document.getElementById('everything')"_s);
    QCOMPARE(text("#result"), "40 records"_s);
    QVERIFY(browser->value("document.getElementById('everything').disabled"_s).toBool());
}

void CtlReportPageTest::sorting_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<int>("clicks");
    QTest::addColumn<QStringList>("first");

    const auto row = [](const char *name, int column, int clicks, const QStringList &first) {
        QTest::newRow(name) << column << clicks << first;
    };
    row("at first in the log's order", 0, 0, {"1"_s, "2"_s, "3"_s});
    row("the newest first", 0, 1, {"40"_s, "39"_s, "38"_s});
    row("by time", 1, 1, {"39"_s, "1"_s, "2"_s}); // whose clock was wrong
    row("the gravest first", 2, 1, {"2"_s, "12"_s, "22"_s});
    row("the gravest last", 2, 2, {"34"_s, "33"_s, "24"_s});
    row("by event", 3, 1, {"2"_s, "12"_s, "22"_s});
    row("by path", 4, 1, {"2"_s, "10"_s, "12"_s});
    row("by message", 5, 1, {"3"_s, "4"_s, "13"_s});
}

void CtlReportPageTest::sorting()
{
    QFETCH(int, column);
    QFETCH(int, clicks);
    QFETCH(QStringList, first);
    QByteArray records = fortyRecords();
    const QByteArray late = recordAt(39, 38 * 60, 3001, "/doors/south",
                                     sized("Küche") + number(3, 2) + number(38, 4));
    QVERIFY(records.contains(late));
    QByteArray early = late;
    early.replace(8, 8, number(quint64(firstSecond) - 5, 8));
    records.replace(late, early);
    Report report;
    report.log().put(0, records);
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    for (int i = 0; i < clicks; ++i) {
        click("document.querySelectorAll('#head button')[%1]"_s.arg(column));
    }
    QCOMPARE(texts(".row .number").mid(0, 3), first);
    QCOMPARE(browser
                 ->value("document.querySelectorAll('[role=columnheader]')[%1]"
                         ".getAttribute('aria-sort')"_s.arg(column))
                 .toString(),
             (clicks == 2 || (column == 0 && clicks == 1)) ? "descending"_s : "ascending"_s);
}

void CtlReportPageTest::languages()
{
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    QCOMPARE(texts("#language option"), QStringList({"Deutsch (de)"_s, "English (en)"_s}));
    QCOMPARE(texts(".row .message").mid(0, 2),
             QStringList({"Only 21.5 V"_s, "Door Nord was forced"_s}));
    browser->value(R"((() => {
        const field = document.getElementById('language');
        field.value = '0';
        field.dispatchEvent(new Event('change'));
    })())"_s);
    QCOMPARE(texts(".row .message").mid(0, 2),
             QStringList({"Nur 21.5 V"_s, "Door Nord was forced"_s})); // which has no German one
    QCOMPARE(browser->value("document.querySelector('.row .message bdi').lang"_s).toString(),
             "de"_s);
    search("tür küche"_s);
    QCOMPARE(text("#result"), "12 of 40 records"_s);
    search("door küche"_s);
    QCOMPARE(text("#result"), "0 of 40 records"_s);
}

void CtlReportPageTest::messagesAreTheTools_data()
{
    QTest::addColumn<int>("eventId");
    QTest::addColumn<QByteArray>("values");

    const auto row = [](const char *name, int eventId, const QByteArray &values) {
        QTest::newRow(name) << eventId << values;
    };
    row("a bool", 1, number(1, 1));
    row("a byte is a character", 2, number(0xFC, 1));
    row("a byte may be none", 2, number(0, 1));
    row("a negative number", 4, number(0x80000000, 4));
    row("64 bits", 5, number(~quint64(0), 8));
    row("64 unsigned bits", 6, number(~quint64(0), 8));
    row("a float", 7, QByteArray::fromHex("cdcccc3d"));
    row("a double with more digits than are shown", 8, real(123456789.0123));
    row("a small double", 8, real(0.00001));
    row("a large double", 8, real(1e30));
    row("a double that is none", 8, QByteArray::fromHex("000000000000f87f"));
    row("infinity", 8, QByteArray::fromHex("000000000000f0ff"));
    row("a negative zero", 8, real(-0.0));
    row("a text", 9, sized("plain"));
    row("an empty text", 9, sized(""));
    row("a text with a placeholder", 9, sized("100 %1"));
    row("a text with a percent sign", 9, sized("100 %"));
    row("a text that is no UTF-8", 9, sized("\xC3"));
    row("a text with a byte order mark", 9,
        sized("\xEF\xBB\xBF"
              "mark"));
    row("a text with controls", 9, sized("\x01\x1B[31m\n\t\x7F"));
    row("a long text", 9, sized(QByteArray(60000, 'x')));
    row("bytes up to a zero", 10, sized(QByteArray("ab\0cd", 5)));
    row("a variant", 11, number(8, 2) + sized("x"));
    row("a variant of no type", 11, number(0xFFFF, 2));
    row("a variant that is cut off", 11, number(8, 1));
    row("an item", 12, number(2, 1));
    row("no item", 12, number(3, 1));
    row("an argument of no type", 13, {});
    row("a missing value", 4, {});
    row("values that run on behind the record", 14, sized("a") + number(1, 1));
    row("three values, of which one makes a placeholder", 14,
        sized("%3") + number(1, 8) + sized("%2"));
    row("more values than placeholders", 15, real(1));
    row("an event without values", -5, {});
    row("an unknown event", 99, "any");
}

//! Each message is the one that the tool prints, whatever its values.
void CtlReportPageTest::messagesAreTheTools()
{
    QFETCH(int, eventId);
    QFETCH(QByteArray, values);
    Report report;
    QByteArray file;
    for (int i = 1; i <= 3; ++i) {
        file += recordAt(quint64(i), i, eventId, "/some/path", values);
    }
    report.log().put(0, file);
    const QStringList source{"-D"_s, report.log().dir().path(), "-C"_s, testCatalogue()};
    QDir().mkpath(report.log().path("out"_s));
    (void)runCtl(QStringList{"report"_s, report.page()} + source);
    const QList<QJsonObject> printed
        = runCtl(QStringList{"show"_s, "-o"_s, "json"_s} + source).objects();
    QCOMPARE(printed.size(), 3);
    QVERIFY(show(report));
    const QStringList shown
        = strings("Log.read().then((log) => [0, 1, 2].map((row) => log.message(row)))"_s);
    QCOMPARE(shown.size(), 3);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(shown.at(i), printed.at(i)["message"_s].toString());
    }
}

//! A variant of which nothing is there fills no placeholder.
void CtlReportPageTest::nothingToShow()
{
    Report report;
    report.log().put(0, recordAt(1, 0, 3001, "/doors/north", number(500, 2)));
    (void)report.make();
    const QList<QJsonObject> printed
        = runCtl({"show"_s, "-o"_s, "json"_s, "-D"_s, report.log().dir().path(), "-C"_s,
                  report.catalogue()})
              .objects();
    QCOMPARE(printed.size(), 1);
    QCOMPARE(printed.first()["message"_s].toString(), "Door readerror opened with %2"_s);
    QVERIFY(show(report));
    QCOMPARE(text(".row .message bdi"), "Door readerror opened with %2"_s);
}

//! Also those that a script cannot hold.
void CtlReportPageTest::largeNumbers()
{
    const QStringList numbers{"70000"_s,
                              "70001"_s,
                              "9007199254740990"_s,
                              "9007199254740991"_s,
                              "9007199254740992"_s,
                              "9007199254740993"_s,
                              "18446744073709551612"_s,
                              "18446744073709551613"_s};
    Report report;
    QByteArray file;
    for (const QString &each : numbers) {
        file += recordAt(each.toULongLong(), int(file.size()), 3003, "/doors/north", sized("x"));
    }
    report.log().put(0, file);
    (void)report.make();
    QVERIFY(show(report));
    QCOMPARE(texts(".row .number"), numbers);
    QVERIFY(
        texts(".row.mark")
            .contains("9,007,199,254,670,988 numbers are missing: 70002 to 9007199254740989"_s));
}

//! The same of values that mostly are not what the catalogue declares.
void CtlReportPageTest::anyBytes()
{
    Dice dice(12, 0);
    QByteArray file;
    for (quint64 n = 1; n <= 3000; ++n) {
        QByteArray values;
        for (int left = dice.below(30); left > 0; --left) {
            values += dice.chance(40) ? char(dice.below(12)) : char(dice.below(256));
        }
        const int eventId = dice.chance(90) ? 1 + dice.below(15) : 4005;
        file += recordAt(n, int(n), eventId, "/some/path", values);
    }
    Report report;
    report.log().put(0, file);
    const QStringList source{"-D"_s, report.log().dir().path(), "-C"_s, testCatalogue()};
    QDir().mkpath(report.log().path("out"_s));
    (void)runCtl(QStringList{"report"_s, report.page()} + source);
    QStringList printed;
    int lost = 0;
    for (const QJsonObject &object :
         runCtl(QStringList{"show"_s, "-o"_s, "json"_s} + source).objects()) {
        if (object.contains("number"_s)) {
            printed.append(object["number"_s].toString() + object["message"_s].toString());
        } else {
            ++lost;
        }
    }
    QVERIFY(printed.size() > 2000);
    QVERIFY(show(report));
    QCOMPARE(strings("Log.read().then((log) => [...log.number.keys()].map("
                     "(row) => log.numberText(row) + log.message(row)))"_s),
             printed);
    QCOMPARE(browser
                 ->value("Log.read().then((log) => log.marks.filter("
                         "({kind}) => kind === 'lost').length)"_s)
                 .toInt(),
             lost);
}

void CtlReportPageTest::marks()
{
    Report report;
    QByteArray older;
    for (quint64 n = 1; n <= 12; ++n) {
        older += n == 4 || n == 5 ? QByteArray() : forced(n, "north");
        older += n == 8 ? QByteArray(300, '\0') : QByteArray();
    }
    report.log().put(1, older);
    report.log().put(0, forced(1, "anew") + forced(2, "anew"));
    QCOMPARE(report.make(), 3);
    QVERIFY(show(report));
    const QString damage
        = "Damage: zib1.log, bytes %1 to %2: zeros"_s.arg(6 * forced(1, "north").size())
              .arg(6 * forced(1, "north").size() + 299);
    const QStringList wanted{"1"_s,
                             "2"_s,
                             "3"_s,
                             "2 numbers are missing: 4 to 5"_s,
                             "6"_s,
                             "7"_s,
                             "8"_s,
                             damage,
                             "9"_s,
                             "10"_s,
                             "11"_s,
                             "12"_s,
                             "Numbers begin again with 1"_s,
                             "1"_s,
                             "2"_s};
    const char *const firstCells = ".row > :first-child";
    QCOMPARE(texts(firstCells), wanted);
    QCOMPARE(text("#count-missing"), "2"_s);
    QCOMPARE(text("#count-damaged"), "1"_s);
    QCOMPARE(text("#damage-count"), "3"_s);

    click("document.getElementById('damage')"_s);
    QCOMPARE(texts(firstCells).size(), 3);           // they alone
    click("document.querySelectorAll('.row')[1]"_s); // which leads to its place
    QCOMPARE(texts(firstCells), wanted);
    QCOMPARE(texts("[aria-selected=true]"), QStringList{damage});
    click("document.querySelector('#head button')"_s); // the newest first
    QStringList reversed = wanted;
    std::reverse(reversed.begin(), reversed.end());
    QCOMPARE(texts(firstCells), reversed);
    click("document.querySelectorAll('#head button')[5]"_s);
    QCOMPARE(texts(firstCells).size(), 12); // in another order they have no place
}

//! A gap and damage each have a sign in the timeline.
void CtlReportPageTest::signs()
{
    Report report;
    report.log().put(0, forced(1, "x") + forced(4, "x") + QByteArray(300, '\0') + forced(5, "x"));
    QCOMPARE(report.make(), 3);
    QVERIFY(show(report));
    const QJsonArray colours = browser
                                   ->value(R"((() => {
        const canvas = document.getElementById('timeline');
        const pixels = canvas.getContext('2d').getImageData(0, 0, canvas.width, 14).data;
        const seen = new Set();
        for (let i = 0; i < pixels.length; i += 4) {
            if (pixels[i + 3] === 255) { seen.add([...pixels.slice(i, i + 3)].join()); }
        }
        return [...seen];
    })())"_s)
                                   .toArray();
    QVERIFY(colours.contains("138,82,0"_s));  // a gap
    QVERIFY(colours.contains("179,38,30"_s)); // damage
}

void CtlReportPageTest::times()
{
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    QCOMPARE(text(".row .time"), "2026-11-22 00:30:00.250000"_s);
    browser->value(R"((() => {
        const field = document.getElementById('zone');
        field.value = 'utc';
        field.dispatchEvent(new Event('change'));
    })())"_s);
    QCOMPARE(text(".row .time"), "2026-11-21 19:00:00.250000"_s);
    QVERIFY(text("#range").startsWith("2026-11-21 19:00:00"_s));
}

void CtlReportPageTest::details()
{
    Report report;
    report.log().put(0,
                     recordAt(7, 0, 1001, "/power/supply", number(1, 1) + real(24.125))
                         + recordAt(8, 1, 3001, "/doors/north",
                                    sized("Küche") + number(3, 2) + number(41, 4) + "more"));
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    QVERIFY(browser->value("document.getElementById('details').hidden"_s).toBool());
    click("document.querySelectorAll('.row')[0]"_s);
    QCOMPARE(text("#details-title"), "Record 7"_s);
    QCOMPARE(text(".full-message"), "Input B with 24.125 V"_s);
    QCOMPARE(
        texts("#details dd"),
        QStringList({"2026-11-22 00:30:00.250000 +05:30"_s, "info (6)"_s, "supplyChanged (1001)"_s,
                     "power"_s, "/power/supply"_s, "zib0.log, from byte 0"_s}));
    QCOMPARE(texts("#details tbody td"),
             QStringList({"input"_s, "enum"_s, "1 = B"_s, "volts"_s, "double"_s, "24.125"_s}));
    click("document.getElementById('next')"_s);
    QCOMPARE(text("#details-title"), "Record 8"_s);
    QCOMPARE(texts("#details tbody td"),
             QStringList({"door"_s, "string"_s, "Küche"_s, "card"_s, "variant: int32"_s, "41"_s}));
    QVERIFY(text("#details .note").contains("6d6f7265"_s));
    click("document.getElementById('close')"_s);
    QVERIFY(browser->value("document.getElementById('details').hidden"_s).toBool());
    QCOMPARE(browser->value("document.activeElement.id"_s).toString(), "grid"_s);
}

void CtlReportPageTest::bytes()
{
    // More records than lie in one block of the page.
    Report report;
    QByteArray file;
    for (quint64 n = 1; n <= 9000; ++n) {
        file += forced(n, QByteArray::number(n));
    }
    report.log().put(0, file);
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    for (const int row : {0, 8191, 8192, 8999}) {
        const QString shown
            = browser
                  ->value("Log.read().then((log) => log.bytesOf(%1)).then((bytes) => "
                          "[...bytes].map((byte) => byte.toString(16).padStart(2, '0'))"
                          ".join(''))"_s.arg(row))
                  .toString();
        const QByteArray wanted = forced(quint64(row) + 1, QByteArray::number(row + 1));
        QCOMPARE(shown.toLatin1(), wanted.toHex());
    }
    click("document.querySelectorAll('.row')[1]"_s);
    QTRY_VERIFY(text(".dump").size() > 100);
    const QStringList parts = texts(".dump [class^=part]");
    QCOMPARE(parts.join(QLatin1Char(' ')).toLatin1(), forced(2, "2").toHex(' '));
    QVERIFY(texts(".dump .at")
                .join(QString())
                .remove(QRegularExpression("00[0-9a-f]0"_s))
                .contains("/doors/north"_s));
}

void CtlReportPageTest::hostileTexts_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("shown");

    const auto same = [](const char *name, const char *stored) {
        QTest::newRow(name) << QString::fromUtf8(stored) << QString::fromUtf8(stored);
    };
    same("the end of a script",
         "</script><script>document.title = 'run'</script><!-- <script> -->");
    same("markup", "<img src=x onerror=\"document.title='run'\"><b>bold</b>");
    same("the end of an attribute", "\" onclick=\"document.title='run'\" x='`'");
    same("an entity stays one", "&lt;b&gt; &amp;");
    same("a template", "${document.title = 'run'} {{7*7}} {policy} {style}");
    same("a comment", "--> ]]> <!--");
    same("a link", "javascript:document.title='run'");
    same("other scripts", "עברית العربية 日本語 Ελληνικά");
    same("characters of two code units", "\xF0\x9F\x9A\xAA\xF0\x9F\x87\xA9\xF0\x9F\x87\xAA");
    QTest::newRow("an override of the direction is shown") << "a\u202Etxt.exe"_s
                                                           << "a\\u202etxt.exe"_s;
    QTest::newRow("isolates and marks too") << "\u2066a\u2069\u200F\u200E\u061C"_s
                                            << "\\u2066a\\u2069\\u200f\\u200e\\u061c"_s;
    QTest::newRow("line separators") << "a\u2028b\u2029c"_s
                                     << "a\\u2028b\\u2029c"_s;
    QTest::newRow("escape sequences") << "\u001B[31mred\u0007"_s
                                      << "\\x1b[31mred\\x07"_s;
    QTest::newRow("line feeds stay") << "one\ntwo\tthree"_s
                                     << "one\ntwo\tthree"_s;
    QTest::newRow("60 KB are all there")
        << QString(60000, QLatin1Char('x')) << QString(60000, QLatin1Char('x'));
}

void CtlReportPageTest::hostileTexts()
{
    QFETCH(QString, stored);
    QFETCH(QString, shown);
    Report report;
    const QByteArray bytes = stored.toUtf8();
    // Once as a value, once as a path, which shows that the record is damaged.
    report.log().put(0,
                     recordAt(1, 0, 3003, "/x", sized(bytes))
                         + recordAt(2, 1, 3003, bytes, sized("y")) + forced(3, "z"));
    QCOMPARE(report.make(), 3);
    QVERIFY(show(report));
    const auto elements = [this] {
        return browser
            ->value(R"([...document.querySelectorAll('#rows *, aside *, #details *')]
            .filter(({tagName}) => /^(SCRIPT|STYLE|IMG|A|IFRAME|B)$/.test(tagName)).length)"_s)
            .toInt();
    };
    QCOMPARE(elements(), 0);
    // The first 400 characters, of which each may be shown as six.
    QVERIFY(texts(".row .message").first().size() <= 2420);
    click("document.querySelector('.row')"_s);
    QCOMPARE(text(".full-message"), "Door %1 was forced"_s.arg(shown));
    QCOMPARE(text("#details .value"), shown);
    QCOMPARE(elements(), 0);
    QVERIFY(browser->value("document.title"_s).toString().startsWith("Event log of "_s));
    QCOMPARE(
        browser
            ->value("getComputedStyle(document.querySelector('.row .message bdi')).unicodeBidi"_s)
            .toString(),
        "isolate"_s);
    // It is found as it is.
    QCOMPARE(strings("Log.read().then((log) => [log.message(0), log.pathText(1)])"_s),
             QStringList({"Door %1 was forced"_s.arg(stored), stored}));
}

void CtlReportPageTest::hostileCatalogue()
{
    const QByteArray evil
        = "&lt;/script&gt;&lt;img src=x onerror=&quot;document.title='run'&quot;&gt;";
    Report report;
    report.log().put(0, forced(1, "x"));
    report.log().put("evil.xml"_s,
                     "<systemevents><enum name=\"LogLevel\"><item value=\"3\" name=\"" + evil
                         + "\"/></enum><service name=\"" + evil + "\"><event id=\"3003\" name=\""
                         + evil + "\" loglevel=\"" + evil + "\"><argument type=\"string\" name=\""
                         + evil + "\"/><description lang=\"en\">" + evil
                         + " %1</description><description lang=\"" + evil
                         + "\">other %1</description></event></service></systemevents>");
    QDir().mkpath(report.log().path("out"_s));
    QCOMPARE(runCtl({"report"_s, report.page(), "-D"_s, report.log().dir().path(), "-C"_s,
                     report.log().path("evil.xml"_s)})
                 .status,
             0);
    QVERIFY(show(report));
    const QString shown = "</script><img src=x onerror=\"document.title='run'\">"_s;
    QCOMPARE(texts("#services .name"), QStringList{shown});
    QCOMPARE(texts("#events .name"), QStringList{shown});
    QVERIFY(texts("#language option").contains(shown));
    click("document.querySelector('.row')"_s);
    QCOMPARE(text(".full-message"), shown + " x"_s);
    QCOMPARE(text("#details tbody td"), shown);
    QCOMPARE(browser->value("document.images.length"_s).toInt(), 0);
    QVERIFY(browser->value("document.title"_s).toString().startsWith("Event log of "_s));
}

void CtlReportPageTest::keyboard()
{
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    // Everything is reached by the key for that, and shows that it is.
    QStringList reached;
    for (int i = 0; i < 60 && !reached.contains("grid"_s); ++i) {
        browser->press("Tab"_s);
        reached.append(browser->value("document.activeElement.id"_s).toString());
        QVERIFY(browser->value("getComputedStyle(document.activeElement).outlineStyle"_s).toString()
                != "none"_s);
    }
    for (const QString &id :
         {"language"_s, "zone"_s, "theme"_s, "search"_s, "closer"_s, "timeline"_s, "grid"_s}) {
        QVERIFY2(reached.contains(id), qPrintable(id));
    }
    browser->press("ArrowDown"_s);
    browser->press("ArrowDown"_s);
    QCOMPARE(texts("[aria-selected=true] .number"), QStringList{"2"_s});
    QCOMPARE(browser
                 ->value("document.getElementById(document.activeElement.getAttribute("
                         "'aria-activedescendant')).querySelector('.number').textContent"_s)
                 .toString(),
             "2"_s);
    browser->press("Enter"_s);
    QCOMPARE(text("#details-title"), "Record 2"_s);
    browser->press("ArrowDown"_s);
    QCOMPARE(text("#details-title"), "Record 3"_s);
    browser->press("Escape"_s);
    QVERIFY(browser->value("document.getElementById('details').hidden"_s).toBool());
    browser->press("End"_s);
    QCOMPARE(texts("[aria-selected=true] .number"), QStringList{"40"_s});
    browser->press("Home"_s);
    QCOMPARE(texts("[aria-selected=true] .number"), QStringList{"1"_s});
    browser->press("/"_s);
    QCOMPARE(browser->value("document.activeElement.id"_s).toString(), "search"_s);
    browser->value("document.getElementById('timeline').focus()"_s);
    browser->press("+"_s);
    QCOMPARE(text("#result"), "20 of 40 records"_s);
    browser->press("0"_s);
    QCOMPARE(text("#result"), "40 records"_s);
}

void CtlReportPageTest::colours()
{
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    const auto back = [this] {
        return browser->value("getComputedStyle(document.body).backgroundColor"_s).toString();
    };
    const auto choose = [this](const char *theme) {
        browser->value(R"((() => {
            const field = document.getElementById('theme');
            field.value = '%1';
            field.dispatchEvent(new Event('change'));
        })())"_s.arg(QLatin1String(theme)));
    };
    const QString light = back();
    browser->preferDark(true);
    const QString dark = back();
    QVERIFY(light != dark);
    choose("light");
    QCOMPARE(back(), light);
    browser->preferDark(false);
    choose("dark");
    QCOMPARE(back(), dark);
    choose("auto");
    QCOMPARE(back(), light);
}

void CtlReportPageTest::paper()
{
    Report report;
    QByteArray file;
    for (quint64 n = 1; n <= 300; ++n) {
        file += forced(n, n % 3 == 0 ? "third" : "other");
    }
    report.log().put(0, file);
    QCOMPARE(report.make(), 0);
    QVERIFY(show(report));
    QVERIFY(texts(".row").size() < 60); // there are only those in view
    search("third"_s);
    browser->value("addEventListener('beforeprint', () => { document.body.dataset.printed = "
                   "document.querySelectorAll('.row').length; })"_s);
    QVERIFY(browser->pdf().startsWith("%PDF"));
    QCOMPARE(browser->value("document.body.dataset.printed"_s).toString(), "100"_s);
    QTRY_VERIFY(texts(".row").size() < 60);
}

//! How it opens is said to the tool.
void CtlReportPageTest::asAskedFor()
{
    Report report;
    report.log().put(0, fortyRecords());
    QCOMPARE(report.make({"-l"_s, "de"_s, "--time"_s, "utc"_s, "-r"_s, "-n"_s, "39"_s}), 0);
    QVERIFY(show(report));
    QCOMPARE(text("#result"), "39 records"_s);
    QCOMPARE(texts(".row .number").first(), "40"_s);
    QCOMPARE(text(".row .time"), "2026-11-21 19:39:00.250000"_s);
    QCOMPARE(text(".row .message"), "Tür Küche mit 39 geöffnet"_s);
    QCOMPARE(browser->value("document.getElementById('language').selectedOptions[0].textContent"_s)
                 .toString(),
             "Deutsch (de)"_s);
}

void CtlReportPageTest::withoutCatalogue()
{
    Report report;
    report.log().put(0, forced(1, "north"));
    QDir().mkpath(report.log().path("out"_s));
    QCOMPARE(runCtl({"report"_s, "-q"_s, report.page(), "-D"_s, report.log().dir().path()}).status,
             0);
    QVERIFY(show(report));
    QVERIFY(!browser->value("document.getElementById('no-catalogue').hidden"_s).toBool());
    QVERIFY(browser->value("document.getElementById('incomplete').hidden"_s).toBool());
    QCOMPARE(texts(".row .cell").mid(2),
             QStringList({"unknown"_s, "event 3003"_s, "/doors/north"_s, ""_s}));
    QCOMPARE(texts("#levels button"), QStringList{"unknown1"_s});
    click("document.querySelector('.row')"_s);
    QTRY_VERIFY(text(".dump").contains("north"_s));
}

//! Times are told, not judged: they are those of a machine that does other work besides.
void CtlReportPageTest::manyRecords()
{
    constexpr int perFile = 1300;
    constexpr int count = 100000;
    Report report;
    quint64 n = 0;
    for (int index = (count - 1) / perFile; index >= 0; --index) {
        QByteArray file;
        for (int i = 0; i < perFile && n < count; ++i) {
            ++n;
            file += recordAt(n, int(n), 3003, "/doors/north",
                             sized("door " + QByteArray::number(n)));
        }
        report.log().put(index, file);
    }
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(report.make(), 0);
    const qint64 made = timer.elapsed();
    QVERIFY(show(report));
    const double ready
        = browser->value("performance.getEntriesByName('ready')[0].startTime"_s).toDouble();
    const qint64 size = QFileInfo(report.page()).size();
    std::printf("100,000 records: made in %lld ms, %.1f MB, ready in the browser in %.0f ms\n",
                static_cast<long long>(made), double(size) / 1e6, ready);
    QVERIFY2(size < 20000000, "a report of 100,000 records takes less than 20 MB");
    QCOMPARE(text("#result"), "100,000 records"_s);
    search("door 999"_s);
    QCOMPARE(text("#result"), "111 of 100,000 records"_s); // 999, 9990 to 9999, 99900 to 99999
    search({});
    browser->value("document.getElementById('grid').focus()"_s);
    browser->press("End"_s);
    QCOMPARE(texts(".row .number").last(), "100000"_s);
}

int main(int argc, char **argv)
{
    if (Browser::program().isEmpty()) {
        std::printf("there is no chromium, so the page is not tested\n");
        return 77;
    }
    const QCoreApplication application(argc, argv); // a child's end is an event
    CtlReportPageTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_ctlreportpage.moc"

// SPDX-License-Identifier: Apache-2.0

// What "catalogue check" finds in catalogues, each finding with the line that is printed;
// that it reads of a file what the daemon loads of it, whatever is wrong with it; and what
// "catalogue list" and "catalogue show" print.
// SEL_BROKEN_CATALOGUES sets how many broken ones are made (2000), SEL_SEED from what.

#include "ctl/cataloguecheck.h"
#include "ctl/ctlprocess.h"
#include "ctl/documentcompare.h"
#include "ctl/terminal.h"
#include "rendering/eventtemplate.h"
#include "support/literals.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <iterator>

class CtlCatalogueTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ids_data();
    void ids();
    void types_data();
    void types();
    void enumerations_data();
    void enumerations();
    void howEnumsAreRead_data();
    void howEnumsAreRead();
    void eventLevels_data();
    void eventLevels();
    void placeholders_data();
    void placeholders();
    void languages_data();
    void languages();
    void texts_data();
    void texts();
    void nesting_data();
    void nesting();
    void xmlErrors_data();
    void xmlErrors();
    void documents_data();
    void documents();
    void encodings_data();
    void encodings();
    void rareLanguage();
    void examplePasses_data();
    void examplePasses();
    void exitStatus_data();
    void exitStatus();
    void severalFiles();
    void checkAsJson();
    void names();
    void manyFindings();

    void brokenCatalogues();
    void loadedIsCounted();
    void placeholdersAreFilledAsTold();
    void hostile_data();
    void hostile();

    void usage_data();
    void usage();
    void help_data();
    void help();
    void list();
    void show_data();
    void show();
    void output_data();
    void output();
    void rawOutput_data();
    void rawOutput();
    void language_data();
    void language();
    void exampleOfEachType();
    void unknownLanguage();
    void controlCharacters();
    void tablesMoveNoCursor();

private:
    static void addColumns();
    static void addEntities(const QByteArray &begin);
    static void addMisfits();
    void checkFindings();
    QString put(const QByteArray &content, const QString &name = "c.xml"_s);

    QTemporaryDir folder;
};

namespace
{

constexpr char levels[]
    = R"(<enum name="LogLevel"><item value="3" name="error"/><item value="6" name="info"/></enum>)";

//! A catalogue that is all right but for what comes in its line 5 and behind.
QByteArray framed(const QByteArray &elements)
{
    return QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<systemevents>\n") + levels
        + "\n<service name=\"s\">\n" + elements + "\n</service></systemevents>\n";
}

//! A document of its own, as rows have it in place of elements.
QByteArray whole(const QByteArray &document)
{
    return "whole" + document;
}

//! An event with arguments and a text in English in its line 5.
QByteArray anEvent(const QByteArray &arguments, const QByteArray &text)
{
    return R"(<event id="1" name="one" loglevel="info">)" + arguments + R"(<description lang="en">)"
        + text + "</description></event>";
}

QByteArray argument(const QByteArray &name, const QByteArray &type)
{
    return "<argument type=\"" + type + "\" name=\"" + name + "\"/>";
}

//! An enumeration in line 6 behind an event in line 5 whose one argument has it.
QByteArray mode(const QByteArray &items)
{
    return anEvent(R"(<argument type="enum" name="m" enum="Mode"/>)", "%1")
        + "\n<enum name=\"Mode\">" + items + "</enum>";
}

QByteArray fileContent(const QString &name)
{
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read %s", qPrintable(name));
    }
    return file.readAll();
}

QString inTree(const QString &name)
{
    return QString::fromLocal8Bit(qgetenv("SEL_SOURCE_DIR")) + QLatin1Char('/') + name;
}

QString demoCatalogue()
{
    return inTree("demo/systemevent.xml"_s);
}

//! The complete example of the page for those who write catalogues.
QByteArray documentedCatalogue()
{
    const QByteArray page = fileContent(inTree("docs/catalogue.md"_s));
    const auto begin = page.indexOf("<?xml");
    return page.mid(begin, page.indexOf("```", begin) - begin);
}

} // namespace

QString CtlCatalogueTest::put(const QByteArray &content, const QString &name)
{
    QFile file(folder.filePath(name));
    (void)file.remove(); // a file that is written over is brought to the disk at once
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size()) {
        qFatal("cannot write a catalogue");
    }
    return file.fileName();
}

void CtlCatalogueTest::addColumns()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::addColumn<QString>("findings");
}

// Elements from line 5 on, or a whole document, and all that is said of them.
void CtlCatalogueTest::checkFindings()
{
    QFETCH(QByteArray, elements);
    QFETCH(QString, findings);
    const QString file = put(elements.startsWith("whole") ? elements.mid(5) : framed(elements));
    const CtlRun run = runCtl({"catalogue"_s, "check"_s, file});
    QStringList lines = QString::fromUtf8(run.out).split(QLatin1Char('\n'));
    QCOMPARE(lines.takeLast(), QString());
    QVERIFY(lines.takeLast().startsWith(file + ": "_s)); // the summary
    for (QString &line : lines) {
        QVERIFY(line.startsWith(file + QLatin1Char(':')));
        line.remove(0, file.size() + 1);
    }
    QCOMPARE(lines.join(QLatin1Char('\n')), findings);
    QCOMPARE(run.errors, QByteArray());
    QCOMPARE(run.status, findings.contains(": error: "_s) ? 1 : 0);
    const int strict = runCtl({"catalogue"_s, "check"_s, "--werror"_s, file}).status;
    QCOMPARE(strict, findings.isEmpty() ? 0 : 1);
}

void CtlCatalogueTest::ids_data()
{
    addColumns();
    const QByteArray good = anEvent({}, "text");
    QTest::newRow("a good event is not remarked on") << good << QString();
    QTest::newRow("an id twice is an error at the later one")
        << good + "\n" + good
        << "6:1: error: event 1 is given again; the one of line 5 is lost, with its arguments and texts"_s;
    QTest::newRow("an id that is no number is an error")
        << QByteArray(good).replace("id=\"1\"", "id=\"1a\"")
        << R"(5:1: error: id "1a" is no number and counts as 0; write digits alone)"_s;
    QTest::newRow("a sign is no digit")
        << QByteArray(good).replace("id=\"1\"", "id=\"-1\"")
        << R"(5:1: error: id "-1" is no number and counts as 0; write digits alone)"_s;
    QTest::newRow("an event without an id is an error")
        << QByteArray(good).replace("id=\"1\"", "")
        << "5:1: error: the event has no id, which counts as 0; give it a number of its own"_s;
    QTest::newRow("an id beyond 32 bits is an error that says what it counts as")
        << QByteArray(good).replace("id=\"1\"", "id=\"4294967298\"")
        << R"(5:1: error: id "4294967298" is larger than 4294967295 and counts as 2)"_s;
    QTest::newRow("leading zeros are fine")
        << QByteArray(good).replace("id=\"1\"", "id=\"000000000001\"") << QString();
    QTest::newRow("an id beyond 31 bits is a warning that says how it is announced")
        << QByteArray(good).replace("id=\"1\"", "id=\"4294967291\"")
        << "5:1: warning: event 4294967291 is announced as -5: ids have a sign on the bus"_s;
    QTest::newRow("an event without a name is a warning")
        << QByteArray(good).replace("name=\"one\"", "") << "5:1: warning: event 1 has no name"_s;
    QTest::newRow("two events of one name are a warning")
        << good + "\n" + QByteArray(good).replace("id=\"1\"", "id=\"2\"")
        << R"(6:1: warning: event 2 has the name "one" of event 1 in line 5; by name both are meant)"_s;
}

void CtlCatalogueTest::ids()
{
    checkFindings();
}

void CtlCatalogueTest::types_data()
{
    addColumns();
    QTest::newRow("an unknown type is an error that names the types")
        << anEvent(argument("a", "number"), "%1")
        << R"(5:42: error: type "number" of argument "a" is unknown: neither it nor what follows it is shown right; types are bool, int32, int64, uint64, double, string, bytearray, variant, enum, and at the end byte and int16)"_s;
    QTest::newRow("a type in wrong case is an error that says what to write")
        << anEvent(argument("a", "Int32"), "%1")
        << R"(5:42: error: type "Int32" of argument "a" is unknown: neither it nor what follows it is shown right; write "int32")"_s;
    QTest::newRow("an argument without a type is an error")
        << anEvent("<argument name=\"a\"/>", "%1")
        << R"(5:42: error: argument "a" has no type: neither it nor what follows it is shown right; types are bool, int32, int64, uint64, double, string, bytearray, variant, enum, and at the end byte and int16)"_s;
    QTest::newRow("a float is an error, since nothing on the bus is stored as one")
        << anEvent(argument("a", "float"), "%1")
        << R"(5:42: error: argument "a" is never shown right: "float" is read as four bytes, which no number on the bus is stored as; use "double")"_s;
    QTest::newRow("a byte at the end is fine") << anEvent(argument("a", "byte"), "%1") << QString();
    QTest::newRow("a byte before the end is an error")
        << anEvent(argument("a", "byte") + argument("b", "bool"), "%1 %2")
        << R"(5:42: error: type "byte" of argument "a", which is not the last one: only one of the four bytes of a number is read, and all behind it is shown wrong; use "int32")"_s;
    QTest::newRow("an int16 before the end is an error")
        << anEvent(argument("a", "int16") + argument("b", "bool"), "%1 %2")
        << R"(5:42: error: type "int16" of argument "a", which is not the last one: only two of the four bytes of a number are read, and all behind it is shown wrong; use "int32")"_s;
    QTest::newRow("an argument without a name is a warning")
        << anEvent("<argument type=\"bool\"/>", "%1")
        << "5:42: warning: argument 1 of event 1 has no name"_s;
    QTest::newRow("two arguments of one name are a warning")
        << anEvent(argument("a", "bool") + argument("a", "bool"), "%1 %2")
        << R"(5:74: warning: argument 2 of event 1 has the name "a" of another)"_s;
}

void CtlCatalogueTest::types()
{
    checkFindings();
}

void CtlCatalogueTest::enumerations_data()
{
    addColumns();
    const QByteArray good = anEvent({}, "text");
    QTest::newRow("an unknown enumeration is an error")
        << anEvent(R"(<argument type="enum" name="m" enum="Mod"/>)", "%1")
        << R"(5:42: error: enumeration "Mod" of argument "m" is not defined, so that nothing is shown for it)"_s;
    QTest::newRow("an enum without an enumeration is an error")
        << anEvent(argument("m", "enum"), "%1")
        << R"(5:42: error: argument "m" names no enumeration, so that nothing is shown for it)"_s;
    QTest::newRow("an enumeration without items is an error where it is used")
        << mode({})
        << R"(5:42: error: enumeration "Mode" of argument "m" has no items, so that nothing is shown for it)"_s;
    QTest::newRow("an enumeration that nothing uses is a warning")
        << good + "\n<enum name=\"Mode\"><item value=\"0\" name=\"day\"/></enum>"
        << R"(6:1: warning: no argument has enumeration "Mode")"_s;
    QTest::newRow("an enumeration of another type is a warning")
        << anEvent(R"(<argument type="bool" name="a" enum="LogLevel"/>)", "%1")
        << R"(5:42: warning: enumeration "LogLevel" of argument "a" counts with type "enum" alone)"_s;
    QTest::newRow("an enumeration without a name is an error")
        << good + "\n<enum/>"
        << "6:1: error: the enumeration has no name, so that no argument can have it"_s;
    QTest::newRow("an enumeration twice is an error at the later one")
        << mode(R"(<item value="0" name="day"/>)")
            + "\n<enum name=\"Mode\"><item value=\"0\" name=\"day\"/></enum>"
        << R"(7:1: error: enumeration "Mode" is given again; the one of line 6 is lost, with its items)"_s;
    QTest::newRow("an item's value that is no number is an error")
        << mode(R"(<item value="0x1" name="day"/>)")
        << R"(6:19: error: value "0x1" of "Mode" is no number and counts as 0)"_s;
    QTest::newRow("an item without a value is an error")
        << mode(R"(<item name="day"/>)")
        << R"(6:19: error: an item of "Mode" has no value, which counts as 0)"_s;
    QTest::newRow("an item without a name is an error")
        << mode(R"(<item value="7"/>)")
        << R"(6:19: error: value 7 of "Mode" has no name, so that nothing is shown for it)"_s;
    QTest::newRow("a value twice is an error")
        << mode(R"(<item value="0" name="day"/><item value="0" name="night"/>)")
        << R"(6:47: error: value 0 of "Mode" is given again; "day" of line 6 is lost)"_s;
    QTest::newRow("two values of one name are a warning")
        << mode(R"(<item value="0" name="day"/><item value="1" name="day"/>)")
        << R"(6:47: warning: values 0 and 1 of "Mode" have one name, "day", and cannot be told apart)"_s;
}

void CtlCatalogueTest::enumerations()
{
    checkFindings();
}

void CtlCatalogueTest::howEnumsAreRead_data()
{
    addColumns();
    QTest::newRow("an enum at the end may have any value of a byte")
        << mode(R"(<item value="0" name="a"/><item value="255" name="b"/>)") << QString();
    QTest::newRow("a value that no byte has is an error at its item")
        << mode(
               R"(<item value="0" name="a"/><item value="256" name="b"/><item value="-1" name="c"/>)")
        << R"(6:45: error: value 256 of "Mode" is never shown: an enum is read as one byte, 0 to 255
6:73: error: value -1 of "Mode" is never shown: an enum is read as one byte, 0 to 255)"_s;
    const QByteArray before = anEvent(
        R"(<argument type="enum" name="m" enum="Mode"/><argument type="bool" name="b"/>)", "%1 %2");
    QTest::newRow("an enum before the end is fine with 0 and 1, which a bool has") << before
            + "\n<enum name=\"Mode\"><item value=\"0\" name=\"a\"/><item value=\"1\" "
              "name=\"b\"/></enum>" << QString();
    QTest::newRow("an enum before the end is an error with any other value")
        << before
            + "\n<enum name=\"Mode\"><item value=\"0\" name=\"a\"/><item value=\"2\" "
              "name=\"b\"/><item value=\"3\" name=\"c\"/></enum>"
        << R"(5:42: error: enumeration "Mode" of argument "m", which is not the last one: only 0 and 1 can be announced there, as a bool, not 2 ("b") and 1 more; put it last, or announce its text as a string)"_s;
}

void CtlCatalogueTest::howEnumsAreRead()
{
    checkFindings();
}

void CtlCatalogueTest::eventLevels_data()
{
    addColumns();
    const QByteArray good = anEvent({}, "text");
    QTest::newRow("an undefined level is an error that names the levels")
        << QByteArray(good).replace("\"info\"", "\"Info\"")
        << R"(5:1: error: level "Info" of event 1 is not defined and counts as 7; "LogLevel" has "error", "info")"_s;
    QTest::newRow("an event without a level is an error")
        << QByteArray(good).replace("loglevel=\"info\"", "")
        << R"(5:1: error: event 1 has no loglevel, which counts as 7; "LogLevel" has "error", "info")"_s;
}

void CtlCatalogueTest::eventLevels()
{
    checkFindings();
}

void CtlCatalogueTest::placeholders_data()
{
    addColumns();
    const QByteArray two = argument("a", "bool") + argument("b", "double");
    QTest::newRow("values fill placeholders in the order of their numbers")
        << anEvent(two, "%2 before %1, and %1") << QString();
    QTest::newRow("a placeholder without an argument is an error")
        << anEvent(two, "%1 %2 %3")
        << R"(5:108: error: "%3" in "en" has no argument and stays as it is; event 1 has 2)"_s;
    QTest::newRow("a placeholder of an event without arguments is an error")
        << anEvent({}, "%1")
        << R"(5:42: error: "%1" in "en" has no argument and stays as it is; event 1 has none)"_s;
    QTest::newRow("placeholder ten is told how a nought is written")
        << anEvent(two, "%1 %2 %10")
        << R"(5:108: error: "%10" in "en" has no argument and stays as it is; event 1 has 2; where "%1" with a digit behind it is meant, write "%010")"_s;
    QTest::newRow("an argument without a placeholder is a warning where no language has one")
        << anEvent(two, "%1")
        << R"(5:108: warning: argument 2 "b" has no placeholder in "en", so that nothing is shown of it)"_s;
    QTest::newRow("an argument without a placeholder is an error where another language has one")
        << anEvent(two, "%1 %2")
               .replace("</event>", "\n<description lang=\"de\">%1</description></event>")
        << R"(6:1: error: argument 2 "b" has no placeholder in "de", so that nothing is shown of it, unlike in another language)"_s;
    QTest::newRow("a placeholder without an argument is an error in any language")
        << anEvent(two, "%1 %2")
               .replace("</event>", "\n<description lang=\"de\">%1 %2 %L4</description></event>")
        << R"(6:1: error: "%L4" in "de" has no argument and stays as it is; event 1 has 2)"_s;
    QTest::newRow("a gap that shows another argument is an error")
        << anEvent(two + argument("c", "bool"), "%1 %3")
        << R"(5:140: error: "%3" in "en" is filled by argument 2 "b", as there is no "%2"
5:140: warning: argument 3 "c" has no placeholder in "en", so that nothing is shown of it)"_s;
    QTest::newRow("an odd number that shows the right argument is a warning")
        << anEvent(two, "%1 %7")
        << R"(5:108: warning: "%7" in "en" is filled by argument 2 "b", as there is no "%2")"_s;
    QTest::newRow("placeholder nought is a warning")
        << anEvent(argument("a", "bool"), "%0")
        << R"(5:74: warning: "%0" in "en" is filled by argument 1 "a", as there is no "%1")"_s;
    QTest::newRow("a percent sign before a placeholder is a warning")
        << anEvent(two, "%2 at 100 %%1")
        << R"(5:108: warning: "%%1" in "en": with a value that begins with a digit the first "%" makes a new placeholder; put something between them)"_s;
}

void CtlCatalogueTest::placeholders()
{
    checkFindings();
}

void CtlCatalogueTest::languages_data()
{
    addColumns();
    const QByteArray good = anEvent({}, "text");
    QTest::newRow("a missing language is a warning")
        << good + "\n"
            + QByteArray(good)
                  .replace("id=\"1\" name=\"one\"", "id=\"2\" name=\"two\"")
                  .replace("</event>", "<description lang=\"de\">Text</description></event>")
        << R"(5:1: warning: event 1 has no text in "de"; the one in "en" is shown)"_s;
    QTest::newRow("missing English is an error")
        << QByteArray(good).replace("\"en\"", "\"de\"")
        << R"(5:1: error: event 1 has no text in "en": whoever asks for a language that it does not have is shown "Meta-Error")"_s;
    QTest::newRow("an event without a text is an error")
        << QByteArray(R"(<event id="1" name="one" loglevel="info"/>)")
        << R"(5:1: error: event 1 has no text: "Meta-Error" is shown for it)"_s;
    QTest::newRow("a text without a language is an error")
        << QByteArray(good).replace("</event>", "\n<description>a</description></event>")
        << R"(6:1: error: the text has no language, so that it is not shown; add lang="en")"_s;
    QTest::newRow("a language twice is an error at the later one")
        << QByteArray(good).replace("</event>",
                                    "\n<description lang=\"en\">a</description></event>")
        << R"(6:1: error: the text in "en" is given again; the one of line 5 is lost)"_s;
}

void CtlCatalogueTest::languages()
{
    checkFindings();
}

void CtlCatalogueTest::texts_data()
{
    addColumns();
    QTest::newRow("a line break is a warning")
        << anEvent({}, "two\nlines")
        << R"(5:42: warning: the text in "en" holds a line break, which is shown; keep it and its tags on one line)"_s;
    QTest::newRow("characters of all planes, quotes and backslashes are fine")
        << anEvent({}, "\"\\ \xF0\x9F\x94\x8B &#x10FFFD; \xEF\xB7\x90 \t &#x85;") << QString();
    QTest::newRow("a text beyond a datagram is a warning")
        << anEvent({}, QByteArray(60001, 'x'))
        << R"(5:42: warning: the text in "en" is too long for a datagram, which then is not sent)"_s;
}

void CtlCatalogueTest::texts()
{
    checkFindings();
}

void CtlCatalogueTest::nesting_data()
{
    addColumns();
    const QByteArray good = anEvent({}, "text");
    QTest::newRow("an element in wrong case is told")
        << good + "\n<Event id=\"2\"/>"
        << R"(6:1: warning: "Event" is no element of a catalogue and is passed over; write "event")"_s;
    QTest::newRow("an unknown element is told once")
        << good + "\n<help/><help/>"
        << R"(6:1: warning: "help" is no element of a catalogue and is passed over)"_s;
    QTest::newRow("an argument outside of its event is told")
        << anEvent({}, "%1") + "\n" + argument("a", "bool")
        << R"(6:1: warning: "argument" stands outside of "event"; it counts for event 1)"_s;
    QTest::newRow("an event outside of a service is told")
        << "</service>" + good + "<service name=\"t\">"
        << R"(5:11: warning: "event" stands outside of "service"; it counts for "s")"_s;
    QTest::newRow("a service without a name is told")
        << good + "\n<service/>"
        << R"(6:1: warning: a service without a name is passed over; its events count for "s")"_s;
    QTest::newRow("a text before the first event is an error")
        << "<description lang=\"en\">lost</description>\n" + good
        << R"(5:1: error: "description" before the first "event" is passed over)"_s;
    QTest::newRow("no event at all is an error")
        << QByteArray() << "2:1: error: there is no event"_s;
    QTest::newRow("the line is that of the element's beginning")
        << QByteArray(good).replace("loglevel=\"info\"", "\n\nloglevel\n=\"no\"")
        << R"(5:1: error: level "no" of event 1 is not defined and counts as 7; "LogLevel" has "error", "info")"_s;
    QTest::newRow("columns count UTF-16 units") << QByteArray("<!-- \xC3\xA4\xF0\x9F\x94\x8B -->")
            + QByteArray(good).replace("name=\"one\"", "")
                                                << "5:13: warning: event 1 has no name"_s;
}

void CtlCatalogueTest::nesting()
{
    checkFindings();
}

void CtlCatalogueTest::xmlErrors_data()
{
    addColumns();
    const QByteArray good = anEvent({}, "text");
    QTest::newRow("an ampersand is told how it is written, and what is loaded")
        << good + "\n"
            + anEvent({}, "black & white").replace("id=\"1\" name=\"one\"", "id=\"2\" name=\"two\"")
        << R"(6:72: error: "&" begins no entity; write &amp; for it; the daemon stops reading here, without a word, and loads 2 events, up to 2 "two", whose text in "en" is cut here)"_s;
    QTest::newRow("an entity of other languages is told how it is written")
        << anEvent({}, "&auml;")
        << R"(5:70: error: Entity 'auml' not declared; write the character itself, or &#NUMBER;; the daemon stops reading here, without a word, and loads 1 event, 1 "one", whose text in "en" is cut here)"_s;
    QTest::newRow("an element in a text is an error")
        << anEvent({}, "a <b>bold</b> text")
        << R"(5:69: error: an element within a text; write &lt; for "<"; the daemon stops reading here, without a word, and loads 1 event, 1 "one", whose text in "en" is cut here)"_s;
    QTest::newRow("a wrong end tag is told what it should end")
        << QByteArray(R"(<event id="1" name="one" loglevel="info"><argument type="bool" name="a">)"
                      "\n</event>")
        << R"(6:8: error: the end of another element than "argument" of line 5; the daemon stops reading here, without a word, and loads 1 event, 1 "one")"_s;
    QTest::newRow("an attribute twice is an error")
        << good + "\n<event id=\"2\" id=\"3\"/>"
        << R"(6:22: error: Attribute 'id' redefined; the daemon stops reading here, without a word, and loads 1 event, 1 "one")"_s;
    QTest::newRow("nothing is said of what may stand behind an error")
        << anEvent(R"(<argument type="enum" name="m" enum="Mode"/>)", "text &")
        << R"(5:115: error: "&" begins no entity; write &amp; for it; the daemon stops reading here, without a word, and loads 1 event, 1 "one", whose text in "en" is cut here)"_s;
    QTest::newRow("a byte that is no UTF-8 is shown where it stands")
        << good + "\n<!-- \xC3\xA4 \xE4 -->"
        << "6:8: error: byte 0xE4 is no UTF-8; save the file as UTF-8, or declare its encoding in the first line; the daemon stops reading up to 8 KiB before it, without a word, and loads no event"_s;
}

void CtlCatalogueTest::xmlErrors()
{
    checkFindings();
}

void CtlCatalogueTest::documents_data()
{
    addColumns();
    const QByteArray good = anEvent({}, "text");
    const QByteArray service = "\n<service name=\"s\">" + good + "</service></x>";
    QTest::newRow("no levels at all are one error")
        << whole("<x>" + service)
        << R"(1:1: error: there is no enumeration "LogLevel", so that every event has level 7; add one with the names and numbers of levels)"_s;
    const QByteArray noItems = "<x>\n<enum name=\"LogLevel\"/>";
    QTest::newRow("levels without items define none")
        << whole(noItems + service)
        << R"(3:19: error: level "info" of event 1 is not defined and counts as 7; "LogLevel" has no items)"_s;
    const QByteArray begin = R"(<x><enum name="LogLevel"><item value="6" name="info"/>)"
                             "\n";
    QTest::newRow("a level twice is an error that says which counts")
        << whole(begin + R"(<item value="3" name="info"/></enum>)" + service)
        << R"(2:1: error: level "info" is given twice, as 6 in line 1 and as 3 here; 3 counts)"_s;
    QTest::newRow("a number twice is an error")
        << whole(begin + R"(<item value="6" name="note"/></enum>)" + service)
        << R"(2:1: error: value 6 of "LogLevel" is given again; "info" of line 1 is lost
3:19: error: level "info" of event 1 is not defined and counts as 7; "LogLevel" has "note")"_s;
    QTest::newRow("a level that is no severity is a warning")
        << whole(begin + R"(<item value="8" name="trace"/></enum>)" + service)
        << R"(2:1: warning: level "trace" is 8; the severities of syslog are 0 to 7)"_s;
    for (const char *const name : {"a&quot;b", "a\\b", "a&#10;b"}) {
        QTest::addRow("JSON does not carry the level %s", name)
            << whole(begin + R"(<item value="3" name=")" + name + R"("/></enum>)" + service)
            << R"(2:1: error: level "%1" holds a quote, a backslash or a control character, which makes the daemon's answers invalid JSON)"_s
                   .arg(QString::fromUtf8(name)
                            .replace("&quot;"_s, "\""_s)
                            .replace("&#10;"_s, "\\x0a"_s));
    }
    QTest::newRow("a file without an element is an error")
        << whole({})
        << "1:1: error: the file ends before any element; the daemon stops reading here, without a word, and loads no event"_s;
    QTest::newRow("no XML is an error")
        << whole("hello")
        << "1:1: error: Start tag expected; the daemon stops reading here, without a word, and loads no event"_s;
    QTest::newRow("an end that is missing is an error")
        << whole(begin + "</enum>\n<service name=\"s\">" + good + "\n")
        << R"(4:1: error: the file ends within "service" of line 3; the daemon stops reading here, without a word, and loads 1 event, 1 "one")"_s;
    QTest::newRow("all has to be in one element")
        << whole(begin + "</enum>" + service + "<y/>")
        << R"(3:126: error: Extra content at end of document; all has to be in one element; the daemon stops reading here, without a word, and loads 1 event, 1 "one")"_s;
    QTest::newRow("another kind of document is no catalogue")
        << whole("<!DOCTYPE html>\n\n  <html><p>Hello</p></html>")
        << "3:3: error: there is no event\n3:9: warning: \"p\" is no element of a catalogue and is passed over"_s;
    QTest::newRow("own entities are fine")
        << whole("<!DOCTYPE x [<!ENTITY c 'degrees'>]>" + begin + "</enum>\n<service name=\"s\">"
                 + anEvent({}, "&c;") + "</service></x>")
        << QString();
    addEntities(begin + "</enum>\n<service name=\"s\">");
}

// Entities of other files, in a document of which this is the first half.
void CtlCatalogueTest::addEntities(const QByteArray &begin)
{
    const QByteArray end = "</service></x>";
    const QByteArray external
        = "<!DOCTYPE x [\n<!ENTITY a SYSTEM 'texts.ent'>\n<!ENTITY b '(&a;)'>]>";
    const auto lost = [](const char *place, const char *name) {
        return QString::fromLatin1(place)
            + R"(: error: entity "%1" stands in another file, which the daemon does not read: nothing is put in its place; write it out here)"_s
                  .arg(QString::fromLatin1(name));
    };
    QTest::newRow("an entity of another file that nothing uses is fine")
        << whole("<!DOCTYPE x [\n<!ENTITY a SYSTEM 'texts.ent'>]>" + begin
                 + anEvent({}, "<!-- &a; --><![CDATA[&a;]]>text") + end)
        << QString();
    QTest::newRow("an entity of another file is an error where it is used")
        << whole(QByteArray(external).replace("(&a;)", "c") + begin
                 + anEvent({}, "one &a;\xC3\xA4 &a; &b;") + end + "<!-- &a; -->\n")
        << lost("5:87", "a") + "\n"_s + lost("5:92", "a");
    QTest::newRow("so it is within another entity, and between elements")
        << whole(external + begin + anEvent({}, "&b;") + "\n&a;" + end)
        << lost("3:14", "a") + "\n"_s + lost("6:1", "a");
    QTest::newRow("so is one that only another file could declare")
        << whole("<!DOCTYPE x SYSTEM 'x.dtd'>" + begin + anEvent({}, "T&uuml;r") + "\n&events;"
                 + end)
        << lost("3:84", "uuml") + "\n"_s + lost("4:1", "events");
    QTest::newRow("in an attribute it is an error of the XML")
        << whole(external.left(external.indexOf("\n<!ENTITY b")) + "]>" + begin
                 + "<event id=\"&a;\"/>" + end)
        << "4:32: error: Reference to external entity 'a' in attribute value; the daemon stops reading here, without a word, and loads no event"_s;
    QTest::newRow("behind an error it is not told")
        << whole(external.left(external.indexOf("\n<!ENTITY b")) + "]>" + begin
                 + anEvent({}, "&a; & &a;") + end)
        << lost("4:83", "a")
            + "\n4:88: error: \"&\" begins no entity; write &amp; for it; the daemon stops reading here, without a word, and loads 1 event, 1 \"one\", whose text in \"en\" is cut here"_s;
}

void CtlCatalogueTest::documents()
{
    checkFindings();
}

void CtlCatalogueTest::encodings_data()
{
    addColumns();
    const auto utf16 = [](const QString &text) {
        QByteArray bytes("\xFF\xFE");
        for (const QChar unit : text) {
            bytes += char(unit.unicode() & 0xFF);
            bytes += char(unit.unicode() >> 8);
        }
        return whole(bytes);
    };
    const QString begin
        = "<?xml version=\"1.0\"?>\n<x>"_s + QLatin1String(levels) + "\n<service name=\"s\">\n"_s;
    const QString end = "</service></x>"_s;
    const QByteArray text = anEvent({}, "T\xC3\xBCr \xF0\x9F\x94\x8B");
    QTest::newRow("UTF-16 is fine") << utf16(begin + QString::fromUtf8(text) + end) << QString();
    QString half = QString::fromUtf8(anEvent({}, "half X"));
    half.replace(QLatin1Char('X'), QChar(0xD83D));
    QTest::newRow("the bus does not carry half of a surrogate pair")
        << utf16(begin + half + end)
        << R"(4:42: error: the text in "en" holds half of a surrogate pair, which is no character: "?" is shown)"_s;
    QString item = QString::fromUtf8(mode(R"(<item value="0" name="X"/>)"));
    item.replace(QLatin1Char('X'), QChar(0xDD0B));
    QTest::newRow("nor does it in the name of an item")
        << utf16(begin + item + end)
        << R"(5:19: error: the name of value 0 of "Mode" holds half of a surrogate pair, which is no character: "?" is shown)"_s;
    const QByteArray latin1 = framed(anEvent({}, "T\xFCr")).replace("UTF-8", "ISO-8859-1");
    QTest::newRow("Latin-1 is fine where it is declared") << whole(latin1) << QString();
    QTest::newRow("a byte-order mark is fine") << whole("\xEF\xBB\xBF" + framed(text)) << QString();
    QTest::newRow("an entity of another file is found in UTF-16, too")
        << utf16("<!DOCTYPE x [<!ENTITY a SYSTEM 'b'>]>\n"_s + begin.mid(22)
                 + QString::fromUtf8(anEvent({}, "T\xC3\xBCr &a;")) + end)
        << R"(4:69: error: entity "a" stands in another file, which the daemon does not read: nothing is put in its place; write it out here)"_s;
    addMisfits();
    QTest::newRow("an unknown encoding is an error")
        << whole("<?xml version=\"1.0\" encoding=\"nonsense\"?><x/>")
        << "1:41: error: Encoding nonsense is unsupported; save the file as UTF-8; the daemon stops reading here, without a word, and loads no event"_s;
    QTest::newRow("what is loaded before the bytes that are wrong is told")
        << anEvent({}, "one") + QByteArray(20000, '\n') + "\xFF"
        << R"(20005:1: error: byte 0xFF is no UTF-8; save the file as UTF-8, or declare its encoding in the first line; the daemon stops reading up to 8 KiB before it, without a word, and loads 1 event, 1 "one")"_s;
}

// Bytes that the declared encoding does not have; the reader takes most of them.
void CtlCatalogueTest::addMisfits()
{
    const auto misfit = [](const char *place, const char *encoding) {
        return QString::fromLatin1(place)
            + R"(: error: bytes do not fit the encoding "%1", and U+FFFD is shown for them; save the file as UTF-8, and declare that)"_s
                  .arg(QString::fromLatin1(encoding));
    };
    const auto declared = [](const char *encoding, const QByteArray &elements) {
        return whole(framed(elements).replace("UTF-8", encoding));
    };
    const QByteArray good = anEvent({}, "text");
    for (const char *const name : {"US-ASCII", "ascii"}) {
        QTest::addRow("UTF-8 is an error where %s is declared", name)
            << declared(name,
                        good + "\n"
                            + anEvent({}, "T\xC3\xBCr")
                                  .replace("id=\"1\" name=\"one\"", "id=\"2\" name=\"two\""))
            << misfit("6:42", name);
        QTest::addRow("Latin-1 is an error where %s is declared", name)
            << declared(name, anEvent({}, "T\xFCr")) << misfit("5:42", name);
    }
    QTest::newRow("so it is in an attribute")
        << declared("US-ASCII", QByteArray(good).replace("\"one\"", "\"\xFC\""))
        << misfit("5:1", "US-ASCII");
    QTest::newRow("half a character of Shift_JIS is an error")
        << declared("Shift_JIS", anEvent({}, "T\xFCr")) << misfit("5:42", "Shift_JIS");
    QTest::newRow("a byte that is no character of Shift_JIS is an error")
        << declared("Shift_JIS", anEvent({}, "T\xA0r"))
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0) // before: read like the other one
        << "5:66: error: a byte does not fit the encoding; save the file as UTF-8; the daemon stops reading here, without a word, and loads 1 event, 1 \"one\", whose text in \"en\" is cut here"_s;
#else
        << misfit("5:42", "Shift_JIS");
#endif
    QTest::newRow("Shift_JIS is fine where it is declared")
        << declared("Shift_JIS", anEvent({}, "\x83\x68\x83\x41")) << QString();
    QTest::newRow("the sign for a lost character may be written")
        << declared("US-ASCII", anEvent({}, "&#xFFFD; &#65533;")) << QString();
    QTest::newRow("beside the sign for a lost character bytes are found")
        << declared("US-ASCII", anEvent({}, "T\xFCr &#xfffd;")) << misfit("5:42", "US-ASCII");
    QTest::newRow("the sign for a lost character may stand in UTF-8")
        << anEvent({}, "\xEF\xBF\xBD") << QString();
}

void CtlCatalogueTest::encodings()
{
    checkFindings();
}

void CtlCatalogueTest::rareLanguage()
{
    QByteArray events;
    for (int i = 1; i <= 11; ++i) {
        events += "<event name=\"e" + QByteArray::number(i) + "\" loglevel=\"info\" id=\""
            + QByteArray::number(i) + R"("><description lang="en">a</description>)"
            + (i == 4 ? R"(<description lang="ed">a</description>)" : "") + "</event>\n";
    }
    const QString file = put(framed(events));
    const CtlRun run = runCtl({"catalogue"_s, "check"_s, file});
    QCOMPARE(QString::fromUtf8(run.out),
             file + R"(:8:79: warning: only 1 of 11 events have a text in "ed")"_s + "\n"_s + file
                 + ": 11 events, no errors, 1 warning\n"_s);
}

void CtlCatalogueTest::examplePasses_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("the demo's catalogue") << fileContent(demoCatalogue());
    QTest::newRow("the documented example") << documentedCatalogue();
}

void CtlCatalogueTest::examplePasses()
{
    QFETCH(QByteArray, content);
    const QString file = put(content);
    const CtlRun run = runCtl({"catalogue"_s, "check"_s, "--werror"_s, file});
    QCOMPARE(run.status, 0);
    QVERIFY2(run.out.endsWith(" events, no errors, no warnings\n"), run.out.constData());
    QCOMPARE(run.out.count('\n'), QByteArray::size_type(1));
    QCOMPARE(runCtl({"catalogue"_s, "check"_s, "-q"_s, file}).out, QByteArray());
}

void CtlCatalogueTest::exitStatus_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");

    put(framed(anEvent({}, "text")), "good.xml"_s);
    put(framed(anEvent({}, "two\nlines")), "warning.xml"_s);
    put(framed(anEvent({}, "%1")), "error.xml"_s);
    QTest::newRow("no findings are 0") << QStringList{"good.xml"_s} << 0;
    QTest::newRow("warnings are 0") << QStringList{"warning.xml"_s} << 0;
    QTest::newRow("warnings are 1 with --werror")
        << QStringList{"--werror"_s, "warning.xml"_s} << 1;
    QTest::newRow("errors are 1") << QStringList{"error.xml"_s} << 1;
    QTest::newRow("an error in one of several files is 1")
        << QStringList{"error.xml"_s, "good.xml"_s} << 1;
    QTest::newRow("-C names the file, too") << QStringList{"-C"_s, "error.xml"_s} << 1;
    QTest::newRow("both ways at once are wrong usage")
        << QStringList{"-C"_s, "good.xml"_s, "good.xml"_s} << 2;
    QTest::newRow("a format for tables is wrong usage")
        << QStringList{"-o"_s, "csv"_s, "good.xml"_s} << 2;
    QTest::newRow("a file that is not there is 4") << QStringList{"no.xml"_s} << 4;
    QTest::newRow("a folder is 4") << QStringList{"."_s} << 4;
    QTest::newRow("a file that cannot be read outweighs errors")
        << QStringList{"no.xml"_s, "error.xml"_s} << 4;
    QTest::newRow("what never ends is 4") << QStringList{"/dev/zero"_s} << 4;
}

void CtlCatalogueTest::exitStatus()
{
    QFETCH(QStringList, arguments);
    for (QString &argument : arguments) {
        if (argument.endsWith(".xml"_s) || argument == "."_s) {
            argument = folder.filePath(argument);
        }
    }
    const CtlRun run = runCtl(QStringList{"catalogue"_s, "check"_s} + arguments);
    QTEST(run.status, "status");
    QCOMPARE(run.errors.isEmpty(), run.status < 2);
}

void CtlCatalogueTest::severalFiles()
{
    const QString good = put(framed(anEvent({}, "text")), "good.xml"_s);
    const QString bad = put(framed(anEvent({}, "%1")), "bad.xml"_s);
    const CtlRun run = runCtl({"catalogue"_s, "check"_s, good, folder.filePath("no.xml"_s), bad});
    QCOMPARE(run.status, 4);
    QCOMPARE(
        QString::fromUtf8(run.out),
        good + ": 1 event, no errors, no warnings\n"_s + bad
            + ":5:42: error: \"%1\" in \"en\" has no argument and stays as it is; event 1 has none\n"_s
            + bad + ": 1 event, 1 error, no warnings\n"_s);
    QCOMPARE(run.errors,
             "systemeventctl: " + folder.filePath("no.xml"_s).toUtf8()
                 + ": the catalogue cannot be read: No such file or directory\n");
}

void CtlCatalogueTest::checkAsJson()
{
    const QString file = put(framed(anEvent({}, "%1\n")));
    const CtlRun run = runCtl({"catalogue"_s, "check"_s, "-o"_s, "json"_s, file});
    QCOMPARE(run.status, 1);
    const QByteArray name = "{\"file\":\"" + file.toUtf8() + "\",";
    QCOMPARE(
        run.out,
        name
            + R"("line":5,"column":42,"severity":"error","rule":"placeholder","message":"\"%1\" in \"en\" has no argument and stays as it is; event 1 has none"})"
            + "\n" + name
            + R"("line":5,"column":42,"severity":"warning","rule":"line-break","message":"the text in \"en\" holds a line break, which is shown; keep it and its tags on one line"})"
            + "\n" + R"({"summary":{"events":1,"errors":1,"warnings":1,"files":[)" + name
            + R"("events":1,"errors":1,"warnings":1,"whole":true}]}})" + "\n");
}

void CtlCatalogueTest::names()
{
    // Neither a file nor what stands in it moves the cursor, or fills the screen.
    const QByteArray name = QByteArray("\xC2\x9B") + "2J" + QByteArray(100000, 'n');
    const QString file = put(framed(anEvent(argument(name, "int"), "%1")), "a\x1B[2J.xml"_s);
    const CtlRun run = runCtl({"catalogue"_s, "check"_s, file});
    QCOMPARE(run.status, 1);
    QVERIFY(!run.out.contains('\x1B'));
    QVERIFY(!run.out.contains("\xC2\x9B"));
    QVERIFY(run.out.contains("a\\x1b[2J.xml:5:42: error: type \"int\" of argument \"\\x9b2Jnnn"));
    QVERIFY(run.out.size() < 2000);
}

void CtlCatalogueTest::manyFindings()
{
    const QString file = put(framed(QByteArray("<event/>\n").repeated(5000)));
    const CtlRun run = runCtl({"catalogue"_s, "check"_s, file});
    QCOMPARE(run.status, 1);
    // Of each its id, name, level and text, and that it is given again.
    QVERIFY2(run.out.endsWith(
                 ": 1 event, 19999 errors, 5000 warnings; only the first 1000 of each are shown\n"),
             run.out.right(200).constData());
    QCOMPARE(run.out.count('\n'), QByteArray::size_type(2001));
    QVERIFY(run.out.contains(":255:1: error: "));
    QVERIFY(!run.out.contains(":256:1: error: "));
    QVERIFY(run.out.contains(":1004:1: warning: "));
    QVERIFY(!run.out.contains(":1005:1: warning: "));

    // What nothing is read behind is always among them.
    put(framed(QByteArray("<event/>\n").repeated(5000) + "& "));
    QVERIFY(
        runCtl({"catalogue"_s, "check"_s, file}).out.contains(":5005:2: error: \"&\" begins no"));
}

namespace
{

//! What a careless author, a bad cable or somebody with bad intentions makes of a catalogue.
class Breaker
{
public:
    explicit Breaker(quint32 seed)
        : random(seed)
    {
    }

    QByteArray broken(QByteArray document)
    {
        for (int i = below(4); i >= 0; --i) {
            breakOnce(document);
        }
        return document;
    }

private:
    int below(qint64 end) { return int(random.bounded(quint32(std::max<qint64>(end, 1)))); }

    QByteArray word()
    {
        static const char *const words[] = {"<event id=\"1001\" name=\"again\" loglevel=\"error\">",
                                            "</event>",
                                            "<event/>",
                                            "<event id=\" 12\"/>",
                                            "<event id=\"4294967297\"/>",
                                            "<event id=\"-5\"/>",
                                            "<event id=\"\u0663\" loglevel=\"info\"/>",
                                            "<item value=\" 7 \" name=\"info\"/>",

                                            "<description lang=\"en\">%1",
                                            "</description>",
                                            "<argument type=\"enum\" enum=\"E\"/>",
                                            "<enum name=\"LogLevel\">",
                                            "<enum name=\"E\">",
                                            "</enum>",
                                            "<enum/>",
                                            "<item value=\"6\" name=\"error\"/>",
                                            "<item value=\"-1\"/>",
                                            "<item name=\"info\"/>",
                                            "<service name=\"x\">",
                                            "<service/>",
                                            "</service>",
                                            "&amp;",
                                            "&",
                                            "<",
                                            ">",
                                            "\"",
                                            "&b;",
                                            "<!DOCTYPE a [<!ENTITY b \"<event id='7'/>\">]>",
                                            "<![CDATA[",
                                            "]]>",
                                            "<!--",
                                            "-->",
                                            "\xFF",
                                            "\xC3",
                                            "\xFF\xFE",
                                            "\xEF\xBB\xBF",
                                            "&#xD800;",
                                            "&#0;",
                                            "&#x1F50B;",
                                            "<?x?>",
                                            "id=\"٣\"",
                                            "xmlns=\"urn:x\"",
                                            "x:",
                                            "\r",
                                            "\t",
                                            "en",
                                            "1",
                                            "4294967297"};
        const QByteArray found = words[below(std::end(words) - std::begin(words))];
        return below(20) == 0 ? found + QByteArray(below(20000), ' ') : found;
    }

    void breakOnce(QByteArray &document)
    {
        const int at = below(document.size());
        const int length = below(std::min<qint64>(document.size() - at, 200));
        switch (below(6)) {
        case 0:
            document.truncate(at);
            break;
        case 1:
            document.remove(at, length);
            break;
        case 2:
            document.insert(at, document.mid(below(document.size()), length));
            break;
        case 3:
            document.replace(at, std::min(length, 1), QByteArray(1, char(below(256))));
            break;
        default:
            document.insert(at, word());
        }
    }

    QRandomGenerator random;
};

int numberOf(const char *variable, int otherwise)
{
    bool isNumber = false;
    const int number = qEnvironmentVariableIntValue(variable, &isNumber);
    return isNumber ? number : otherwise;
}

void dropMessage(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                 const QString & /*message*/)
{
}

QByteArray asUtf16(const QByteArray &document)
{
    QByteArray bytes("\xFF\xFE");
    for (const QChar unit : QString::fromUtf8(document)) {
        bytes += char(unit.unicode() & 0xFF);
        bytes += char(unit.unicode() >> 8);
    }
    return bytes;
}

} // namespace

void CtlCatalogueTest::brokenCatalogues()
{
    const auto seed = quint32(numberOf("SEL_SEED", 1));
    Breaker breaker(seed);
    const QByteArray documents[]
        = {fileContent(demoCatalogue()), documentedCatalogue(),
           "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + documentedCatalogue().mid(39),
           asUtf16(documentedCatalogue().mid(39))};
    const int count = numberOf("SEL_BROKEN_CATALOGUES", 2000);
    int stopped = 0;
    for (int i = 0; i < count; ++i) {
        const QByteArray content = breaker.broken(documents[i % 4]);
        SystemeventCatalogue loaded;
        QVERIFY(loaded.load(put(content)));
        const CatalogueDocument document = CatalogueDocument::read(content);
        QVERIFY(!document.stop || document.stop->reason != CatalogueDocument::Stop::Reason::Limit);
        const QString difference = DocumentCompare::difference(document, loaded);
        QVERIFY2(difference.isEmpty(),
                 qPrintable("catalogue %1 of seed %2: "_s.arg(i).arg(seed) + difference));
        stopped += document.stop ? 1 : 0;
    }
    // Both kinds are met.
    QVERIFY(stopped > count / 4 && stopped < count);
}

//! What the command says that is loaded, for a few of them.
void CtlCatalogueTest::loadedIsCounted()
{
    Breaker breaker(2);
    for (int i = 0; i < 50; ++i) {
        const QString file = put(breaker.broken(fileContent(demoCatalogue())));
        SystemeventCatalogue loaded;
        QVERIFY(loaded.load(file));
        const CtlRun run = runCtl({"catalogue"_s, "check"_s, "-o"_s, "json"_s, file});
        const QJsonObject summary = run.objects().last().value("summary"_s).toObject();
        QCOMPARE(summary.value("events"_s).toInt(), int(loaded.events.size()));
        QCOMPARE(run.status, summary.value("errors"_s).toInt() > 0 ? 1 : 0);
        QCOMPARE(run.errors, QByteArray());
    }
}

//! What is said of placeholders is what the daemon's own rendering does with them.
void CtlCatalogueTest::placeholdersAreFilledAsTold()
{
    QRandomGenerator random(quint32(numberOf("SEL_SEED", 1)));
    static const char *const words[]
        = {"%1", "%2", "%3", "%L1", "%4", "%12", "%0", "%", "%%", " ", "a", "L", "\u0663"};
    constexpr quint32 mostArguments = 4;
    for (int i = 0; i < 5000; ++i) {
        QString text;
        for (quint32 length = random.bounded(6U); length > 0; --length) {
            text += QString::fromUtf8(words[random.bounded(quint32(std::size(words)))]);
        }
        CatalogueDocument document;
        CatalogueDocument::Event event;
        event.texts.push_back({{}, "en"_s, text});
        ValueTexts values;
        const quint32 count = random.bounded(mostArguments);
        for (quint32 value = 0; value < count; ++value) {
            event.arguments.push_back({{}, {}, "string"_s, ArgumentType::String, {}});
            values.substitute("<value %1>"_s.arg(QChar('A' + int(value))));
        }
        document.events.push_back(event);
        std::string rendered;
        const QtMessageHandler usual = qInstallMessageHandler(dropMessage); // of values left over
        EventTemplate(text).render(values, rendered, 0, nullptr);
        qInstallMessageHandler(usual);
        const QString shown = QString::fromStdString(rendered);

        int unfilled = 0;
        int unshown = 0;
        for (const CatalogueFinding &each : checkCatalogue(document).first()) {
            unfilled += each.message.contains("has no argument"_s) ? 1 : 0;
            unshown += qstrcmp(each.rule, "argument-unshown") == 0 ? 1 : 0;
        }
        const QByteArray what = '"' + text.toUtf8() + "\" with " + QByteArray::number(count);
        QVERIFY2(unfilled == EventTemplate(shown).valueCount(), what.constData());
        const bool isAllShown = shown.count("<value "_s) >= int(count)
            && (count == 0 || shown.contains(QChar('A' + int(count) - 1)));
        QVERIFY2((unshown == 0) == isAllShown, what.constData());
    }
}

namespace
{

#ifdef __SANITIZE_ADDRESS__ // which takes terabytes of addresses
const QString memoryLimit;
#else
const QString memoryLimit = QStringLiteral("ulimit -v 250000 && "); // KiB
#endif

} // namespace

void CtlCatalogueTest::hostile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("finding");

    QByteArray laughs = "<!DOCTYPE x [<!ENTITY a0 'ha'>";
    for (int i = 1; i <= 30; ++i) {
        laughs += "<!ENTITY a" + QByteArray::number(i) + " '"
            + ("&a" + QByteArray::number(i - 1) + ';').repeated(10) + "'>";
    }
    const QByteArray text = R"(<x><event id="1"><description lang="en">)";
    QTest::newRow("entities of entities are not expanded")
        << laughs + "]>" + text + "&a30;" << QByteArray("Entity expands to more characters");
    QTest::newRow("an entity of itself is an error") << "<!DOCTYPE x [<!ENTITY a '&a;'>]>" + text
            + "&a;" << QByteArray("Self-referencing entity");
    QTest::newRow("very many entities are not expanded") << "<!DOCTYPE x [<!ENTITY a '"
            + QByteArray(4000, 'a') + "'>]>" + text
            + QByteArray("&a;").repeated(5000000) << QByteArray("makes much of little");
    QByteArray attributes;
    for (int i = 0; i < 500000; ++i) {
        attributes += " a" + QByteArray::number(i) + "=''";
    }
    QTest::newRow("a very large element is not read to its end") << "<x" + attributes
            + "/>" << QByteArray("1:1: error: an element, text or comment of more");
    QTest::newRow("very many attributes are not compared")
        << "<x>" + ("<y" + attributes.left(100000) + "/>").repeated(100)
        << QByteArray("an element with more than 100 attributes");
    QByteArray defaults = "<!DOCTYPE x [<!ATTLIST x";
    for (int i = 0; i < 10000; ++i) {
        defaults += " a" + QByteArray::number(i) + " CDATA 'a'";
    }
    QTest::newRow("very many default attributes are not added") << defaults + ">]><x>"
            + QByteArray("<x/>").repeated(2000000) << QByteArray("makes much of little");
    QTest::newRow("very deep elements are not followed")
        << QByteArray("<x>").repeated(5000000)
        << QByteArray("1:301: error: elements within more than 100");
    QTest::newRow("very many elements are not kept")
        << "<x>" + QByteArray("<event/>").repeated(2000000)
        << QByteArray("more than 250,000 elements");
    QTest::newRow("very many entities of other files are not kept") << "<!DOCTYPE x SYSTEM 'y'><x>"
            + QByteArray("&a;").repeated(5000000) << QByteArray("more than 1,000 entities");
    QTest::newRow("nor are they looked for one by one")
        << "<!DOCTYPE x [<!ENTITY a SYSTEM 'y'>]><x>" + QByteArray("&&a").repeated(5000000)
        << QByteArray("makes much of little");
    QTest::newRow("a very long text is not kept") << text
            + QByteArray(16000000, 'a') << QByteArray("1:18: error: an element, text or comment");
    QTest::newRow("a very long comment is not kept") << "<x><!--"
            + QByteArray(16000000, 'a') << QByteArray("an element, text or comment of more");
    QTest::newRow("very many placeholders are told once each")
        << text + QByteArray("%1%99").repeated(40000) + "</description></event></x>"
        << QByteArray("\"%99\" in \"en\" has no argument");
    QTest::newRow("a catalogue of zero bytes is none")
        << QByteArray(1000000, '\0') << QByteArray("1:1: error: ");
}

void CtlCatalogueTest::hostile()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, finding);
    const QString file = put(content);
    QElapsedTimer timer;
    timer.start();
    const CtlRun run = runShell(memoryLimit + "exec \"$CTL\" catalogue check "_s + file);
    QCOMPARE(run.status, 1);
    QVERIFY2(run.out.contains(finding), run.out.left(1000).constData());
    QVERIFY2(timer.elapsed() < 30000, qPrintable("%1 ms"_s.arg(timer.elapsed())));
}

void CtlCatalogueTest::usage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("complaint");

    QTest::newRow("what is to be done is wanted")
        << QStringList()
        << QByteArray("a command is missing; see \"systemeventctl catalogue --help\"");
    QTest::newRow("an unknown word is told") << QStringList{"mend"_s} << QByteArray("mend");
    QTest::newRow("a complaint names both words of a command")
        << QStringList{"list"_s, "-o"_s, "xml"_s}
        << QByteArray("see \"systemeventctl catalogue list --help\"");
    QTest::newRow("a check has no table")
        << QStringList{"check"_s, "-o"_s, "csv"_s} << QByteArray("text, json;");
    QTest::newRow("an event is wanted")
        << QStringList{"show"_s} << QByteArray("catalogue show takes EVENT;");
    QTest::newRow("one event at a time")
        << QStringList{"show"_s, "1"_s, "2"_s} << QByteArray("catalogue show takes EVENT;");
    QTest::newRow("list takes no event")
        << QStringList{"list"_s, "1"_s} << QByteArray("not expected: 1");
    QTest::newRow("there is no folder of log files")
        << QStringList{"check"_s, "-D"_s, "."_s} << QByteArray("-D");
}

void CtlCatalogueTest::usage()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, complaint);
    const CtlRun run = runCtl(QStringList{"catalogue"_s} + arguments);
    QCOMPARE(run.status, 2);
    QCOMPARE(run.out, QByteArray());
    QVERIFY2(run.errors.contains(complaint), run.errors.constData());
    QVERIFY(run.errors.endsWith("--help\"\n"));
    QCOMPARE(run.errors.count('\n'), QByteArray::size_type(1));
}

void CtlCatalogueTest::help_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("usage");

    QTest::newRow("the group names its commands")
        << QStringList() << QByteArray("catalogue COMMAND");
    QTest::newRow("check has its own")
        << QStringList{"check"_s} << QByteArray("catalogue check [FILE...] [OPTIONS]");
    QTest::newRow("list has its own")
        << QStringList{"list"_s} << QByteArray("catalogue list [OPTIONS]");
    QTest::newRow("show has its own, without an event, too")
        << QStringList{"show"_s} << QByteArray("catalogue show EVENT [OPTIONS]");
}

void CtlCatalogueTest::help()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, usage);
    const CtlRun run = runCtl(QStringList{"catalogue"_s} + arguments + QStringList{"--help"_s});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    const QList<QByteArray> lines = run.out.split('\n');
    QCOMPARE(lines.first(),
             arguments.isEmpty() ? "Usage: systemeventctl " + usage + " [OPTIONS]"
                                 : "Usage: systemeventctl " + usage);
    QVERIFY(lines.size() <= 60);
    for (const QByteArray &line : lines) {
        QVERIFY2(line.size() < 80 && !line.endsWith(' '), line.constData());
    }
}

void CtlCatalogueTest::list()
{
    const CtlRun run = runCtl({"catalogue"_s, "list"_s, "-C"_s, demoCatalogue()});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    const QList<QByteArray> lines = run.out.split('\n');
    QCOMPARE(lines.size(), 23);
    QCOMPARE(lines.first(),
             QByteArray("1001  notice   supplyChanged    Power comes from input %1 with %2 V"));
    QCOMPARE(lines.at(5),
             QByteArray("1006  debug    temperature      Temperature at %1 is %2 \xC2\xB0"
                        "C"));
    QCOMPARE(lines.at(22), QByteArray());

    const QString none = put("<x/>");
    QCOMPARE(runCtl({"catalogue"_s, "list"_s, "-C"_s, none}).status, 1);
    const CtlRun missing = runCtl({"catalogue"_s, "list"_s, "-C"_s, "/nowhere.xml"_s});
    QCOMPARE(missing.status, 4);
    QCOMPARE(missing.errors,
             QByteArray("systemeventctl: /nowhere.xml: the catalogue cannot be read; name another "
                        "one with -C\n"));
}

void CtlCatalogueTest::show_data()
{
    QTest::addColumn<QString>("wanted");
    QTest::addColumn<QByteArray>("events"); //!< their ids
    QTest::addColumn<int>("status");

    QTest::newRow("an event by its id") << "1001"_s << QByteArray("1001") << 0;
    QTest::newRow("an event by its name") << "one"_s << QByteArray("1") << 0;
    QTest::newRow("all events of a name") << "same"_s << QByteArray("5 1001") << 0;
    QTest::newRow("an id goes before a name") << "5"_s << QByteArray("5") << 0;
    QTest::newRow("a name may be a number") << "77"_s << QByteArray("6") << 0;
    QTest::newRow("an id as the bus has it, with a sign")
        << "-5"_s << QByteArray("4294967291") << 0;
    QTest::newRow("an id as the catalogue has it")
        << "4294967291"_s << QByteArray("4294967291") << 0;
    QTest::newRow("an id of another 32 bits is another") << "4294968297"_s << QByteArray() << 1;
    QTest::newRow("case counts") << "One"_s << QByteArray() << 1;
}

void CtlCatalogueTest::show()
{
    QFETCH(QString, wanted);
    QFETCH(QByteArray, events);
    const QString file = put(R"(<x><event id="1" name="one"/><event id="1001" name="same"/>
        <event id="5" name="same"/><event id="6" name="77"/><event id="4294967291" name="5"/></x>)");
    const CtlRun run
        = runCtl({"catalogue"_s, "show"_s, "-C"_s, file, "-o"_s, "json"_s, "--"_s, wanted});
    QTEST(run.status, "status");
    QByteArrayList found;
    const QList<QJsonObject> objects = run.objects();
    for (const QJsonObject &object : objects) {
        found.append(QByteArray::number(object.value("event"_s).toDouble(), 'f', 0));
    }
    QCOMPARE(found.join(' '), events);
    QCOMPARE(run.errors.isEmpty(), run.status == 0);
}

void CtlCatalogueTest::output_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("out");

    const QByteArray members
        = R"({"event":1,"name":"one","service":"a,b","level":"info","levelNumber":6,)";
    const QByteArray header = "event,name,service,level,levelNumber,arguments,language,text\r\n";
    const QByteArray row = "1,one,\"a,b\",info,6,\"enum Mode m (0 day, 2 night), double v\",";
    const QByteArray empty = "2,,\"a,b\",,7,,,\r\n";
    QTest::newRow("show as text") << QStringList{"show"_s, "1"_s} << QByteArray(R"(event     1
name      one
service   a,b
level     info (6)
arguments %1  m  enum Mode
              0  day
              2  night
          %2  v  double
texts     de  Bei "%1", %2 V
          en  At %1 with %2 V
)");
    QTest::newRow("show as JSON") << QStringList{"show"_s, "1"_s, "-o"_s, "json"_s}
                                  << members
            + R"("arguments":[{"name":"m","type":"enum","enum":"Mode","items":[{"value":0,"text":"day"},{"value":2,"text":"night"}]},{"name":"v","type":"double"}],"texts":{"de":"Bei \"%1\", %2 V","en":"At %1 with %2 V"}})"
              "\n";
    QTest::newRow("show as CSV, a line for each text")
        << QStringList{"show"_s, "1"_s, "-o"_s, "csv"_s}
        << header + row + "de,\"Bei \"\"%1\"\", %2 V\"\r\n" + row + "en,At %1 with %2 V\r\n";
    QTest::newRow("show an event without anything as JSON")
        << QStringList{"show"_s, "2"_s, "-o"_s, "json"_s}
        << QByteArray(
               R"({"event":2,"name":"","service":"a,b","level":"","levelNumber":7,"arguments":[],"texts":{}})"
               "\n");
    QTest::newRow("show it as CSV")
        << QStringList{"show"_s, "2"_s, "-o"_s, "csv"_s} << header + empty;
    QTest::newRow("show it as text")
        << QStringList{"show"_s, "2"_s}
        << QByteArray("event     2\nname      -\nservice   a,b\nlevel     - (7)\n");
    QTest::newRow("list as JSON") << QStringList{"list"_s, "-o"_s, "json"_s}
                                  << members + R"("language":"en","text":"At %1 with %2 V"})" + "\n"
            + R"({"event":2,"name":"","service":"a,b","level":"","levelNumber":7,"language":"","text":""})"
              "\n";
    QTest::newRow("list as CSV") << QStringList{"list"_s, "-o"_s, "csv"_s}
                                 << header + row + "en,At %1 with %2 V\r\n" + empty;
}

void CtlCatalogueTest::output()
{
    QFETCH(QStringList, arguments);
    const QString file = put(QByteArray("<x>") + levels + R"(<enum name="Mode">
        <item value="2" name="night"/><item value="0" name="day"/></enum>
        <service name="a,b"><event id="2"/><event id="1" name="one" loglevel="info">
        <argument type="enum" enum="Mode" name="m"/><argument type="double" name="v"/>
        <description lang="en">At %1 with %2 V</description>
        <description lang="de">Bei "%1", %2 V</description></event></service></x>)");
    const CtlRun run = runCtl(QStringList{"catalogue"_s} + arguments + QStringList{"-C"_s, file});
    QTEST(run.out, "out");
    QCOMPARE(run.status, 0);
}

void CtlCatalogueTest::rawOutput_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("out");

    const QByteArray head = "offset  bytes                    meaning (as it would be stored, "
                            "example: all values are "
                            "zero)\n"
                            "     0  00 00 00 00 00 00 00 00  log number 0\n"
                            "     8  00 00 00 00 00 00 00 00  seconds 0: 1970-01-01T00:00:00Z\n"
                            "    16  00 00 00 00              microseconds 0\n"
                            "    20  00 00 00 00              padding\n";
    const QByteArray path = "    28  01 00                    path, string: 1 bytes of UTF-8\n"
                            "    30  2f                       \"/\"\n";
    const QByteArray one = head + "    24  01 00 00 00              event id 1: one\n" + path
        + "    31  00                       m, enum Mode: 0, day\n"
          "    32  00 00 00 00 00 00 00 00  v, double: 0\n"
          "    40  0a                       end mark\n"
          "    41  29 00                    trailer: 41 bytes stand before it\n";
    QTest::newRow("show the bytes of a record of it")
        << QStringList{"show"_s, "1"_s, "-o"_s, "raw"_s} << one;
    QTest::newRow("list them of all, with an empty line in between")
        << QStringList{"list"_s, "-o"_s, "raw"_s}
        << one + "\n" + head + "    24  02 00 00 00              event id 2: \n" + path
            + "    31  0a                       end mark\n"
              "    32  20 00                    trailer: 32 bytes stand before it\n";
}

void CtlCatalogueTest::rawOutput()
{
    output();
}

void CtlCatalogueTest::language_data()
{
    QTest::addColumn<QString>("environment");
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("C is English") << "LC_ALL=C"_s << QString() << QByteArray("english");
    QTest::newRow("the locale's by LANG")
        << "LC_ALL= LC_MESSAGES= LANG=de_DE.UTF-8"_s << QString() << QByteArray("deutsch");
    QTest::newRow("LC_MESSAGES goes before LANG")
        << "LC_ALL= LC_MESSAGES=de_AT LANG=pt_BR"_s << QString() << QByteArray("deutsch");
    QTest::newRow("LC_ALL goes before both")
        << "LC_ALL=en_GB LC_MESSAGES=de_DE LANG=de_DE"_s << QString() << QByteArray("english");
    QTest::newRow("a country's own is preferred")
        << "LC_ALL=pt_BR.UTF-8@x"_s << QString() << QByteArray("brasil");
    QTest::newRow("English where the catalogue has no other")
        << "LC_ALL=fr_FR.UTF-8"_s << QString() << QByteArray("english");
    QTest::newRow("-l chooses") << "LC_ALL=pt_BR"_s
                                << "-l de"_s << QByteArray("deutsch");
    QTest::newRow("English where there is none of -l") << "LC_ALL=de_DE"_s
                                                       << "-l fr"_s << QByteArray("english");
}

void CtlCatalogueTest::language()
{
    QFETCH(QString, environment);
    QFETCH(QString, arguments);
    const QString file = put(R"(<x><event id="1"><description lang="en">english</description>
        <description lang="de">deutsch</description>
        <description lang="pt_BR">brasil</description></event></x>)");
    const CtlRun list = runShell(environment + " \"$CTL\" catalogue list -C "_s + file
                                 + QLatin1Char(' ') + arguments);
    QTEST(list.out.trimmed().split(' ').last(), "text");
    const CtlRun show = runShell(environment + " \"$CTL\" catalogue show 1 -C "_s + file
                                 + QLatin1Char(' ') + arguments);
    // All of them, unless one is named.
    QFETCH(QByteArray, text);
    QVERIFY(show.out.contains(text));
    QCOMPARE(show.out.contains("brasil") && show.out.contains("deutsch"), arguments.isEmpty());
}

void CtlCatalogueTest::exampleOfEachType()
{
    const QString file = put(R"(<x><event id="1" name="a">
        <argument type="byte" name="a"/><argument type="bool" name="b"/>
        <argument type="int16" name="c"/><argument type="int32" name="d"/>
        <argument type="int64" name="e"/><argument type="uint64" name="f"/>
        <argument type="float" name="g"/><argument type="double" name="h"/>
        <argument type="string" name="i"/><argument type="bytearray" name="j"/>
        <argument type="variant" name="k"/><argument type="none" name="l"/>
        <argument type="bool" name="m"/></event></x>)");
    const CtlRun run = runCtl({"catalogue"_s, "show"_s, "a"_s, "-o"_s, "raw"_s, "-C"_s, file});
    QCOMPARE(run.status, 0);
    const QByteArray values = run.out.mid(run.out.indexOf("    31  "));
    QCOMPARE(values, QByteArray(R"(    31  00                       a, byte: 0
    32  00                       b, bool: false
    33  00 00                    c, int16: 0
    35  00 00 00 00              d, int32: 0
    39  00 00 00 00 00 00 00 00  e, int64: 0
    47  00 00 00 00 00 00 00 00  f, uint64: 0
    55  00 00 00 00              g, float: 0
    59  00 00 00 00 00 00 00 00  h, double: 0
    67  00 00                    i, string: 0 bytes of UTF-8
    69  00 00                    j, bytearray: 0 bytes of UTF-8
    71  00 00                    k, variant: type code 0, byte
    73  00                       k, byte: 0
    74  00                       m, bool: false
    75  0a                       end mark
    76  4c 00                    trailer: 76 bytes stand before it
)"));
}

void CtlCatalogueTest::unknownLanguage()
{
    const QStringList list{"catalogue"_s, "list"_s, "-C"_s, demoCatalogue(), "-l"_s, "fr"_s};
    QCOMPARE(runCtl(list).errors,
             QByteArray("systemeventctl: the catalogue has no texts in \"fr\", so they are in "
                        "English; it has: de, en\n"));
    QCOMPARE(runCtl(list + QStringList{"-q"_s}).errors, QByteArray());
}

void CtlCatalogueTest::controlCharacters()
{
    const QString file = put(
        R"(<x><event id="1" name="a&#x9B;b" loglevel="l&#x202E;"><argument name="&#10;" type="bool"/>
           <description lang="&#9;">a&#x9B;2J&#13;</description></event></x>)");
    for (const char *const command : {"list", "show 1"}) {
        const CtlRun run
            = runShell("\"$CTL\" catalogue "_s + QLatin1String(command) + " -C "_s + file);
        QVERIFY(!run.out.contains("\xC2\x9B"));
        QVERIFY(!run.out.contains('\r'));
        QVERIFY(!run.out.contains('\t'));
        QVERIFY(!run.out.contains("\xE2\x80\xAE"));
        QVERIFY(run.out.contains("a\\x9bb"));
    }
}

void CtlCatalogueTest::tablesMoveNoCursor()
{
    const QString file = put(R"(<x><event id="1" name="a&#x9B;2J&#10;b"/></x>)");
    for (const auto &command : {"list"_s, "show 1"_s}) {
        Terminal terminal("\"$CTL\" catalogue "_s + command + " -o csv -C "_s + file, 80);
        const QByteArray out = terminal.finish();
        QVERIFY2(out.contains("\n1,a\\x9b2J\\x0ab,,,7,,,"), out.constData());
    }
}

QTEST_GUILESS_MAIN(CtlCatalogueTest)
#include "tst_ctlcatalogue.moc"

// SPDX-License-Identifier: Apache-2.0
#include "catalog/systemeventcatalogue.h"
#include "support/literals.h"

#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QtTest>

#include <limits>

class SystemeventCatalogueTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void emptyAfterConstruction();
    void wholeDocument();
    void eventsBeforeLevels();

    void fileThatCannotBeOpened_data();
    void fileThatCannotBeOpened();
    void emptyFile();

    void eventId_data();
    void eventId();
    void repeatedEventReplacesTheEarlierOne();
    void missingAttributesAreEmpty();

    void itemValue_data();
    void itemValue();
    void repeatedItemReplacesTheEarlierOne();
    void repeatedEnumReplacesTheEarlierOne();
    void enumTextOfWhatIsMissingIsNull();

    void argument_data();
    void argument();
    void argumentsKeepTheirOrder();

    void eventLevel_data();
    void eventLevel();
    void levelOfUnknownName();
    void repeatedLevelNameTakesTheLastNumber();
    void levelNames_data();
    void levelNames();
    void withoutLevelsEveryEventHasTheLevelOfAnUnknownName();

    void service_data();
    void service();

    void text_data();
    void text();
    void languagesAreExact();

    void toleratedDocument_data();
    void toleratedDocument();
    void declaredEncoding_data();
    void declaredEncoding();
    void unknownEncodingLoadsNothing();
    void explodingEntityIsNotExpanded();

    void elementWithoutRecordIsIgnored_data();
    void elementWithoutRecordIsIgnored();

    void errorAfterTheThirdEvent();
    void levelsAreResolvedAfterAnError();
    void partialTextIsKept_data();
    void partialTextIsKept();
    void everyLength();
    void everyByteDamaged_data();
    void everyByteDamaged();

    void secondLoadMerges();
};

namespace
{

const char document[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<systemevents>
  <enum name="LogLevel">
    <item value="3" name="error"/>
    <item value="4" name="warning"/>
    <item value="6" name="info"/>
  </enum>
  <enum name="PowerSource">
    <item value="0" name="mains"/>
    <item value="1" name="battery"/>
  </enum>
  <service name="power">
    <event id="1001" name="supplyChanged" loglevel="warning">
      <argument type="enum" name="source" enum="PowerSource"/>
      <argument type="double" name="voltage"/>
      <description lang="en">Power supply changed to %1 at %2 V</description>
      <description lang="de">Stromversorgung gewechselt auf %1 bei %2 V</description>
    </event>
    <event id="1002" name="fuse" loglevel="error">
      <argument type="int32" name="number"/>
      <description lang="en">Fuse &lt;%1&gt; blown</description>
    </event>
  </service>
  <service name="doors">
    <event id="2001" name="opened" loglevel="info">
      <description lang="de">Tür auf</description>
    </event>
  </service>
</systemevents>
)";

[[nodiscard]] bool loadInto(SystemeventCatalogue &catalogue, const QByteArray &xml)
{
    QTemporaryFile file;
    if (!file.open() || file.write(xml) != xml.size() || !file.flush()) {
        qFatal("cannot write a catalogue");
    }
    return catalogue.load(file.fileName());
}

SystemeventCatalogue loaded(const QByteArray &xml)
{
    SystemeventCatalogue catalogue;
    if (!loadInto(catalogue, xml)) {
        qFatal("cannot read a catalogue");
    }
    return catalogue;
}

//! A catalogue made of elements inside a root.
SystemeventCatalogue loadedElements(const QString &elements)
{
    return loaded("<events>" + elements.toUtf8() + "</events>");
}

} // namespace

void SystemeventCatalogueTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
}

void SystemeventCatalogueTest::emptyAfterConstruction()
{
    const SystemeventCatalogue catalogue;

    QVERIFY(catalogue.events.isEmpty());
    QVERIFY(catalogue.enums.isEmpty());
    QVERIFY(catalogue.logLevels.isEmpty());
}

void SystemeventCatalogueTest::wholeDocument()
{
    const SystemeventCatalogue catalogue = loaded(document);

    QCOMPARE(catalogue.events.size(), 3);
    const SystemeventDescription event = catalogue.events.value(1001);
    QCOMPARE(event.id, 1001U);
    QCOMPARE(event.name, "supplyChanged"_s);
    QCOMPARE(event.service, "power"_s);
    QCOMPARE(event.logLevelName, "warning"_s);
    QCOMPARE(event.logLevel, 4);
    QCOMPARE(event.arguments.size(), 2);
    QCOMPARE(event.arguments.at(0).name, "source"_s);
    QCOMPARE(event.arguments.at(0).type, 11);
    QCOMPARE(event.arguments.at(0).enumName, "PowerSource"_s);
    QCOMPARE(event.arguments.at(1).name, "voltage"_s);
    QCOMPARE(event.arguments.at(1).type, 7);
    QCOMPARE(event.descriptions.size(), 2);
    QCOMPARE(event.description("de"_s), "Stromversorgung gewechselt auf %1 bei %2 V"_s);

    QCOMPARE(catalogue.enums.size(), 2);
    QCOMPARE(catalogue.enumText("PowerSource"_s, 1), "battery"_s);
    const QHash<QString, int> levels{{"error"_s, 3}, {"warning"_s, 4}, {"info"_s, 6}};
    QCOMPARE(catalogue.logLevels, levels);
}

void SystemeventCatalogueTest::eventsBeforeLevels()
{
    const SystemeventCatalogue catalogue = loadedElements(R"(<event id="1" loglevel="info"/>
                            <enum name="LogLevel"><item value="6" name="info"/></enum>)"_s);

    QCOMPARE(catalogue.events.value(1).logLevel, 6);
}

void SystemeventCatalogueTest::fileThatCannotBeOpened_data()
{
    QTest::addColumn<QString>("relativePath");

    QTest::newRow("missing file") << "/missing.xml"_s;
    QTest::newRow("directory") << ""_s;
    QTest::newRow("file in a missing directory") << "/missing/systemevent.xml"_s;
}

void SystemeventCatalogueTest::fileThatCannotBeOpened()
{
    QFETCH(QString, relativePath);
    const QTemporaryDir folder;
    SystemeventCatalogue catalogue = loaded(document);

    QVERIFY(!catalogue.load(folder.path() + relativePath));
    QCOMPARE(catalogue.events.size(), 3); // what an earlier load stored
    QCOMPARE(catalogue.logLevels.size(), 3);
}

void SystemeventCatalogueTest::emptyFile()
{
    SystemeventCatalogue catalogue;

    QVERIFY(loadInto(catalogue, QByteArray()));
    QVERIFY(catalogue.events.isEmpty());
}

void SystemeventCatalogueTest::eventId_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<uint>("id");

    QTest::newRow("decimal number") << "1001"_s << 1001U;
    QTest::newRow("leading zeros are decimal") << "0012"_s << 12U;
    QTest::newRow("empty id is zero") << ""_s << 0U;
    QTest::newRow("minus makes the whole id zero") << "-5"_s << 0U;
    QTest::newRow("plus makes the whole id zero") << "+12"_s << 0U;
    QTest::newRow("blank in front makes the whole id zero") << " 12"_s << 0U;
    QTest::newRow("blank behind makes the whole id zero") << "12 "_s << 0U;
    QTest::newRow("letter behind makes the whole id zero") << "12a"_s << 0U;
    QTest::newRow("hexadecimal number is zero") << "0x12"_s << 0U;
    QTest::newRow("fraction is zero") << "1.5"_s << 0U;
    QTest::newRow("largest id") << "4294967295"_s << 4294967295U;
    QTest::newRow("wraps to zero after 32 bits") << "4294967296"_s << 0U;
    QTest::newRow("wraps after 32 bits") << "4294967297"_s << 1U;
    QTest::newRow("wraps after 64 bits too") << "99999999999999999999"_s << 1661992959U;
    QTest::newRow("digits of any script count") << "\u0661\u0662"_s << 12U;
    QTest::newRow("scripts may mix") << "1\u0968"_s << 12U;
}

void SystemeventCatalogueTest::eventId()
{
    QFETCH(QString, text);
    QFETCH(uint, id);

    const SystemeventCatalogue catalogue
        = loadedElements(R"(<event name="one" id=")"_s + text + R"("/>)"_s);

    QCOMPARE(catalogue.events.size(), 1);
    QVERIFY(catalogue.events.contains(id));
    QCOMPARE(catalogue.events.value(id).id, id);
    QCOMPARE(catalogue.events.value(id).name, "one"_s);
}

void SystemeventCatalogueTest::repeatedEventReplacesTheEarlierOne()
{
    const SystemeventCatalogue catalogue = loadedElements(R"(<event id="7" name="first">
                              <argument type="bool" name="a"/><argument type="bool" name="b"/>
                              <description lang="en">First</description>
                              <description lang="de">Erstes</description>
                            </event>
                            <event id="7" name="second">
                              <argument type="string" name="c"/>
                              <description lang="en">Second</description>
                            </event>)"_s);

    QCOMPARE(catalogue.events.size(), 1);
    const SystemeventDescription event = catalogue.events.value(7);
    QCOMPARE(event.name, "second"_s);
    QCOMPARE(event.arguments.size(), 1);
    QCOMPARE(event.arguments.at(0).name, "c"_s);
    const QHash<QString, QString> texts{{"en"_s, "Second"_s}};
    QCOMPARE(event.descriptions, texts);
}

void SystemeventCatalogueTest::missingAttributesAreEmpty()
{
    const SystemeventCatalogue catalogue
        = loadedElements("<event><argument/><description>Bare</description></event>"
                         "<enum><item/></enum>"_s);

    const SystemeventDescription event = catalogue.events.value(0);
    QCOMPARE(catalogue.events.size(), 1);
    QVERIFY(event.name.isEmpty());
    QVERIFY(event.logLevelName.isEmpty());
    QVERIFY(event.service.isNull());
    QCOMPARE(event.arguments.size(), 1);
    QCOMPARE(event.arguments.at(0).type, -1);
    QVERIFY(event.arguments.at(0).name.isEmpty());
    QCOMPARE(event.descriptions.value(""_s), "Bare"_s);
    QVERIFY(catalogue.enums.value(""_s).contains(0));
}

void SystemeventCatalogueTest::itemValue_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("value");

    QTest::newRow("decimal number") << "12"_s << 12;
    QTest::newRow("minus is a sign") << "-1"_s << -1;
    QTest::newRow("plus is a sign") << "+3"_s << 3;
    QTest::newRow("word is zero") << "abc"_s << 0;
    QTest::newRow("empty value is zero") << ""_s << 0;
    QTest::newRow("letter behind makes the value zero") << "12a"_s << 0;
    QTest::newRow("hexadecimal number is zero") << "0x10"_s << 0;
    QTest::newRow("smallest value") << "-2147483648"_s << std::numeric_limits<int>::min();
    QTest::newRow("number beyond 32 bits is zero") << "2147483648"_s << 0;
}

void SystemeventCatalogueTest::itemValue()
{
    QFETCH(QString, text);
    QFETCH(int, value);

    const SystemeventCatalogue catalogue
        = loadedElements(R"(<enum name="E"><item name="one" value=")"_s + text + R"("/></enum>)"_s);

    QCOMPARE(catalogue.enums.value("E"_s).size(), 1);
    QCOMPARE(catalogue.enumText("E"_s, value), "one"_s);
}

void SystemeventCatalogueTest::repeatedItemReplacesTheEarlierOne()
{
    const SystemeventCatalogue catalogue = loadedElements(R"(<enum name="E">
                              <item value="1" name="old"/><item value="1" name="new"/>
                            </enum>)"_s);

    QCOMPARE(catalogue.enums.value("E"_s).size(), 1);
    QCOMPARE(catalogue.enumText("E"_s, 1), "new"_s);
}

void SystemeventCatalogueTest::repeatedEnumReplacesTheEarlierOne()
{
    const SystemeventCatalogue catalogue
        = loadedElements(R"(<enum name="E"><item value="1" name="old"/></enum>
                            <enum name="E"><item value="2" name="new"/></enum>)"_s);

    const QHash<int, QString> items{{2, "new"_s}};
    QCOMPARE(catalogue.enums.value("E"_s), items);
}

void SystemeventCatalogueTest::enumTextOfWhatIsMissingIsNull()
{
    const SystemeventCatalogue catalogue = loaded(document);

    QVERIFY(catalogue.enumText("PowerSource"_s, 2).isNull());
    QVERIFY(catalogue.enumText("Powersource"_s, 0).isNull());
    QVERIFY(catalogue.enumText(QString(), 0).isNull());
    QCOMPARE(catalogue.enums.size(), 2); // asking adds nothing
}

void SystemeventCatalogueTest::argument_data()
{
    QTest::addColumn<QString>("attributes");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("enumName"); // null: not set

    QTest::newRow("type name becomes a code") << R"(type="uint64")"_s << 5 << QString();
    QTest::newRow("enumeration is named") << R"(type="enum" enum="E")"_s << 11 << "E"_s;
    QTest::newRow("enumeration need not be there")
        << R"(type="enum" enum="Missing")"_s << 11 << "Missing"_s;
    QTest::newRow("enumeration of another type is not read")
        << R"(type="int32" enum="E")"_s << 3 << QString();
    QTest::newRow("wrong case is kept as unknown type") << R"(type="Int32")"_s << -1 << QString();
    QTest::newRow("unknown type names no enumeration")
        << R"(type="Enum" enum="E")"_s << -1 << QString();
    QTest::newRow("unknown name is kept as unknown type") << R"(type="text")"_s << -1 << QString();
    QTest::newRow("missing type is kept as unknown type") << ""_s << -1 << QString();
}

void SystemeventCatalogueTest::argument()
{
    QFETCH(QString, attributes);
    QFETCH(QString, enumName);

    const SystemeventCatalogue catalogue
        = loadedElements(R"(<event id="1"><argument name="a" )"_s + attributes + "/></event>"_s);

    const QList<SystemeventArgument> arguments = catalogue.events.value(1).arguments;
    QCOMPARE(arguments.size(), 1);
    QCOMPARE(arguments.at(0).name, "a"_s);
    QTEST(arguments.at(0).type, "type");
    QCOMPARE(arguments.at(0).enumName, enumName);
    QCOMPARE(arguments.at(0).enumName.isNull(), enumName.isNull());
}

void SystemeventCatalogueTest::argumentsKeepTheirOrder()
{
    const SystemeventCatalogue catalogue
        = loadedElements(R"(<event id="1"><argument type="bool" name="b"/></event>
                            <argument type="bool" name="a"/>
                            <argument type="bool" name="b"/>)"_s);

    QStringList names;
    for (const SystemeventArgument &each : catalogue.events.value(1).arguments) {
        names += each.name;
    }
    QCOMPARE(names, (QStringList{"b"_s, "a"_s, "b"_s}));
}

void SystemeventCatalogueTest::eventLevel_data()
{
    QTest::addColumn<QString>("attribute");
    QTest::addColumn<int>("level");

    QTest::newRow("level is looked up") << R"(loglevel="error")"_s << 3;
    QTest::newRow("level may be zero") << R"(loglevel="panic")"_s << 0;
    QTest::newRow("level may be negative") << R"(loglevel="worse")"_s << -2;
    QTest::newRow("level is not bounded") << R"(loglevel="noise")"_s << 100;
    QTest::newRow("unknown name is 7") << R"(loglevel="fatal")"_s << 7;
    QTest::newRow("another case is 7") << R"(loglevel="Error")"_s << 7;
    QTest::newRow("blank behind the name is 7") << R"(loglevel="error ")"_s << 7;
    QTest::newRow("number instead of a name is 7") << R"(loglevel="3")"_s << 7;
    QTest::newRow("empty name is 7") << R"(loglevel="")"_s << 7;
    QTest::newRow("missing attribute is 7") << ""_s << 7;
}

void SystemeventCatalogueTest::eventLevel()
{
    QFETCH(QString, attribute);

    const SystemeventCatalogue catalogue = loadedElements(R"(<enum name="LogLevel">
                              <item value="-2" name="worse"/><item value="0" name="panic"/>
                              <item value="3" name="error"/><item value="100" name="noise"/>
                            </enum>
                            <event id="1" )"_s + attribute + "/>"_s);

    QTEST(catalogue.events.value(1).logLevel, "level");
}

//! Of many names: which of two items a table shows first is not the same at every start.
void SystemeventCatalogueTest::repeatedLevelNameTakesTheLastNumber()
{
    constexpr int names = 100;
    QString items;
    for (int value = 0; value < 3 * names; ++value) {
        items
            += R"(<item value="%1" name="level %2"/>)"_s.arg(3 * names - value).arg(value % names);
    }
    QString events;
    for (int name = 0; name < names; ++name) {
        events += R"(<event id="%1" loglevel="level %1"/>)"_s.arg(name);
    }

    const SystemeventCatalogue catalogue
        = loadedElements(events + R"(<enum name="LogLevel">)"_s + items + "</enum>"_s);

    QCOMPARE(catalogue.logLevels.size(), names);
    for (int name = 0; name < names; ++name) {
        QCOMPARE(catalogue.logLevelForName("level %1"_s.arg(name)), names - name);
        QCOMPARE(catalogue.events.value(uint(name)).logLevel, names - name);
    }
}

void SystemeventCatalogueTest::levelNames_data()
{
    QTest::addColumn<QString>("document");
    QTest::addColumn<QHash<QString, int>>("levels");
    using Levels = QHash<QString, int>;

    QTest::newRow("a value given again names its later text alone")
        << R"(<enum name="LogLevel"><item value="1" name="a"/><item value="1" name="b"/></enum>)"_s
        << Levels{{"b"_s, 1}};
    QTest::newRow("an item given again counts where it stands last")
        << R"(<enum name="LogLevel"><item value="1" name="a"/><item value="2" name="a"/>
              <item value="1" name="a"/></enum>)"_s
        << Levels{{"a"_s, 1}};
    QTest::newRow("a text that its value lost leaves the name to the other item")
        << R"(<enum name="LogLevel"><item value="2" name="a"/><item value="1" name="a"/>
              <item value="1" name="b"/></enum>)"_s
        << Levels{{"a"_s, 2}, {"b"_s, 1}};
    QTest::newRow("the enumeration given again begins anew")
        << R"(<enum name="LogLevel"><item value="1" name="a"/><item value="9" name="c"/></enum>
              <enum name="LogLevel"><item value="3" name="a"/><item value="2" name="a"/></enum>)"_s
        << Levels{{"a"_s, 2}};
    QTest::newRow("other enumerations do not count")
        << R"(<enum name="LogLevel"><item value="1" name="a"/></enum>
              <enum name="loglevel"><item value="2" name="a"/></enum>)"_s
        << Levels{{"a"_s, 1}};
}

void SystemeventCatalogueTest::levelNames()
{
    QFETCH(QString, document);

    QTEST(loadedElements(document).logLevels, "levels");
}

void SystemeventCatalogueTest::levelOfUnknownName()
{
    const SystemeventCatalogue catalogue = loaded(document);

    QCOMPARE(catalogue.logLevelForName("warning"_s), 4);
    QCOMPARE(catalogue.logLevelForName("Warning"_s), 7);
    QCOMPARE(catalogue.logLevelForName(QString()), 7);
    QCOMPARE(SystemeventCatalogue().logLevelForName("warning"_s), 7);
}

void SystemeventCatalogueTest::withoutLevelsEveryEventHasTheLevelOfAnUnknownName()
{
    const SystemeventCatalogue catalogue
        = loadedElements(R"(<enum name="loglevel"><item value="3" name="error"/></enum>
                            <event id="1" loglevel="error"/>)"_s);

    QVERIFY(catalogue.logLevels.isEmpty());
    QCOMPARE(catalogue.events.value(1).logLevelName, "error"_s);
    QCOMPARE(catalogue.events.value(1).logLevel, 7);
}

void SystemeventCatalogueTest::service_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("service");

    QTest::newRow("the service around the event") << R"(<service name="a">)"_s
                                                  << "a"_s;
    QTest::newRow("a service that has ended still counts") << R"(<service name="a"/><service>)"_s
                                                           << "a"_s;
    QTest::newRow("the last of several services") << R"(<service name="a"/><service name="b">)"_s
                                                  << "b"_s;
    QTest::newRow("a service without a name changes nothing")
        << R"(<service name="a"/><service><event id="2"/></service><service>)"_s
        << "a"_s;
    QTest::newRow("an empty name is a name") << R"(<service name="a"/><service name="">)"_s
                                             << ""_s;
    QTest::newRow("no service at all") << "<service>"_s << QString();
}

void SystemeventCatalogueTest::service()
{
    QFETCH(QString, before);
    QFETCH(QString, service);

    const SystemeventCatalogue catalogue
        = loadedElements(before + R"(<event id="1"/></service>)"_s);

    QVERIFY(catalogue.events.contains(1));
    QCOMPARE(catalogue.events.value(1).service, service);
}

void SystemeventCatalogueTest::text_data()
{
    QTest::addColumn<QString>("element");
    QTest::addColumn<QString>("text");

    QTest::newRow("plain text") << "Value %1"_s
                                << "Value %1"_s;
    QTest::newRow("blanks at the ends stay") << "  Value "_s
                                             << "  Value "_s;
    QTest::newRow("line breaks and indentation stay") << "\n      Value %1\n\trejected\n    "_s
                                                      << "\n      Value %1\n\trejected\n    "_s;
    QTest::newRow("escapes are resolved") << "&lt;%1&gt; &amp; &#65;"_s
                                          << "<%1> & A"_s;
    QTest::newRow("section of raw text") << "a <![CDATA[<b>%1</b>]]>"_s
                                         << "a <b>%1</b>"_s;
    QTest::newRow("comment leaves no trace") << "a<!-- hidden -->b"_s
                                             << "ab"_s;
    QTest::newRow("characters beyond 16 bits") << "Türe \u20AC \U0001F50B"_s
                                               << "Türe \u20AC \U0001F50B"_s;
    QTest::newRow("empty text") << ""_s
                                << ""_s;
    QTest::newRow("second text of a language replaces the first")
        << R"(a</description><description lang="en">b)"_s
        << "b"_s;
}

void SystemeventCatalogueTest::text()
{
    QFETCH(QString, element);

    const SystemeventCatalogue catalogue = loadedElements(
        R"(<event id="1"><description lang="en">)"_s + element + "</description></event>"_s);

    QCOMPARE(catalogue.events.value(1).descriptions.size(), 1);
    QTEST(catalogue.events.value(1).descriptions.value("en"_s), "text");
}

void SystemeventCatalogueTest::languagesAreExact()
{
    const SystemeventCatalogue catalogue
        = loadedElements(R"(<event id="1"><description lang="EN">Mains</description></event>)"_s);

    QVERIFY(catalogue.events.value(1).descriptions.contains("EN"_s));
    QVERIFY(!catalogue.events.value(1).descriptions.contains("en"_s));
    QVERIFY(catalogue.events.value(1).description("en"_s).startsWith("Meta-Error"_s));
}

void SystemeventCatalogueTest::toleratedDocument_data()
{
    QTest::addColumn<QString>("xml");

    QTest::newRow("the root has any name") << R"(<x><event id="1" name="one"/></x>)"_s;
    QTest::newRow("the root itself may be an event") << R"(<event id="1" name="one"/>)"_s;
    QTest::newRow("events lie at any depth")
        << R"(<x><y><z><event id="1" name="one"/></z></y></x>)"_s;
    QTest::newRow("an event may lie in an enumeration")
        << R"(<x><enum name="E"><event id="1" name="one"/></enum></x>)"_s;
    QTest::newRow("an event may lie in an argument")
        << R"(<x><event id="2"><argument><event id="1" name="one"/></argument></event></x>)"_s;
    QTest::newRow("unknown elements are passed over")
        << R"(<x><Event id="1" name="no"/><events id="1"/><event id="1" name="one"/></x>)"_s;
    QTest::newRow("unknown attributes are passed over")
        << R"(<x><event colour="red" id="1" Name="no" name="one"/></x>)"_s;
    QTest::newRow("text between elements is passed over")
        << R"(<x>words <event id="1" name="one">more words</event></x>)"_s;
    QTest::newRow("a prefix is passed over")
        << R"(<e:x xmlns:e="urn:e"><e:event id="1" name="one"/></e:x>)"_s;
    QTest::newRow("a namespace is passed over")
        << R"(<x xmlns="urn:e"><event id="1" name="one"/></x>)"_s;
    QTest::newRow("comments and instructions are passed over")
        << R"(<!-- a --><x><?b c?><event id="1" name="one"/></x><!-- d -->)"_s;
    QTest::newRow("a document type is passed over")
        << R"(<!DOCTYPE x><x><event id="1" name="one"/></x>)"_s;
    QTest::newRow("a byte-order mark is passed over")
        << "\uFEFF<x><event id=\"1\" name=\"one\"/></x>"_s;
    QTest::newRow("more after the root is an error after the event")
        << R"(<x><event id="1" name="one"/></x><x><event id="1" name="no"/></x>)"_s;
    QTest::newRow("an undeclared prefix is an error after the event")
        << R"(<x><event id="1" name="one"/><e:event id="1" name="no"/></x>)"_s;
    QTest::newRow("a repeated attribute is an error after the event")
        << R"(<x><event id="1" name="one"/><event id="1" name="no" name="no"/></x>)"_s;
}

void SystemeventCatalogueTest::toleratedDocument()
{
    QFETCH(QString, xml);

    SystemeventCatalogue catalogue;

    QVERIFY(loadInto(catalogue, xml.toUtf8()));
    QVERIFY(catalogue.events.contains(1));
    QCOMPARE(catalogue.events.value(1).name, "one"_s);
}

void SystemeventCatalogueTest::declaredEncoding_data()
{
    QTest::addColumn<QByteArray>("xml");

    const QByteArray latin1 = R"(<?xml version="1.0" encoding="ISO-8859-1"?>
        <x><event id="1"><description lang="de">T)"
                              "\xFC"
                              "r auf</description></event></x>";
    QTest::newRow("Latin-1 is read as declared") << latin1;
    const QString utf16 = R"(<?xml version="1.0" encoding="UTF-16"?>
        <x><event id="1"><description lang="de">Tür auf</description></event></x>)"_s;
    QByteArray bytes("\xFF\xFE"); // little-endian
    for (const QChar unit : utf16) {
        bytes += char(unit.unicode() & 0xFF);
        bytes += char(unit.unicode() >> 8);
    }
    QTest::newRow("UTF-16 is read as declared") << bytes;
}

void SystemeventCatalogueTest::declaredEncoding()
{
    QFETCH(QByteArray, xml);

    QCOMPARE(loaded(xml).events.value(1).description("de"_s), "Tür auf"_s);
}

void SystemeventCatalogueTest::unknownEncodingLoadsNothing()
{
    SystemeventCatalogue catalogue;
    QVERIFY(loadInto(catalogue, R"(<?xml version="1.0" encoding="unknown-1"?>
        <x><event id="1" name="one"/></x>)"));
    QVERIFY(catalogue.events.isEmpty());
}

void SystemeventCatalogueTest::explodingEntityIsNotExpanded()
{
    QByteArray xml = "<!DOCTYPE x [<!ENTITY a0 'boom boom boom boom boom boom'>";
    for (int i = 1; i <= 9; ++i) {
        const QByteArray previous = "&a" + QByteArray::number(i - 1) + ';';
        xml += "<!ENTITY a" + QByteArray::number(i) + " '" + previous.repeated(10) + "'>";
    }
    xml += R"(]><x><event id="1"><description lang="en">&a9;</description></event></x>)";
    SystemeventCatalogue catalogue;

    QVERIFY(loadInto(catalogue, xml));
    QVERIFY(catalogue.events.contains(1));
    QVERIFY(catalogue.events.value(1).descriptions.value("en"_s).size() <= 4096);
}

void SystemeventCatalogueTest::elementWithoutRecordIsIgnored_data()
{
    QTest::addColumn<QString>("element");

    QTest::newRow("description before any event")
        << R"(<description lang="en">lost</description>)"_s;
    QTest::newRow("argument before any event")
        << R"(<argument type="enum" name="lost" enum="E"/>)"_s;
    QTest::newRow("item before any enumeration") << R"(<item value="1" name="lost"/>)"_s;
}

void SystemeventCatalogueTest::elementWithoutRecordIsIgnored()
{
    QFETCH(QString, element);

    const SystemeventCatalogue catalogue
        = loadedElements(element + R"(<event id="1"/><enum name="E"/>)"_s);

    QCOMPARE(catalogue.events.size(), 1);
    QVERIFY(catalogue.events.value(1).arguments.isEmpty());
    QVERIFY(catalogue.events.value(1).descriptions.isEmpty());
    QCOMPARE(catalogue.enums.size(), 1);
    QVERIFY(catalogue.enums.value("E"_s).isEmpty());
}

void SystemeventCatalogueTest::errorAfterTheThirdEvent()
{
    const char xml[] = R"(<x><event id="1"/><event id="2"/><event id="3"/><event id="4)";
    SystemeventCatalogue catalogue;

    QVERIFY(loadInto(catalogue, xml));
    QCOMPARE(catalogue.events.size(), 3);
    QVERIFY(!catalogue.events.contains(4));
}

void SystemeventCatalogueTest::levelsAreResolvedAfterAnError()
{
    const SystemeventCatalogue catalogue = loaded(
        R"(<x><event id="1" loglevel="info"/>
           <enum name="LogLevel"><item value="6" name="info"/></enum></y>)");

    QCOMPARE(catalogue.events.value(1).logLevel, 6);
}

void SystemeventCatalogueTest::partialTextIsKept_data()
{
    QTest::addColumn<QString>("rest");
    QTest::addColumn<QString>("text");

    QTest::newRow("the piece that the end of the file cuts off is not read")
        << "Power <![CDATA[supply]]> chan"_s
        << "Power supply"_s;
    QTest::newRow("a text that the end of the file cuts off is empty") << "Power supp"_s
                                                                       << ""_s;
    QTest::newRow("an element in the text is an error")
        << "Power <b>supply</b> changed</description></event></x>"_s
        << "Power "_s;
    QTest::newRow("an unknown entity in the text is an error")
        << "Power &supply; changed</description></event></x>"_s
        << "Power "_s;
    QTest::newRow("a wrong end of the text is an error") << "Power</event></x>"_s
                                                         << "Power"_s;
}

void SystemeventCatalogueTest::partialTextIsKept()
{
    QFETCH(QString, rest);
    const QByteArray xml = R"(<x><event id="1"><description lang="de">Netz</description>
                              <description lang="en">)"
        + rest.toUtf8();
    SystemeventCatalogue catalogue;

    QVERIFY(loadInto(catalogue, xml));
    QTEST(catalogue.events.value(1).descriptions.value("en"_s), "text");
    QCOMPARE(catalogue.events.value(1).descriptions.value("de"_s), "Netz"_s);
}

void SystemeventCatalogueTest::everyLength()
{
    const SystemeventCatalogue whole = loaded(document);
    const QByteArray xml(document);
    auto before = decltype(whole.events.size())(0);
    for (int length = 0; length <= xml.size(); ++length) {
        SystemeventCatalogue part;
        QVERIFY2(loadInto(part, xml.left(length)), qPrintable(QString::number(length)));
        QVERIFY2(part.events.size() >= before, qPrintable(QString::number(length)));
        before = part.events.size();
        for (const SystemeventDescription &event : qAsConst(part.events)) {
            const SystemeventDescription expected = whole.events.value(event.id);
            QCOMPARE(event.name, expected.name);
            QCOMPARE(event.service, expected.service);
            QCOMPARE(event.logLevel, expected.logLevel);
            QVERIFY(event.arguments.size() <= expected.arguments.size());
            for (auto text = event.descriptions.cbegin(); text != event.descriptions.cend();
                 ++text) {
                QVERIFY(expected.descriptions.value(text.key()).startsWith(text.value()));
            }
        }
    }
    QCOMPARE(before, whole.events.size());
}

void SystemeventCatalogueTest::everyByteDamaged_data()
{
    QTest::addColumn<char>("damage");

    QTest::newRow("by a zero byte") << '\0';
    QTest::newRow("by a tag's beginning") << '<';
    QTest::newRow("by an ampersand") << '&';
    QTest::newRow("by a quote") << '"';
    QTest::newRow("by a byte that is no UTF-8") << '\xFF';
}

void SystemeventCatalogueTest::everyByteDamaged()
{
    QFETCH(char, damage);

    for (int at = 0; at < int(qstrlen(document)); ++at) {
        QByteArray xml(document);
        xml[at] = damage;
        SystemeventCatalogue catalogue;
        QVERIFY2(loadInto(catalogue, xml), qPrintable(QString::number(at)));
        QVERIFY2(catalogue.events.size() <= 3, qPrintable(QString::number(at)));
    }
}

void SystemeventCatalogueTest::secondLoadMerges()
{
    const char second[] = R"(<x>
        <enum name="PowerSource"><item value="2" name="solar"/></enum>
        <enum name="LogLevel"><item value="5" name="notice"/><item value="2" name="error"/></enum>
        <event id="1001" name="new" loglevel="notice"/><event id="3001" loglevel="info"/></x>)";
    SystemeventCatalogue catalogue = loaded(document);

    QVERIFY(loadInto(catalogue, second));

    QCOMPARE(catalogue.events.size(), 4);
    QCOMPARE(catalogue.events.value(1001).name, "new"_s);
    QVERIFY(catalogue.events.value(1001).service.isNull()); // starts anew with every file
    QVERIFY(catalogue.events.value(1001).arguments.isEmpty());
    QCOMPARE(catalogue.events.value(1001).logLevel, 5);
    QCOMPARE(catalogue.events.value(1002).logLevel, 2);
    QCOMPARE(catalogue.events.value(3001).logLevel, 6); // a level of the first file
    QVERIFY(catalogue.enumText("PowerSource"_s, 0).isNull());
    QCOMPARE(catalogue.enumText("PowerSource"_s, 2), "solar"_s);
}

QTEST_GUILESS_MAIN(SystemeventCatalogueTest)

#include "tst_systemeventcatalogue.moc"

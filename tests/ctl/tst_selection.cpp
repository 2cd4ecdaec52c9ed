// SPDX-License-Identifier: Apache-2.0

// Which records a selection takes, by each kind of condition and by several.

#include "ctl/ctlprocess.h"
#include "ctl/glob.h"
#include "ctl/optionvalues.h"
#include "ctl/selection.h"
#include "support/literals.h"

#include <QTest>

#include <limits>

namespace
{

constexpr quint64 highest = std::numeric_limits<quint64>::max();

Selection::Facts facts(quint64 number, qint32 eventId = 9, std::string_view path = "/power/supply")
{
    return {number, {1000, 500}, eventId, path};
}

std::string_view noText()
{
    return {};
}

} // namespace

class SelectionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void numbers_data();
    void numbers();
    void times_data();
    void times();
    void levels_data();
    void levels();
    void events_data();
    void events();
    void services();
    void paths();
    void texts();
    void textsAreMadeWhenNeeded();
    void conditionsAddUp();
    void unknownNames_data();
    void unknownNames();
    void withoutCatalogue();
    void globs_data();
    void globs();
    void globsAreQuick();
    void noGlobs();

private:
    SystemeventCatalogue catalogue;
};

void SelectionTest::initTestCase()
{
    QVERIFY(catalogue.load(testCatalogue()));
}

void SelectionTest::numbers_data()
{
    QTest::addColumn<QByteArray>("range");
    QTest::addColumn<QList<quint64>>("taken");
    QTest::addColumn<QList<quint64>>("left");

    using Numbers = QList<quint64>;
    QTest::newRow("both ends of A..B are taken")
        << QByteArray("3..5") << Numbers{3, 4, 5} << Numbers{2, 6, highest};
    QTest::newRow("A.. has no end") << QByteArray("3..") << Numbers{3, highest} << Numbers{2};
    QTest::newRow("..B has no beginning") << QByteArray("..3") << Numbers{1, 3} << Numbers{4};
    QTest::newRow("A is one number") << QByteArray("3") << Numbers{3} << Numbers{2, 4};
    QTest::newRow("A..A too") << QByteArray("3..3") << Numbers{3} << Numbers{2, 4};
    QTest::newRow("the highest number is one")
        << QByteArray("18446744073709551615") << Numbers{highest} << Numbers{highest - 1};
}

void SelectionTest::numbers()
{
    QFETCH(QByteArray, range);
    QFETCH(QList<quint64>, taken);
    QFETCH(QList<quint64>, left);
    SelectionChoice choice;
    choice.numbers.push_back(OptionValues::numberRange("--number", range.toStdString()));
    Selection selection(choice, &catalogue);
    for (const quint64 number : taken) {
        QVERIFY(selection.takes(facts(number), noText));
    }
    for (const quint64 number : left) {
        QVERIFY(!selection.takes(facts(number), noText));
    }
    choice.numbers.push_back({left.first(), left.first()}); // one of several is enough
    QVERIFY(Selection(choice, &catalogue).takes(facts(left.first()), noText));
    QVERIFY(Selection(choice, &catalogue).takes(facts(taken.first()), noText));
}

void SelectionTest::times_data()
{
    QTest::addColumn<bool>("isSince");
    QTest::addColumn<quint64>("seconds");
    QTest::addColumn<quint32>("microseconds");
    QTest::addColumn<bool>("isTaken");

    // Of a record made 500 microseconds after second 1000.
    const auto row
        = [](const char *name, bool isSince, quint64 seconds, quint32 microseconds, bool isTaken) {
              QTest::newRow(name) << isSince << seconds << microseconds << isTaken;
          };
    row("since includes its instant", true, 1000, 500, true);
    row("a microsecond later it does not", true, 1000, 501, false);
    row("since an earlier second", true, 999, 999999, true);
    row("until includes its instant", false, 1000, 500, true);
    row("a microsecond earlier it does not", false, 1000, 499, false);
    row("until a later second", false, 1001, 0, true);
}

void SelectionTest::times()
{
    QFETCH(bool, isSince);
    QFETCH(quint64, seconds);
    QFETCH(quint32, microseconds);
    QFETCH(bool, isTaken);
    SelectionChoice choice;
    (isSince ? choice.since : choice.until) = Instant{seconds, microseconds};
    QCOMPARE(Selection(choice, &catalogue).takes(facts(1), noText), isTaken);
}

void SelectionTest::levels_data()
{
    QTest::addColumn<QList<QByteArray>>("levels");
    QTest::addColumn<QList<int>>("taken"); // of the events 4005 (notice), -5 (odd), 77 (unknown)

    using Levels = QList<QByteArray>;
    using Events = QList<int>;
    QTest::newRow("a level is that urgent and more") << Levels{"5"} << Events{4005};
    QTest::newRow("a less urgent one has the more urgent") << Levels{"7"} << Events{4005, -5};
    QTest::newRow("a more urgent one has not the less urgent") << Levels{"4"} << Events{};
    QTest::newRow("a name is its number") << Levels{"notice"} << Events{4005};
    QTest::newRow("another name") << Levels{"warning"} << Events{};
    QTest::newRow("a range has its ends") << Levels{"5..7"} << Events{4005, -5};
    QTest::newRow("a range ends") << Levels{"4..notice"} << Events{4005};
    QTest::newRow("a range begins") << Levels{"6..7"} << Events{-5};
    QTest::newRow("a range may be named from its other end") << Levels{"7..6"} << Events{-5};
    QTest::newRow("a range without an end") << Levels{"6.."} << Events{-5};
    QTest::newRow("a range without a beginning") << Levels{"..6"} << Events{4005};
    QTest::newRow("several are one or the other")
        << Levels{"0", "7..7", "5..5"} << Events{4005, -5};
    QTest::newRow("an unknown event has no level") << Levels{"1000"} << Events{4005, -5};
}

void SelectionTest::levels()
{
    QFETCH(QList<QByteArray>, levels);
    QFETCH(QList<int>, taken);
    SelectionChoice choice;
    for (const QByteArray &level : levels) {
        choice.levels.push_back(OptionValues::levelRange("--level", level.toStdString()));
    }
    Selection selection(choice, &catalogue);
    for (const int event : {4005, -5, 77, 4005}) {
        QCOMPARE(selection.takes(facts(1, event), noText), taken.contains(event));
    }
}

void SelectionTest::events_data()
{
    QTest::addColumn<QList<QByteArray>>("events");
    QTest::addColumn<QList<int>>("taken");

    using Texts = QList<QByteArray>;
    using Events = QList<int>;
    QTest::newRow("by id") << Texts{"4005"} << Events{4005};
    QTest::newRow("by name") << Texts{"settingChanged"} << Events{4005};
    QTest::newRow("one or the other") << Texts{"byte", "9", "byte"} << Events{2, 9};
    QTest::newRow("a negative id") << Texts{"-5"} << Events{-5};
    QTest::newRow("the same as the catalogue writes it") << Texts{"4294967291"} << Events{-5};
    QTest::newRow("an id that the catalogue does not know") << Texts{"77"} << Events{77};
}

void SelectionTest::events()
{
    QFETCH(QList<QByteArray>, events);
    QFETCH(QList<int>, taken);
    SelectionChoice choice;
    for (const QByteArray &event : events) {
        choice.events.push_back(OptionValues::event("--event", event.toStdString()));
    }
    Selection selection(choice, &catalogue);
    for (const int event : {4005, -5, 77, 2, 9, 4}) {
        QCOMPARE(selection.takes(facts(1, event), noText), taken.contains(event));
    }
}

void SelectionTest::services()
{
    SelectionChoice choice;
    choice.services = QStringList{"update"_s};
    Selection update(choice, &catalogue);
    QVERIFY(update.takes(facts(1, 4005), noText));
    QVERIFY(!update.takes(facts(1, 9), noText));
    QVERIFY(!update.takes(facts(1, 77), noText)); // nobody knows whose it is
    choice.services.append("all"_s);
    QVERIFY(Selection(choice, &catalogue).takes(facts(1, 9), noText));
}

void SelectionTest::paths()
{
    SelectionChoice choice;
    choice.paths = {"/power/*"};
    Selection power(choice, &catalogue);
    QVERIFY(power.takes(facts(1, 9, "/power/supply/a"), noText));
    QVERIFY(!power.takes(facts(1, 9, "/net/power/a"), noText)); // the whole path is compared
    choice.paths.emplace_back("*/a");
    QVERIFY(Selection(choice, &catalogue).takes(facts(1, 9, "/net/power/a"), noText));
}

void SelectionTest::texts()
{
    const auto matches = [this](const char *expression, const char *text) {
        SelectionChoice choice;
        choice.texts.append(OptionValues::expression("--grep", expression));
        return Selection(choice, &catalogue).takes(facts(1), [text] {
            return std::string_view(text);
        });
    };
    QVERIFY(matches("limit", "below the limit of 22 V"));
    QVERIFY(!matches("LIMIT", "below the limit of 22 V"));
    QVERIFY(matches("(?i)LIMIT", "below the limit of 22 V"));
    QVERIFY(matches("^below.*\\d+ V$", "below the limit of 22 V"));
    QVERIFY(matches("(?<=of )22", "below the limit of 22 V"));
    QVERIFY(matches("\\bGerät\\b", "das Gerät \"Süd\""));
    QVERIFY(!matches("\\bGer\\b", "das Gerät \"Süd\""));
    QVERIFY(matches("^$", ""));
    QVERIFY(!matches("x", "\xFF"));
    // One that would take for ever takes nothing.
    QVERIFY(!matches("(a+)+$", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa!"));
}

void SelectionTest::textsAreMadeWhenNeeded()
{
    SelectionChoice choice;
    choice.events.emplace_back(qint32(9));
    int made = 0;
    const auto text = [&made] {
        ++made;
        return std::string_view("text");
    };
    QVERIFY(Selection(choice, &catalogue).takes(facts(1), text));
    QCOMPARE(made, 0);
    choice.texts.append(QRegularExpression("none"_s));
    choice.texts.append(QRegularExpression("text"_s));
    QVERIFY(Selection(choice, &catalogue).takes(facts(1), text));
    QCOMPARE(made, 1);
    QVERIFY(!Selection(choice, &catalogue).takes(facts(1, 8), text));
    QCOMPARE(made, 1);
}

void SelectionTest::conditionsAddUp()
{
    SelectionChoice choice;
    choice.numbers.push_back({1, 5});
    choice.events.emplace_back(qint32(9));
    choice.paths = {"/power/*"};
    choice.since = Instant{1000, 0};
    Selection selection(choice, &catalogue);
    QVERIFY(selection.takes(facts(1), noText));
    QVERIFY(!selection.takes(facts(6), noText));
    QVERIFY(!selection.takes(facts(1, 8), noText));
    QVERIFY(!selection.takes(facts(1, 9, "/net"), noText));
    QVERIFY(!selection.takes({1, {999, 0}, 9, "/power/supply"}, noText));
}

void SelectionTest::unknownNames_data()
{
    QTest::addColumn<QByteArray>("kind");
    QTest::addColumn<QByteArray>("complaint");

    QTest::newRow("a level") << QByteArray("level")
                             << QByteArray("the catalogue has no level \"nobody\"; it has: "
                                           "warning, notice; numbers do as well");
    QTest::newRow("an event, and not all of many are told")
        << QByteArray("event")
        << QByteArray("the catalogue has no event \"nobody\"; it has: bool, byte, bytearray, "
                      "double, enum, float, int16, int32, int64, negative, odd, settingChanged, "
                      "silent, string, three, uint64, variant");
    QTest::newRow("a service") << QByteArray(
        "service") << QByteArray("the catalogue has no service \"nobody\"; it has: all, update");
}

void SelectionTest::unknownNames()
{
    QFETCH(QByteArray, kind);
    QFETCH(QByteArray, complaint);
    SelectionChoice choice;
    if (kind == "level") {
        choice.levels.push_back({std::nullopt, LevelChoice("nobody"_s)});
    } else if (kind == "event") {
        choice.events.emplace_back("nobody"_s);
    } else {
        choice.services.append("nobody"_s);
    }
    QByteArray told;
    try {
        const Selection selection(choice, &catalogue);
    } catch (const WrongUsage &wrong) {
        told = QByteArray::fromStdString(wrong.reason);
    }
    QCOMPARE(told, complaint);
}

void SelectionTest::withoutCatalogue()
{
    SelectionChoice level;
    level.levels.push_back({std::nullopt, LevelChoice("warning"_s)});
    QVERIFY(!Selection(level, nullptr).takes(facts(1), noText));
    SelectionChoice service;
    service.services.append("power"_s);
    QVERIFY(!Selection(service, nullptr).takes(facts(1), noText));
    SelectionChoice event;
    event.events.emplace_back("string"_s);
    QVERIFY(!Selection(event, nullptr).takes(facts(1), noText));
    event.events.emplace_back(qint32(9));
    QVERIFY(Selection(event, nullptr).takes(facts(1), noText));
}

void SelectionTest::globs_data()
{
    QTest::addColumn<QByteArray>("pattern");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("isMatch");

    const auto row = [](const char *name, const char *pattern, const char *text, bool isMatch) {
        QTest::newRow(name) << QByteArray(pattern) << QByteArray(text) << isMatch;
    };
    row("a text is itself", "/a/b", "/a/b", true);
    row("no part of one", "/a/b", "/a/b/c", false);
    row("nor an end of one", "b", "/a/b", false);
    row("a star crosses slashes", "/a/*", "/a/b/c", true);
    row("a star is nothing, too", "/a*", "/a", true);
    row("a star at both ends", "*b*", "/a/b/c", true);
    row("several stars", "/*/b/*d", "/a/b/c/d", true);
    row("a star gives way", "*ab", "aab", true);
    row("a star cannot give what is not there", "*ab", "aba", false);
    row("two stars are one", "a**b", "ab", true);
    row("a question mark is one character", "/a?", "/ab", true);
    row("it is not none", "/a?", "/a", false);
    row("it is one beyond ASCII", "/?", "/\xC3\xBC", true);
    row("a byte that is no UTF-8 is one", "/?", "/\xFF", true);
    row("a bracket is one of several", "/[abc]", "/b", true);
    row("it is no other", "/[abc]", "/d", false);
    row("a range in a bracket", "/[a-c]", "/b", true);
    row("a bracket of others", "/[!a-c]", "/d", true);
    row("which these are not", "/[^a-c]", "/b", false);
    row("a closing bracket in front", "/[]]", "/]", true);
    row("a minus at the end", "/[a-]", "/-", true);
    row("a backslash takes the meaning away", "\\*", "*", true);
    row("from a star", "\\*", "a", false);
    row("and from a bracket", "\\[a]", "[a]", true);
    row("nothing is nothing", "", "", true);
    row("nothing is not something", "", "a", false);
    row("case counts", "/A", "/a", false);
}

void SelectionTest::globs()
{
    QFETCH(QByteArray, pattern);
    QFETCH(QByteArray, text);
    QFETCH(bool, isMatch);
    QVERIFY(Glob::isValid(pattern.toStdString()));
    QCOMPARE(Glob::matches(pattern.toStdString(), text.toStdString()), isMatch);
}

//! Patterns of this kind take for ever where each star is tried with each other.
void SelectionTest::globsAreQuick()
{
    std::string pattern;
    for (int i = 0; i < 30; ++i) {
        pattern += "*a";
    }
    QVERIFY(!Glob::matches(pattern + "b", std::string(20000, 'a')));
}

void SelectionTest::noGlobs()
{
    for (const char *const pattern : {"[", "a[b", "[]", "[!]", "[a-", "\\", "a\\"}) {
        QVERIFY2(!Glob::isValid(pattern), pattern);
    }
}

QTEST_GUILESS_MAIN(SelectionTest)
#include "tst_selection.moc"

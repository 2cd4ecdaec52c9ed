// SPDX-License-Identifier: Apache-2.0
#include "ctl/cataloguecheck.h"

#include "ctl/cataloguetextcheck.h"

#include <QSet>
#include <QStringList>

#include <algorithm>
#include <limits>

namespace
{

using Document = CatalogueDocument;

constexpr QLatin1String levelsEnum("LogLevel");

QString quoted(const QString &name)
{
    return CatalogueFindings::quoted(name);
}

QString lineOf(const Document::Place &place)
{
    return QString::number(place.line);
}

//! What the rules need to know of the document as a whole.
struct Context {
    //! The items of an enumeration that an argument can have for its value.
    struct Items {
        const Document::Enum *last = nullptr;        //!< of this name: it counts
        std::vector<const Document::Item *> notBool; //!< neither 0 nor 1
    };

    explicit Context(const Document &catalogue)
        : document(catalogue)
        , isWhole(!catalogue.stop)
        , levels(catalogue.levels())
    {
        for (const Document::Enum &each : document.enums) {
            Items &items = enums[each.name];
            items.last = &each;
            items.notBool.clear();
            for (const Document::Item &item : each.items) {
                if (item.value != 0 && item.value != 1) {
                    items.notBool.push_back(&item);
                }
            }
        }
        for (const Document::Event &event : document.events) {
            for (const Document::Argument &argument : event.arguments) {
                if (argument.type == ArgumentType::Enum) {
                    used.insert(argument.enumName);
                }
            }
        }
    }

    const Document &document;
    bool isWhole; //!< nothing of it is unread
    QHash<QString, int> levels;
    QHash<QString, Items> enums;
    QSet<QString> used; //!< enumerations
};

// Ids and names of events.

//! The number that digits make, but not more than 2^32: what is larger is wrong anyway.
quint64 numberOf(const QString &digits)
{
    constexpr quint64 large = quint64(1) << 32;
    quint64 number = 0;
    for (const QChar digit : digits) {
        number = std::min(number * 10 + quint64(digit.digitValue()), large);
    }
    return number;
}

void checkIdText(const Document::Event &event, CatalogueFindings &findings)
{
    const QString &text = event.idText;
    const bool isNumber
        = std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.digitValue() >= 0; });
    if (text.isEmpty()) {
        findings.error(event.place, "id",
                       QStringLiteral("the event has no id, which counts as 0; give it a number "
                                      "of its own"));
    } else if (!isNumber) {
        findings.error(event.place, "id",
                       QStringLiteral("id %1 is no number and counts as 0; write digits alone")
                           .arg(quoted(text)));
    } else if (numberOf(text) > std::numeric_limits<quint32>::max()) {
        findings.error(event.place, "id",
                       QStringLiteral("id %1 is larger than 4294967295 and counts as %2")
                           .arg(quoted(text), QString::number(event.id)));
    } else if (event.id > uint(std::numeric_limits<qint32>::max())) {
        findings.warning(event.place, "id-negative",
                         QStringLiteral("event %1 is announced as %2: ids have a sign on the bus")
                             .arg(QString::number(event.id), QString::number(qint32(event.id))));
    }
}

void checkIds(const Context &context, CatalogueFindings &findings)
{
    QHash<uint, const Document::Event *> earlier;
    for (const Document::Event &event : context.document.events) {
        checkIdText(event, findings);
        if (const Document::Event *const lost = earlier.value(event.id)) {
            findings.error(event.place, "id-twice",
                           QStringLiteral("event %1 is given again; the one of line %2 is lost, "
                                          "with its arguments and texts")
                               .arg(QString::number(event.id), lineOf(lost->place)));
        }
        earlier.insert(event.id, &event);
    }
}

void checkNames(const Context &context, CatalogueFindings &findings)
{
    QHash<QString, const Document::Event *> earlier;
    for (const Document::Event &event : context.document.events) {
        if (event.name.isEmpty()) {
            findings.warning(event.place, "name",
                             QStringLiteral("event %1 has no name").arg(event.id));
            continue;
        }
        const Document::Event *const other = earlier.value(event.name);
        if (other && other->id != event.id) {
            findings.warning(event.place, "name",
                             QStringLiteral("event %1 has the name %2 of event %3 in line %4; by "
                                            "name both are meant")
                                 .arg(QString::number(event.id), quoted(event.name),
                                      QString::number(other->id), lineOf(other->place)));
        }
        earlier.insert(event.name, &event);
    }
}

// Levels.

//! The first of them, the most urgent one in front.
QString levelNames(const QHash<QString, int> &levels)
{
    constexpr int most = 8;
    QStringList names;
    for (auto level = levels.cbegin(); level != levels.cend(); ++level) {
        names.append(level.key());
    }
    std::sort(names.begin(), names.end(), [&levels](const QString &one, const QString &other) {
        return levels.value(one) < levels.value(other);
    });
    for (QString &name : names) {
        name = quoted(name);
    }
    return QStringList(names.mid(0, most)).join(QStringLiteral(", "))
        + (names.size() > most ? QStringLiteral(" and more") : QString());
}

void checkEventLevels(const Context &context, CatalogueFindings &findings)
{
    if (!context.isWhole || context.document.events.empty()) {
        return;
    }
    if (!context.enums.contains(levelsEnum)) {
        findings.error(context.document.root, "level",
                       QStringLiteral("there is no enumeration \"LogLevel\", so that every event "
                                      "has level 7; add one with the names and numbers of levels"));
        return;
    }
    const QString names = levelNames(context.levels);
    for (const Document::Event &event : context.document.events) {
        if (context.levels.contains(event.level)) {
            continue;
        }
        const QString what = event.level.isEmpty()
            ? QStringLiteral("event %1 has no loglevel, which counts as 7").arg(event.id)
            : QStringLiteral("level %1 of event %2 is not defined and counts as 7")
                  .arg(quoted(event.level), QString::number(event.id));
        findings.error(event.place, "level",
                       what + QStringLiteral("; \"LogLevel\" has ")
                           + (names.isEmpty() ? QStringLiteral("no items") : names));
    }
}

void checkLevel(const Document::Item &item, CatalogueFindings &findings)
{
    const bool isUnescaped = std::any_of(item.name.cbegin(), item.name.cend(), [](QChar c) {
        return c < QLatin1Char(' ') || c == QLatin1Char('"') || c == QLatin1Char('\\');
    });
    if (isUnescaped) {
        findings.error(item.place, "character",
                       QStringLiteral("level %1 holds a quote, a backslash or a control "
                                      "character, which makes the daemon's answers invalid JSON")
                           .arg(quoted(item.name)));
    }
    if (item.isNumber && (item.value < 0 || item.value > 7)) {
        findings.warning(item.place, "level-number",
                         QStringLiteral("level %1 is %2; the severities of syslog are 0 to 7")
                             .arg(quoted(item.name), QString::number(item.value)));
    }
}

// Enumerations.

void checkItem(const Document::Enum &of, const Document::Item &item, CatalogueFindings &findings)
{
    if (!item.isNumber) {
        findings.error(item.place, "item",
                       item.valueText.isEmpty()
                           ? QStringLiteral("an item of %1 has no value, which counts as 0")
                                 .arg(quoted(of.name))
                           : QStringLiteral("value %1 of %2 is no number and counts as 0")
                                 .arg(quoted(item.valueText), quoted(of.name)));
    }
    if (item.name.isEmpty()) {
        findings.error(item.place, "item",
                       QStringLiteral("value %1 of %2 has no name, so that nothing is shown for it")
                           .arg(QString::number(item.value), quoted(of.name)));
    }
    if (holdsHalfCharacter(item.name)) {
        findings.error(item.place, "character",
                       QStringLiteral("the name of value %1 of %2 holds half of a surrogate pair, "
                                      "which is no character: \"?\" is shown")
                           .arg(QString::number(item.value), quoted(of.name)));
    }
}

//! Two items of the levels with one name.
void reportLevelTwice(const Context &context, const Document::Item &item,
                      const Document::Item &other, CatalogueFindings &findings)
{
    findings.error(item.place, "level-twice",
                   QStringLiteral("level %1 is given twice, as %2 in line %3 and as %4 here; "
                                  "%5 counts")
                       .arg(quoted(item.name), QString::number(other.value), lineOf(other.place),
                            QString::number(item.value),
                            QString::number(context.levels.value(item.name))));
}

void checkItems(const Context &context, const Document::Enum &of, CatalogueFindings &findings)
{
    QHash<int, const Document::Item *> values;
    QHash<QString, const Document::Item *> names;
    for (const Document::Item &item : of.items) {
        checkItem(of, item, findings);
        const Document::Item *const lost = values.value(item.value);
        if (lost) {
            findings.error(item.place, "item-twice",
                           QStringLiteral("value %1 of %2 is given again; %3 of line %4 is lost")
                               .arg(QString::number(item.value), quoted(of.name),
                                    quoted(lost->name), lineOf(lost->place)));
        }
        const Document::Item *const other = names.value(item.name);
        if (other && other->value != item.value && !item.name.isEmpty()) {
            if (of.name == levelsEnum) {
                reportLevelTwice(context, item, *other, findings);
            } else {
                findings.warning(item.place, "item-name",
                                 QStringLiteral("values %1 and %2 of %3 have one name, %4, and "
                                                "cannot be told apart")
                                     .arg(QString::number(other->value),
                                          QString::number(item.value), quoted(of.name),
                                          quoted(item.name)));
            }
        }
        values.insert(item.value, &item);
        names.insert(item.name, &item);
        if (of.name == levelsEnum) {
            checkLevel(item, findings);
        }
    }
}

//! Of an enumeration that arguments use.
void checkRange(const Document::Enum &of, CatalogueFindings &findings)
{
    for (const Document::Item &item : of.items) {
        if (item.value < 0 || item.value > 255) {
            findings.error(item.place, "enum-range",
                           QStringLiteral("value %1 of %2 is never shown: an enum is read as one "
                                          "byte, 0 to 255")
                               .arg(QString::number(item.value), quoted(of.name)));
        }
    }
}

void checkEnums(const Context &context, CatalogueFindings &findings)
{
    QHash<QString, const Document::Enum *> earlier;
    for (const Document::Enum &each : context.document.enums) {
        if (each.name.isEmpty()) {
            findings.error(each.place, "enum",
                           QStringLiteral("the enumeration has no name, so that no argument can "
                                          "have it"));
        }
        if (const Document::Enum *const lost = earlier.value(each.name)) {
            findings.error(each.place, "enum-twice",
                           QStringLiteral("enumeration %1 is given again; the one of line %2 is "
                                          "lost, with its items")
                               .arg(quoted(each.name), lineOf(lost->place)));
        }
        earlier.insert(each.name, &each);
        checkItems(context, each, findings);
        const bool isUsed = context.used.contains(each.name);
        if (isUsed) {
            checkRange(each, findings);
        } else if (context.isWhole && each.name != levelsEnum && !each.name.isEmpty()) {
            findings.warning(
                each.place, "enum-unused",
                QStringLiteral("no argument has enumeration %1").arg(quoted(each.name)));
        }
    }
}

// Arguments.

void checkType(const Document::Argument &argument, CatalogueFindings &findings)
{
    if (argument.type == ArgumentType::Float) {
        findings.error(argument.place, "type",
                       QStringLiteral("argument %1 is never shown right: \"float\" is read as four "
                                      "bytes, which no number on the bus is stored as; use "
                                      "\"double\"")
                           .arg(quoted(argument.name)));
    }
    if (argument.type != ArgumentType::Unknown) {
        return;
    }
    const QString lower = argument.typeText.trimmed().toLower();
    const bool isMisspelt = typeFromName(lower) != ArgumentType::Unknown;
    QString message = argument.typeText.isEmpty()
        ? QStringLiteral("argument %1 has no type").arg(quoted(argument.name))
        : QStringLiteral("type %1 of argument %2 is unknown")
              .arg(quoted(argument.typeText), quoted(argument.name));
    message += QStringLiteral(": neither it nor what follows it is shown right; ");
    message += isMisspelt ? QStringLiteral("write \"%1\"").arg(lower)
                          : QStringLiteral("types are bool, int32, int64, uint64, double, string, "
                                           "bytearray, variant, enum, and at the end byte and "
                                           "int16");
    findings.error(argument.place, "type", message);
}

//! Read as fewer bytes than the integer that is stored; that does no harm at the end alone.
void checkSize(const Document::Argument &argument, bool isLast, CatalogueFindings &findings)
{
    const bool isByte = argument.type == ArgumentType::Byte;
    if (isLast || (!isByte && argument.type != ArgumentType::Int16)) {
        return;
    }
    findings.error(
        argument.place, "type-position",
        QStringLiteral("type \"%1\" of argument %2, which is not the last one: only %3 "
                       "of the four bytes of a number %4 read, and all behind it is shown "
                       "wrong; use \"int32\"")
            .arg(typeName(argument.type), quoted(argument.name),
                 isByte ? QStringLiteral("one") : QStringLiteral("two"),
                 isByte ? QStringLiteral("is") : QStringLiteral("are")));
}

//! A number that is not last can come as a bool alone, which is stored as one byte.
void checkEnumPosition(const Document::Argument &argument, const Context::Items &items,
                       CatalogueFindings &findings)
{
    if (items.notBool.empty()) {
        return;
    }
    const Document::Item &first = *items.notBool.front();
    QString which = QStringLiteral("%1 (%2)").arg(QString::number(first.value), quoted(first.name));
    if (items.notBool.size() > 1) {
        which += QStringLiteral(" and %1 more").arg(items.notBool.size() - 1);
    }
    findings.error(
        argument.place, "enum-position",
        QStringLiteral("enumeration %1 of argument %2, which is not the last one: only 0 "
                       "and 1 can be announced there, as a bool, not %3; put it last, "
                       "or announce its text as a string")
            .arg(quoted(argument.enumName), quoted(argument.name), which));
}

void checkEnumArgument(const Context &context, const Document::Argument &argument, bool isLast,
                       CatalogueFindings &findings)
{
    if (argument.type != ArgumentType::Enum) {
        if (!argument.enumName.isEmpty()) {
            findings.warning(argument.place, "enum-ignored",
                             QStringLiteral("enumeration %1 of argument %2 counts with type "
                                            "\"enum\" alone")
                                 .arg(quoted(argument.enumName), quoted(argument.name)));
        }
        return;
    }
    const auto items = context.enums.constFind(argument.enumName);
    QString reason;
    if (argument.enumName.isEmpty()) {
        reason = QStringLiteral("argument %1 names no enumeration").arg(quoted(argument.name));
    } else if (items == context.enums.constEnd() && context.isWhole) {
        reason = QStringLiteral("enumeration %1 of argument %2 is not defined")
                     .arg(quoted(argument.enumName), quoted(argument.name));
    } else if (items != context.enums.constEnd() && items->last->items.empty() && context.isWhole) {
        reason = QStringLiteral("enumeration %1 of argument %2 has no items")
                     .arg(quoted(argument.enumName), quoted(argument.name));
    }
    if (!reason.isEmpty()) {
        findings.error(argument.place, "enum",
                       reason + QStringLiteral(", so that nothing is shown for it"));
    } else if (!isLast && items != context.enums.constEnd()) {
        checkEnumPosition(argument, *items, findings);
    }
}

void checkArgumentNames(const Document::Event &event, CatalogueFindings &findings)
{
    QSet<QString> earlier;
    for (size_t i = 0; i < event.arguments.size(); ++i) {
        const Document::Argument &argument = event.arguments[i];
        const QString number = QString::number(i + 1);
        const QString id = QString::number(event.id);
        if (argument.name.isEmpty()) {
            findings.warning(argument.place, "argument-name",
                             QStringLiteral("argument %1 of event %2 has no name").arg(number, id));
        } else if (earlier.contains(argument.name)) {
            findings.warning(argument.place, "argument-name",
                             QStringLiteral("argument %1 of event %2 has the name %3 of another")
                                 .arg(number, id, quoted(argument.name)));
        }
        earlier.insert(argument.name);
    }
}

void checkArguments(const Context &context, CatalogueFindings &findings)
{
    for (const Document::Event &event : context.document.events) {
        for (const Document::Argument &argument : event.arguments) {
            const bool isLast = &argument == &event.arguments.back();
            checkType(argument, findings);
            checkSize(argument, isLast, findings);
            checkEnumArgument(context, argument, isLast, findings);
        }
        checkArgumentNames(event, findings);
    }
}

// The document.

QString oddityText(const Document::Oddity &oddity)
{
    static const char *const elements[]
        = {"service", "event", "argument", "description", "enum", "item"};
    using Kind = Document::Oddity::Kind;
    const QString &element = oddity.element;
    const QString parent = element == QLatin1String("item") ? QStringLiteral("enum")
        : element == QLatin1String("event")                 ? QStringLiteral("service")
                                                            : QStringLiteral("event");
    switch (oddity.kind) {
    case Kind::Unnamed:
        return QStringLiteral("a service without a name is passed over; its events count for %1")
            .arg(oddity.owner.isEmpty() ? QStringLiteral("none") : quoted(oddity.owner));
    case Kind::Ignored:
        return QStringLiteral("\"%1\" before the first \"%2\" is passed over").arg(element, parent);
    case Kind::Outside:
        return QStringLiteral("\"%1\" stands outside of \"%2\"; it counts for %3")
            .arg(element, parent,
                 oddity.owner.isEmpty()                 ? QStringLiteral("none")
                     : parent == QLatin1String("event") ? QStringLiteral("event ") + oddity.owner
                                                        : quoted(oddity.owner));
    case Kind::Unknown:
        break;
    }
    QString text
        = QStringLiteral("%1 is no element of a catalogue and is passed over").arg(quoted(element));
    for (const char *const known : elements) {
        if (element.compare(QLatin1String(known), Qt::CaseInsensitive) == 0) {
            text += QStringLiteral("; write \"%1\"").arg(QLatin1String(known));
        }
    }
    return text;
}

void checkNesting(const Context &context, CatalogueFindings &findings)
{
    for (const Document::Oddity &oddity : context.document.oddities) {
        if (oddity.kind == Document::Oddity::Kind::Ignored) {
            findings.error(oddity.place, "nesting", oddityText(oddity));
        } else {
            findings.warning(oddity.place, "nesting", oddityText(oddity));
        }
    }
    if (context.isWhole && context.document.events.empty()) {
        findings.error(context.document.root, "empty", QStringLiteral("there is no event"));
    }
}

//! What a loader has when it stops.
QString loadedText(const Document &document)
{
    if (document.events.empty()) {
        return QStringLiteral(", without a word, and loads no event");
    }
    QSet<uint> ids;
    for (const Document::Event &event : document.events) {
        ids.insert(event.id);
    }
    const Document::Event &last = document.events.back();
    QString text = ids.size() == 1
        ? QStringLiteral(", without a word, and loads 1 event, ")
        : QStringLiteral(", without a word, and loads %1 events, up to ").arg(ids.size());
    text += QString::number(last.id);
    text += last.name.isEmpty() ? QString() : QLatin1Char(' ') + quoted(last.name);
    if (document.stop->isInText) {
        text
            += QStringLiteral(", whose text in %1 is cut here").arg(quoted(last.texts.back().lang));
    }
    return text;
}

//! What the daemon reads otherwise than it is meant, without an end of reading.
void checkReading(const Document &document, CatalogueFindings &findings)
{
    if (document.replaced) {
        findings.error(*document.replaced, "encoding",
                       QStringLiteral("bytes do not fit the encoding %1, and U+FFFD is shown for "
                                      "them; save the file as UTF-8, and declare that")
                           .arg(quoted(document.encoding)));
    }
    for (const Document::Unread &each : document.unread) {
        findings.error(each.place, "entity",
                       QStringLiteral("entity %1 stands in another file, which the daemon does "
                                      "not read: nothing is put in its place; write it out here")
                           .arg(quoted(each.entity)));
    }
}

void checkEnd(const Context &context, CatalogueFindings &findings)
{
    if (context.isWhole) {
        return;
    }
    const Document::Stop &stop = *context.document.stop;
    switch (stop.reason) {
    case Document::Stop::Reason::Xml:
    case Document::Stop::Reason::Byte:
        findings.end(stop.place, stop.reason == Document::Stop::Reason::Xml ? "xml" : "encoding",
                     stop.text + QStringLiteral("; the daemon stops reading here")
                         + loadedText(context.document));
        return;
    case Document::Stop::Reason::Bytes:
        findings.end(stop.place, "encoding",
                     stop.text + QStringLiteral("; the daemon stops reading up to 8 KiB before it")
                         + loadedText(context.document));
        return;
    case Document::Stop::Reason::Limit:
        findings.end(stop.place, "limit",
                     stop.text
                         + QStringLiteral("; what follows is not checked, though the "
                                          "daemon reads on"));
        return;
    }
}

} // namespace

CatalogueFindings checkCatalogue(const CatalogueDocument &document)
{
    CatalogueFindings findings;
    const Context context(document);
    checkEnd(context, findings);
    checkReading(document, findings);
    checkNesting(context, findings);
    checkIds(context, findings);
    checkNames(context, findings);
    checkEventLevels(context, findings);
    checkEnums(context, findings);
    checkArguments(context, findings);
    checkTexts(document, findings);
    return findings;
}

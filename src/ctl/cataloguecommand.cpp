// SPDX-License-Identifier: Apache-2.0
#include "ctl/cataloguecommand.h"

#include "ctl/csvtext.h"
#include "ctl/jsonobject.h"
#include "ctl/messages.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace
{

using Event = SystemeventDescription;
using Texts = std::vector<std::pair<QString, QString>>; //!< with their languages in front

std::string utf8(const QString &text)
{
    return text.toStdString();
}

std::string printable(const QString &text)
{
    std::string shown;
    Messages::appendPrintable(shown, utf8(text));
    return shown;
}

//! The same of a name; a dash for none.
std::string named(const QString &name)
{
    return name.isEmpty() ? "-" : printable(name);
}

QList<int> sortedValues(const QHash<int, QString> &items)
{
    QList<int> values = items.keys();
    std::sort(values.begin(), values.end());
    return values;
}

//! The columns that a text takes on a terminal, roughly.
size_t widthOf(const std::string &shown)
{
    return size_t(
        std::count_if(shown.begin(), shown.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

void appendPadded(std::string &line, const std::string &cell, size_t width)
{
    line += cell;
    line.append(width - std::min(widthOf(cell), width) + 2, ' ');
}

//! A catalogue, and what the user wants of it.
class Catalogue
{
public:
    explicit Catalogue(const Plan &plan)
        : languages(plan.catalogue.languages)
        , isLanguageNamed(plan.catalogue.isLanguageNamed)
    {
        const QString &file = plan.source.catalogue;
        isRead = catalogue.load(file);
        if (!isRead) {
            Messages::tell(QStringLiteral("%1: the catalogue cannot be read; name another one "
                                          "with -C")
                               .arg(file));
        }
    }

    [[nodiscard]] bool isLoaded() const { return isRead; }
    [[nodiscard]] const SystemeventCatalogue &tables() const { return catalogue; }

    //! All events, by their ids.
    [[nodiscard]] std::vector<const Event *> events() const
    {
        std::vector<const Event *> sorted;
        for (const Event &event : catalogue.events) {
            sorted.push_back(&event);
        }
        std::sort(sorted.begin(), sorted.end(),
                  [](const Event *one, const Event *other) { return one->id < other->id; });
        return sorted;
    }

    //! The event of an id, also as the bus has it with a sign, else those of a name.
    [[nodiscard]] std::vector<const Event *> find(const QString &wanted) const
    {
        bool isNumber = false;
        const qint64 number = wanted.toLongLong(&isNumber);
        const auto byId = catalogue.events.constFind(uint(number));
        if (isNumber && number >= -0x80000000LL && number <= 0xFFFFFFFFLL
            && byId != catalogue.events.constEnd()) {
            return {&*byId};
        }
        std::vector<const Event *> found = events();
        found.erase(std::remove_if(found.begin(), found.end(),
                                   [&wanted](const Event *event) { return event->name != wanted; }),
                    found.end());
        return found;
    }

    //! The text that is shown where one is; null where there is none.
    [[nodiscard]] Texts::value_type text(const Event &event) const
    {
        for (const QString &language : languages + QStringList(QStringLiteral("en"))) {
            const auto found = event.descriptions.constFind(language);
            if (found != event.descriptions.constEnd()) {
                return {language, *found};
            }
        }
        return {};
    }

    //! All texts by their languages, or the one in the language that the user has named.
    [[nodiscard]] Texts textsToShow(const Event &event) const
    {
        Texts all;
        if (isLanguageNamed) {
            all.push_back(text(event));
            return all;
        }
        for (auto text = event.descriptions.cbegin(); text != event.descriptions.cend(); ++text) {
            all.emplace_back(text.key(), text.value());
        }
        std::sort(all.begin(), all.end());
        return all;
    }

private:
    QStringList languages; //!< the preferred one first
    bool isLanguageNamed;
    SystemeventCatalogue catalogue;
    bool isRead = false;
};

// Text.

void printList(const Catalogue &catalogue, OutputStream &out)
{
    const std::vector<const Event *> events = catalogue.events();
    size_t idWidth = 0;
    size_t nameWidth = 0;
    size_t levelWidth = 0;
    for (const Event *const event : events) {
        idWidth = std::max(idWidth, std::to_string(event->id).size());
        nameWidth = std::max(nameWidth, widthOf(named(event->name)));
        levelWidth = std::max(levelWidth, widthOf(named(event->logLevelName)));
    }
    constexpr size_t widest = 30;
    for (const Event *const event : events) {
        std::string &line = out.text();
        const std::string id = std::to_string(event->id);
        line.append(idWidth - id.size(), ' ');
        appendPadded(line, id, 0);
        appendPadded(line, named(event->logLevelName), std::min(levelWidth, widest));
        appendPadded(line, named(event->name), std::min(nameWidth, widest));
        line += printable(catalogue.text(*event).second);
        out.write("\n");
    }
}

void printItems(const QHash<int, QString> &items, OutputStream &out)
{
    for (const int value : sortedValues(items)) {
        out.write("              " + std::to_string(value) + "  " + printable(items.value(value))
                  + '\n');
    }
}

void printArguments(const Event &event, const SystemeventCatalogue &tables, OutputStream &out)
{
    size_t nameWidth = 0;
    for (const SystemeventArgument &argument : event.arguments) {
        nameWidth = std::max(nameWidth, widthOf(named(argument.name)));
    }
    constexpr size_t widest = 30;
    int number = 0;
    for (const SystemeventArgument &argument : event.arguments) {
        std::string line = number == 0 ? "arguments " : "          ";
        appendPadded(line, '%' + std::to_string(++number), 2);
        appendPadded(line, named(argument.name), std::min(nameWidth, widest));
        line += printable(typeName(argument.type));
        if (argument.type == ArgumentType::Enum) {
            line += ' ' + printable(argument.enumName);
        }
        out.write(line + '\n');
        if (argument.type == ArgumentType::Enum) {
            printItems(tables.enums.value(argument.enumName), out);
        }
    }
}

void printEvent(const Event &event, const Texts &texts, const SystemeventCatalogue &tables,
                OutputStream &out)
{
    out.write("event     " + std::to_string(event.id) + '\n');
    out.write("name      " + named(event.name) + "\nservice   " + named(event.service) + '\n');
    out.write("level     " + named(event.logLevelName) + " (" + std::to_string(event.logLevel)
              + ")\n");
    printArguments(event, tables, out);
    const char *head = "texts     ";
    for (const auto &[language, text] : texts) {
        out.write(head + printable(language) + "  " + printable(text) + '\n');
        head = "          ";
    }
}

// JSON.

void addMembers(JsonObject &object, const Event &event)
{
    object.addNumber("event", event.id).add("name", event.name).add("service", event.service);
    object.add("level", event.logLevelName).addNumber("levelNumber", event.logLevel);
}

void addItems(JsonObject &object, const QHash<int, QString> &items)
{
    std::string &out = object.addKey("items");
    const char *separator = "[";
    for (const int value : sortedValues(items)) {
        out += separator;
        separator = ",";
        JsonObject item(out);
        item.addNumber("value", value).add("text", items.value(value)).end();
    }
    out += items.isEmpty() ? "[]" : "]";
}

void addArguments(JsonObject &object, const Event &event, const SystemeventCatalogue &tables)
{
    std::string &out = object.addKey("arguments");
    const char *separator = "[";
    for (const SystemeventArgument &argument : event.arguments) {
        out += separator;
        separator = ",";
        JsonObject member(out);
        member.add("name", argument.name).add("type", typeName(argument.type));
        if (argument.type == ArgumentType::Enum) {
            member.add("enum", argument.enumName);
            addItems(member, tables.enums.value(argument.enumName));
        }
        member.end();
    }
    out += event.arguments.isEmpty() ? "[]" : "]";
}

void addTexts(JsonObject &object, const Texts &texts)
{
    std::string &out = object.addKey("texts");
    const char *separator = "{";
    for (const auto &[language, text] : texts) {
        out += separator;
        separator = ",";
        JsonObject::appendString(out, utf8(language));
        out += ':';
        JsonObject::appendString(out, utf8(text));
    }
    out += texts.empty() ? "{}" : "}";
}

void printObject(const Event &event, const Catalogue &catalogue, OutputStream &out)
{
    const auto [language, text] = catalogue.text(event);
    JsonObject object(out.text());
    addMembers(object, event);
    object.add("language", language).add("text", text);
    object.end();
    out.write("\n");
}

void printWholeObject(const Event &event, const Texts &texts, const SystemeventCatalogue &tables,
                      OutputStream &out)
{
    JsonObject object(out.text());
    addMembers(object, event);
    addArguments(object, event, tables);
    addTexts(object, texts);
    object.end();
    out.write("\n");
}

// CSV.

void printHeader(OutputStream &out)
{
    out.write("event,name,service,level,levelNumber,arguments,language,text");
    out.write(CsvText::endOfRow);
}

//! A row for each text; one without a text where there is none.
void printRows(const Event &event, const Texts &texts, const SystemeventCatalogue &tables,
               OutputStream &out)
{
    for (const auto &[language, text] : texts) {
        std::string &row = out.text();
        row += std::to_string(event.id) + ',';
        for (const QString &cell : {event.name, event.service, event.logLevelName}) {
            CsvText::appendCell(row, utf8(cell));
            row += ',';
        }
        row += std::to_string(event.logLevel) + ',';
        CsvText::appendCell(row, utf8(eventDeclaration(event, tables)));
        row += ',';
        CsvText::appendCell(row, utf8(language));
        row += ',';
        CsvText::appendCell(row, utf8(text));
        out.write(CsvText::endOfRow);
    }
}

} // namespace

QString eventDeclaration(const SystemeventDescription &event, const SystemeventCatalogue &catalogue)
{
    QStringList arguments;
    for (const SystemeventArgument &argument : event.arguments) {
        QString text = argument.name + QLatin1String(": ") + typeName(argument.type);
        if (argument.type == ArgumentType::Enum) {
            const QHash<int, QString> items = catalogue.enums.value(argument.enumName);
            QStringList shown;
            for (const int value : sortedValues(items)) {
                shown.append(QString::number(value) + QLatin1Char(' ') + items.value(value));
            }
            text += QLatin1Char(' ') + argument.enumName + QLatin1String(" (")
                + shown.join(QLatin1String(", ")) + QLatin1Char(')');
        }
        arguments.append(text);
    }
    return arguments.join(QLatin1String("; "));
}

ExitStatus runCatalogueList(const Plan &plan, OutputStream &out)
{
    const Catalogue catalogue(plan);
    if (!catalogue.isLoaded()) {
        return ExitStatus::Failed;
    }
    if (plan.output.format == Format::Text) {
        printList(catalogue, out);
    } else if (plan.output.format == Format::Csv) {
        printHeader(out);
    }
    for (const Event *const event : catalogue.events()) {
        if (plan.output.format == Format::Csv) {
            printRows(*event, {catalogue.text(*event)}, catalogue.tables(), out);
        } else if (plan.output.format == Format::Json) {
            printObject(*event, catalogue, out);
        }
    }
    return catalogue.tables().events.isEmpty() ? ExitStatus::NothingMatched : ExitStatus::Done;
}

ExitStatus runCatalogueShow(const Plan &plan, OutputStream &out)
{
    const Catalogue catalogue(plan);
    if (!catalogue.isLoaded()) {
        return ExitStatus::Failed;
    }
    const std::vector<const Event *> found = catalogue.find(plan.catalogue.event);
    if (found.empty()) {
        Messages::tell(QStringLiteral("the catalogue has no event \"%1\"; \"systemeventctl "
                                      "catalogue list\" shows those that it has")
                           .arg(plan.catalogue.event));
        return ExitStatus::NothingMatched;
    }
    if (plan.output.format == Format::Csv) {
        printHeader(out);
    }
    const char *separator = "";
    for (const Event *const event : found) {
        const Texts texts = catalogue.textsToShow(*event);
        if (plan.output.format == Format::Csv) {
            printRows(*event, texts.empty() ? Texts(1) : texts, catalogue.tables(), out);
        } else if (plan.output.format == Format::Json) {
            printWholeObject(*event, texts, catalogue.tables(), out);
        } else {
            out.write(separator);
            separator = "\n";
            printEvent(*event, texts, catalogue.tables(), out);
        }
    }
    return ExitStatus::Done;
}

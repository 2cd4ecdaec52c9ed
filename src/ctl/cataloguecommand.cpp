// SPDX-License-Identifier: Apache-2.0
#include "ctl/cataloguecommand.h"

#include "ctl/csvtext.h"
#include "ctl/declaredevents.h"
#include "ctl/eventkinds.h"
#include "ctl/jsonobject.h"
#include "ctl/language.h"
#include "ctl/messages.h"
#include "ctl/rawprinter.h"
#include "ctl/textwidth.h"
#include "logformat/encoding.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace
{

using Event = SystemeventDescription;
using Events = std::vector<const Event *>;
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

//! A catalogue, and what the user wants of it.
class Catalogue
{
public:
    explicit Catalogue(const Plan &plan)
        : isOne(plan.output.language.has_value())
        , onTerminal(plan.output.isOnTerminal)
    {
        const QString &file = plan.source.catalogue;
        isRead = catalogue.load(file);
        if (!isRead) {
            Messages::tell(QStringLiteral("%1: the catalogue cannot be read; name another one "
                                          "with -C")
                               .arg(file));
            return;
        }
        language = chooseLanguage(plan.output, &catalogue);
    }

    [[nodiscard]] bool isLoaded() const { return isRead; }
    [[nodiscard]] bool isOnTerminal() const { return onTerminal; }
    [[nodiscard]] const SystemeventCatalogue &tables() const { return catalogue; }

    //! The text that is shown where one is; null where there is none.
    [[nodiscard]] Texts::value_type text(const Event &event) const
    {
        for (const QString &candidate : {language, QStringLiteral("en")}) {
            const auto found = event.descriptions.constFind(candidate);
            if (found != event.descriptions.constEnd()) {
                return {candidate, *found};
            }
        }
        return {};
    }

    //! All texts by their languages, or the one in the language that the user has named.
    [[nodiscard]] Texts textsToShow(const Event &event) const
    {
        Texts all;
        if (isOne) {
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
    SystemeventCatalogue catalogue;
    QString language; //!< of a text, where the event has it
    bool isOne;       //!< the user has named it
    bool onTerminal;
    bool isRead = false;
};

// Text.

//! Two blanks behind it, too.
void appendColumn(std::string &line, const std::string &cell, size_t width)
{
    constexpr size_t widest = 30;
    TextWidth::appendPadded(line, cell, std::min(width, widest));
    line += "  ";
}

void printList(const Events &events, const Catalogue &catalogue, OutputStream &out)
{
    size_t idWidth = 0;
    size_t nameWidth = 0;
    size_t levelWidth = 0;
    for (const Event *const event : events) {
        idWidth = std::max(idWidth, std::to_string(event->id).size());
        nameWidth = std::max(nameWidth, TextWidth::columns(named(event->name)));
        levelWidth = std::max(levelWidth, TextWidth::columns(named(event->logLevelName)));
    }
    for (const Event *const event : events) {
        std::string &line = out.text();
        const std::string id = std::to_string(event->id);
        line.append(idWidth - id.size(), ' ');
        appendColumn(line, id, 0);
        appendColumn(line, named(event->logLevelName), levelWidth);
        appendColumn(line, named(event->name), nameWidth);
        line += printable(catalogue.text(*event).second);
        out.write("\n");
    }
}

void printItems(const QHash<int, QString> &items, OutputStream &out)
{
    for (const int value : DeclaredEvents::sortedValues(items)) {
        out.write("              " + std::to_string(value) + "  " + printable(items.value(value))
                  + '\n');
    }
}

void printArguments(const Event &event, const SystemeventCatalogue &tables, OutputStream &out)
{
    size_t nameWidth = 0;
    for (const SystemeventArgument &argument : event.arguments) {
        nameWidth = std::max(nameWidth, TextWidth::columns(named(argument.name)));
    }
    int number = 0;
    for (const SystemeventArgument &argument : event.arguments) {
        std::string line = number == 0 ? "arguments " : "          ";
        appendColumn(line, '%' + std::to_string(++number), 2);
        appendColumn(line, named(argument.name), nameWidth);
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

//! An empty line between two.
void printWhole(const Events &events, const Catalogue &catalogue, OutputStream &out)
{
    const char *separator = "";
    for (const Event *const event : events) {
        out.write(std::exchange(separator, "\n"));
        printEvent(*event, catalogue.textsToShow(*event), catalogue.tables(), out);
    }
}

// JSON.

void addMembers(JsonObject &object, const Event &event)
{
    object.addNumber("event", event.id);
    DeclaredEvents::addMembers(object, event);
}

void addItems(JsonObject &object, const QHash<int, QString> &items)
{
    std::string &out = object.addKey("items");
    const char *separator = "[";
    for (const int value : DeclaredEvents::sortedValues(items)) {
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
void printRows(const Event &event, const Texts &texts, const Catalogue &catalogue,
               OutputStream &out)
{
    const auto addText = [&](std::string &row, const QString &text) {
        row += ',';
        CsvText::appendCell(row, utf8(text), catalogue.isOnTerminal());
    };
    for (const auto &[language, text] : texts) {
        std::string &row = out.text();
        row += std::to_string(event.id);
        for (const QString &cell : {event.name, event.service, event.logLevelName}) {
            addText(row, cell);
        }
        row += ',' + std::to_string(event.logLevel);
        addText(row, DeclaredEvents::argumentsText(event, &catalogue.tables()));
        addText(row, language);
        addText(row, text);
        out.write(CsvText::endOfRow);
    }
}

// Raw.

//! How records of events stand in a log file, by one of each with nothing in it.
class ExampleRecords
{
public:
    ExampleRecords(const SystemeventCatalogue &catalogue, OutputStream &out)
        : kinds(&catalogue, QString())
        , printer(&catalogue, out)
    {
    }

    void print(const Event &event)
    {
        RecordView record;
        record.head.eventId = qint32(event.id);
        record.kind = kinds.find(record.head.eventId);
        record.path = "/";
        record.liveState = "example";
        record.liveReason = "all values are zero";
        const QByteArray bytes = bytesOf(record, event);
        record.bytes = {bytes.constData(), size_t(bytes.size())};
        printer.record(record);
    }

private:
    static QByteArray bytesOf(const RecordView &record, const Event &event)
    {
        QByteArray bytes;
        LogFormat::appendLogNr(bytes, record.head.logNr);
        LogFormat::appendTimestamp(bytes, 0, 0);
        LogFormat::appendEventId(bytes, record.head.eventId);
        (void)LogFormat::appendValue(bytes, QStringLiteral("/"));
        for (const SystemeventArgument &argument : event.arguments) {
            bytes.append(zerosOf(argument.type), '\0');
        }
        LogFormat::appendTail(bytes, 0);
        return bytes;
    }

    //! As many as a value of that type takes at least.
    static int zerosOf(int type)
    {
        constexpr std::string_view zeros{"\0\0\0\0\0\0\0\0", 8};
        ByteSource in(zeros);
        (void)LogFormat::readValue(in, type);
        return int(in.position());
    }

    EventKinds kinds;
    RawPrinter printer;
};

void printExamples(const Events &events, const SystemeventCatalogue &tables, OutputStream &out)
{
    ExampleRecords examples(tables, out);
    for (const Event *const event : events) {
        examples.print(*event);
    }
}

} // namespace

ExitStatus runCatalogueList(const Plan &plan, OutputStream &out)
{
    const Catalogue catalogue(plan);
    if (!catalogue.isLoaded()) {
        return ExitStatus::Failed;
    }
    const Events events = DeclaredEvents::all(catalogue.tables());
    switch (plan.output.format) {
    case Format::Text:
        printList(events, catalogue, out);
        break;
    case Format::Json:
        for (const Event *const event : events) {
            printObject(*event, catalogue, out);
        }
        break;
    case Format::Csv:
        printHeader(out);
        for (const Event *const event : events) {
            printRows(*event, {catalogue.text(*event)}, catalogue, out);
        }
        break;
    case Format::Raw:
        printExamples(events, catalogue.tables(), out);
        break;
    }
    return events.empty() ? ExitStatus::NothingMatched : ExitStatus::Done;
}

ExitStatus runCatalogueShow(const Plan &plan, OutputStream &out)
{
    const Catalogue catalogue(plan);
    if (!catalogue.isLoaded()) {
        return ExitStatus::Failed;
    }
    const Events found = DeclaredEvents::find(catalogue.tables(), plan.catalogue.event);
    if (found.empty()) {
        Messages::tell(QStringLiteral("the catalogue has no event \"%1\"; \"systemeventctl "
                                      "catalogue list\" shows those that it has")
                           .arg(plan.catalogue.event));
        return ExitStatus::NothingMatched;
    }
    switch (plan.output.format) {
    case Format::Text:
        printWhole(found, catalogue, out);
        break;
    case Format::Json:
        for (const Event *const event : found) {
            printWholeObject(*event, catalogue.textsToShow(*event), catalogue.tables(), out);
        }
        break;
    case Format::Csv:
        printHeader(out);
        for (const Event *const event : found) {
            const Texts texts = catalogue.textsToShow(*event);
            printRows(*event, texts.empty() ? Texts(1) : texts, catalogue, out);
        }
        break;
    case Format::Raw:
        printExamples(found, catalogue.tables(), out);
        break;
    }
    return ExitStatus::Done;
}

// SPDX-License-Identifier: Apache-2.0
#include "ctl/commandline.h"

#include <CLI/CLI.hpp>
#include <QFile>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

namespace
{

constexpr unsigned bit(Command command)
{
    return 1U << unsigned(command);
}
constexpr unsigned catalogueTables = bit(Command::CatalogueList) | bit(Command::CatalogueShow);
constexpr unsigned catalogueCommands = catalogueTables | bit(Command::CatalogueCheck);
constexpr unsigned everyCommand
    = bit(Command::Verify) | bit(Command::Salvage) | bit(Command::Repair) | catalogueCommands;

struct CommandText {
    Command command;
    const char *name; //!< of one word, or of two where there are several of a kind
    const char *summary;
    const char *text;      //!< in its own help
    const char *arguments; //!< besides options; null for none
};

constexpr CommandText commandTexts[] = {
    {Command::Verify, "verify", "looks for damage; reads only",
     "Looks through a folder of log files and tells of each file what it holds and what of it "
     "is damaged, which numbers are missing or there more than once, and how much of what can "
     "be read the daemon shows. Nothing is written. The daemon may be running.",
     nullptr},
    {Command::Salvage, "salvage", "prints what can be read of a damaged log",
     "Prints all records that can be made out, each with a judgement: whole, likely, or "
     "damaged, and what is no record as lost. The daemon may be running.",
     nullptr},
    {Command::Repair, "repair", "mends a damaged log in place, so that the daemon reads it",
     "Makes the daemon find every whole record of a damaged folder again. A torn end of the "
     "newest file is cut off; a file damaged before its end is written anew from its records. "
     "No byte is lost: what is taken out is kept in the subfolder damaged. A healthy folder "
     "is not written to. It may be stopped at any time and run again. Refused while the "
     "daemon runs.",
     nullptr},
    {Command::CatalogueCheck, "catalogue check", "tells what is wrong with a catalogue",
     "Looks for what the author of an event catalogue has not meant: the daemon takes any file "
     "and says nothing. An error is what it then shows wrong or not at all, a warning what is "
     "likely to be meant otherwise. Each is printed with its file, line and column.",
     "[FILE...]"},
    {Command::CatalogueList, "catalogue list", "prints the events of a catalogue",
     "Prints the events of the catalogue in the order of their ids: id, level, name and text.",
     nullptr},
    {Command::CatalogueShow, "catalogue show", "prints all that it says of an event",
     "Prints all that the catalogue says of an event, which is given by its id or its name: "
     "service, level, arguments with their types and items, and the texts in all languages.",
     "EVENT"},
};

enum class OptionId : quint8 {
    Folder,
    Catalogue,
    Format,
    Quiet,
    Sure,
    Target,
    DryRun,
    TimeLimit,
    Strict,
    Language,
    Help,
    Version,
};

struct OptionText {
    const char *names; //!< with commas in between
    const char *value; //!< null for a switch
    const char *text;
    unsigned commands;
    OptionId id;
};

//! All that is said of the options: parsing and help are made of it.
constexpr OptionText optionTexts[] = {
    {"-D,--directory", "DIR",
     "the folder of log files, instead of /srv/public/log; the bus is not asked then",
     everyCommand & ~catalogueCommands, OptionId::Folder},
    {"-C,--catalogue", "FILE", "the event catalogue, instead of /var/www/data/systemevent.xml",
     everyCommand, OptionId::Catalogue},
    {"-o,--output", "text|json",
     "for people, or one JSON object a line; salvage prints JSON unless told otherwise",
     everyCommand & ~catalogueCommands, OptionId::Format},
    {"-o,--output", "text|json", "for people, or one JSON object a line",
     bit(Command::CatalogueCheck), OptionId::Format},
    {"-o,--output", "text|json|csv", "for people, one JSON object a line, or a table",
     catalogueTables, OptionId::Format},
    {"--werror", nullptr, "exit with 1 for warnings, too", bit(Command::CatalogueCheck),
     OptionId::Strict},
    {"-l,--language", "LANGUAGE", "of the text; the locale's otherwise, or English",
     bit(Command::CatalogueList), OptionId::Language},
    {"-l,--language", "LANGUAGE", "only the text in that language, or else in English",
     bit(Command::CatalogueShow), OptionId::Language},
    {"-q,--quiet", nullptr, "say nothing where all is well", everyCommand & ~catalogueTables,
     OptionId::Quiet},
    {"--sure", nullptr, "only records that are whole beyond doubt", bit(Command::Salvage),
     OptionId::Sure},
    {"-O,--output-directory", "DIR",
     "write the whole records as a clean set of log files into DIR, which must not hold any, "
     "instead of printing them",
     bit(Command::Salvage), OptionId::Target},
    {"--dry-run", nullptr, "say what would be done, and do nothing", bit(Command::Repair),
     OptionId::DryRun},
    {"--time-limit", "SECONDS", "stop after that time; the next run goes on", bit(Command::Repair),
     OptionId::TimeLimit},
    {"-h,--help", nullptr, "show this help", everyCommand, OptionId::Help},
    {"-V,--version", nullptr, "show the version", 0, OptionId::Version},
};

constexpr char exitText[]
    = "Exit status: 0 healthy or done, 2 wrong usage, 3 damage found (the output is complete as "
      "far as it can be), 4 something cannot be read or written, or was refused.";
constexpr char checkExitText[]
    = "Exit status: 0 no errors, 1 errors (with --werror also for warnings), 2 wrong usage, 4 a "
      "file cannot be read.";
constexpr char tableExitText[]
    = "Exit status: 0 found, 1 there is no such event, 2 wrong usage, 4 the catalogue cannot be "
      "read.";

constexpr size_t width = 80;
constexpr size_t textColumn = 30;
constexpr size_t commandColumn = 19; //!< of a command's summary

//! Appends a text in lines that end before the right edge; the first begins at a column.
void appendWrapped(std::string &out, std::string_view text, size_t column, size_t indent)
{
    while (!text.empty()) {
        const size_t blank = std::min(text.find(' '), text.size());
        if (column > indent && column + 1 + blank >= width) {
            out += '\n';
            out.append(indent, ' ');
            column = indent;
        } else if (column > indent) {
            out += ' ';
            ++column;
        }
        out += text.substr(0, blank);
        column += blank;
        text.remove_prefix(std::min(blank + 1, text.size()));
    }
    out += '\n';
}

void appendOption(std::string &out, const OptionText &option)
{
    std::string line
        = std::string(option.names).front() == '-' && option.names[1] == '-' ? "      " : "  ";
    for (const char *c = option.names; *c != '\0'; ++c) {
        line += *c;
        line += *c == ',' ? " " : "";
    }
    if (option.value) {
        line += ' ';
        line += option.value;
    }
    if (line.size() + 2 > textColumn) {
        line += '\n';
        line.append(textColumn, ' ');
    } else {
        line.resize(textColumn, ' ');
    }
    out += line;
    appendWrapped(out, option.text, textColumn, textColumn);
}

const CommandText &textOf(Command command)
{
    return commandTexts[size_t(command)];
}

const char *exitTextOf(Command command)
{
    if ((bit(command) & catalogueTables) != 0) {
        return tableExitText;
    }
    return command == Command::CatalogueCheck ? checkExitText : exitText;
}

std::string commandHelp(Command command)
{
    const CommandText &told = textOf(command);
    std::string help = std::string("Usage: systemeventctl ") + told.name + " [OPTIONS]"
        + (told.arguments ? std::string(1, ' ') + told.arguments : std::string()) + "\n\n";
    appendWrapped(help, told.text, 0, 0);
    help += "\nOptions:\n";
    for (const OptionText &option : optionTexts) {
        if ((option.commands & bit(command)) != 0) {
            appendOption(help, option);
        }
    }
    help += '\n';
    appendWrapped(help, exitTextOf(command), 0, 0);
    return help;
}

//! Of all commands, or of those whose names begin with the words of \a group and a blank.
std::string generalHelp(const std::string &group)
{
    std::string help = "Usage: systemeventctl " + group + "COMMAND [OPTIONS]\n\n"
        + "The event log of a device: its files in people's hands.\n\nCommands:\n";
    for (const CommandText &command : commandTexts) {
        if (std::string_view(command.name).substr(0, group.size()) != group) {
            continue;
        }
        std::string line = std::string("  ") + command.name;
        line.resize(commandColumn, ' ');
        help += line;
        appendWrapped(help, command.summary, line.size(), line.size());
    }
    help += "\nOptions:\n";
    for (const OptionText &option : optionTexts) {
        if (option.id == OptionId::Help || option.id == OptionId::Version) {
            appendOption(help, option);
        }
    }
    help += "\n\"systemeventctl " + group + "COMMAND --help\" tells more of a command.\n";
    return help;
}

//! What was typed, before anything is made of it.
struct Typed {
    std::string folder;
    std::string catalogue;
    std::string format;
    std::string target;
    std::string language;
    std::vector<std::string> files;
    std::string event;
    unsigned timeLimit = 0;
    bool help = false;
    bool version = false;
    bool quiet = false;
    bool sure = false;
    bool dryRun = false;
    bool strict = false;
};

//! What an option may be given, of a text such as "text|json".
std::vector<std::string> alternatives(std::string_view text)
{
    std::vector<std::string> found;
    while (!text.empty()) {
        const size_t bar = std::min(text.find('|'), text.size());
        found.emplace_back(text.substr(0, bar));
        text.remove_prefix(std::min(bar + 1, text.size()));
    }
    return found;
}

void addOption(CLI::App &app, const OptionText &option, Typed &typed)
{
    switch (option.id) {
    case OptionId::Folder:
        app.add_option(option.names, typed.folder);
        return;
    case OptionId::Catalogue:
        app.add_option(option.names, typed.catalogue);
        return;
    case OptionId::Format:
        app.add_option(option.names, typed.format)
            ->check(CLI::IsMember(alternatives(option.value)));
        return;
    case OptionId::Target:
        app.add_option(option.names, typed.target);
        return;
    case OptionId::TimeLimit:
        app.add_option(option.names, typed.timeLimit)->check(CLI::Range(1U, 86400U));
        return;
    case OptionId::Quiet:
        app.add_flag(option.names, typed.quiet);
        return;
    case OptionId::Sure:
        app.add_flag(option.names, typed.sure);
        return;
    case OptionId::DryRun:
        app.add_flag(option.names, typed.dryRun);
        return;
    case OptionId::Strict:
        app.add_flag(option.names, typed.strict);
        return;
    case OptionId::Language:
        app.add_option(option.names, typed.language);
        return;
    case OptionId::Help:
        app.add_flag(option.names, typed.help);
        return;
    case OptionId::Version:
        app.add_flag(option.names, typed.version);
        return;
    }
}

QString fileName(const std::string &typed)
{
    return QFile::decodeName(QByteArray(typed.data(), QByteArray::size_type(typed.size())));
}

bool isGiven(const CLI::App &app, const char *name)
{
    const CLI::Option *const option = app.get_option_no_throw(name);
    return option != nullptr && option->count() > 0;
}

//! The locale's languages for messages, by its name alone, which need not be installed.
QStringList localeLanguages()
{
    for (const char *const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const QString value = qEnvironmentVariable(name);
        if (!value.isEmpty()) {
            const QString locale
                = value.section(QLatin1Char('.'), 0, 0).section(QLatin1Char('@'), 0, 0);
            return {locale, locale.section(QLatin1Char('_'), 0, 0)};
        }
    }
    return {};
}

CatalogueChoice catalogueChoice(const CLI::App &app, const Typed &typed, const QString &file)
{
    CatalogueChoice choice;
    for (const std::string &name : typed.files) {
        choice.files.append(fileName(name));
    }
    if (choice.files.isEmpty()) {
        choice.files.append(file);
    }
    choice.warningsAreErrors = typed.strict;
    choice.event = QString::fromStdString(typed.event);
    choice.isLanguageNamed = isGiven(app, "-l");
    choice.languages = choice.isLanguageNamed ? QStringList(QString::fromStdString(typed.language))
                                              : localeLanguages();
    return choice;
}

Plan planOf(Command command, const CLI::App &app, const Typed &typed)
{
    Plan plan;
    plan.command = command;
    if (isGiven(app, "-D")) {
        plan.source.folder = fileName(typed.folder);
        plan.source.folderIsNamed = true;
    }
    if (isGiven(app, "-C")) {
        plan.source.catalogue = fileName(typed.catalogue);
        plan.source.catalogueIsNamed = true;
    }
    const bool isJson = typed.format.empty() ? command == Command::Salvage && !isGiven(app, "-O")
                                             : typed.format == "json";
    plan.output.format = isJson ? Format::Json : typed.format == "csv" ? Format::Csv : Format::Text;
    plan.output.isQuiet = typed.quiet;
    plan.salvage.sureOnly = typed.sure;
    if (isGiven(app, "-O")) {
        plan.salvage.folder = fileName(typed.target);
        plan.salvage.isToFolder = true;
    }
    plan.repair.dryRun = typed.dryRun;
    plan.repair.timeLimit = typed.timeLimit;
    plan.catalogue = catalogueChoice(app, typed, plan.source.catalogue);
    return plan;
}

CommandLine answer(std::string text)
{
    CommandLine line;
    line.answer = std::move(text);
    return line;
}

CommandLine complain(const std::string &text, const std::string &helpOf)
{
    CommandLine line;
    line.complaint = text + "; see \"systemeventctl " + helpOf + "--help\"";
    line.status = ExitStatus::WrongUsage;
    return line;
}

//! What a command takes besides options.
void addArguments(CLI::App &app, Command command, Typed &typed)
{
    if (command == Command::CatalogueCheck) {
        app.add_option("FILE", typed.files)->excludes(app.get_option("-C"));
    } else if (command == Command::CatalogueShow) {
        app.add_option("EVENT", typed.event);
    }
}

//! The parser, of which help and messages are not used: they would say things twice.
struct Parser {
    Parser()
    {
        prepare(app);
        for (const CommandText &command : commandTexts) {
            CLI::App &sub = subcommand(command.name);
            sub.set_help_flag();
            for (const OptionText &option : optionTexts) {
                if ((option.commands & bit(command.command)) != 0) {
                    addOption(sub, option, typed);
                }
            }
            addArguments(sub, command.command, typed);
        }
    }

    //! What was named, from the first word to the last.
    [[nodiscard]] std::vector<const CLI::App *> chosen() const
    {
        std::vector<const CLI::App *> path;
        const CLI::App *last = &app;
        while (!last->get_subcommands().empty()) {
            last = last->get_subcommands().front();
            path.push_back(last);
        }
        return path;
    }
    //! The same as words, each with a blank behind it.
    [[nodiscard]] std::string words() const
    {
        std::string text;
        for (const CLI::App *const each : chosen()) {
            text += each->get_name() + ' ';
        }
        return text;
    }

    CLI::App app;
    Typed typed;

private:
    //! Makes it one that has commands.
    void prepare(CLI::App &group)
    {
        group.set_help_flag();
        group.require_subcommand(0, 1);
        for (const OptionText &option : optionTexts) {
            if (option.id == OptionId::Help || (option.id == OptionId::Version && &group == &app)) {
                addOption(group, option, typed);
            }
        }
    }

    //! Adds it, and the group that its name may begin with.
    CLI::App &subcommand(const std::string &name)
    {
        const size_t blank = name.find(' ');
        if (blank == std::string::npos) {
            return *app.add_subcommand(name);
        }
        const std::string group = name.substr(0, blank);
        std::vector<CLI::App *> found = app.get_subcommands(
            [&group](const CLI::App *each) { return each->get_name() == group; });
        if (found.empty()) {
            found.push_back(app.add_subcommand(group));
            prepare(*found.front());
        }
        return *found.front()->add_subcommand(name.substr(blank + 1));
    }
};

CommandLine meaningOf(const Parser &parser)
{
    if (parser.typed.version) {
        return answer("systemeventctl " SEL_VERSION "\n");
    }
    const std::string words = parser.words();
    const auto *const command = std::find_if(
        std::begin(commandTexts), std::end(commandTexts),
        [&words](const CommandText &each) { return words == each.name + std::string(1, ' '); });
    if (command == std::end(commandTexts)) {
        return parser.typed.help ? answer(generalHelp(words))
                                 : complain("a command is missing", words);
    }
    if (parser.typed.help) {
        return answer(commandHelp(command->command));
    }
    if (command->command == Command::CatalogueShow && parser.typed.event.empty()) {
        return complain("an event is missing", words);
    }
    CommandLine line;
    line.plan = planOf(command->command, *parser.chosen().back(), parser.typed);
    return line;
}

} // namespace

CommandLine CommandLine::read(int argc, const char *const *argv)
{
    Parser parser;
    try {
        parser.app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return complain(error.what(), parser.words());
    }
    return meaningOf(parser);
}

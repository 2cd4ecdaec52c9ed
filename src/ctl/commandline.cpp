// SPDX-License-Identifier: Apache-2.0
#include "ctl/commandline.h"

#include <CLI/CLI.hpp>
#include <QFile>

#include <algorithm>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

namespace
{

constexpr unsigned bit(Command command)
{
    return 1U << unsigned(command);
}
constexpr unsigned everyCommand
    = bit(Command::Verify) | bit(Command::Salvage) | bit(Command::Repair);
constexpr unsigned busCommands = bit(Command::Emit) | bit(Command::Settings) | bit(Command::Clear);

struct CommandText {
    Command command = Command::Verify;
    const char *name = nullptr;
    const char *summary = nullptr;
    const char *text = nullptr;     //!< in its own help
    const char *operands = nullptr; //!< null for none
    size_t leastOperands = 0;
    size_t mostOperands = std::numeric_limits<size_t>::max();
};

constexpr CommandText commandTexts[] = {
    {Command::Verify, "verify", "looks for damage; reads only",
     "Looks through a folder of log files and tells of each file what it holds and what of it "
     "is damaged, which numbers are missing or there more than once, and how much of what can "
     "be read the daemon shows. Nothing is written. The daemon may be running."},
    {Command::Salvage, "salvage", "prints what can be read of a damaged log",
     "Prints all records that can be made out, each with a judgement: whole, likely, or "
     "damaged, and what is no record as lost. The daemon may be running."},
    {Command::Repair, "repair", "mends a damaged log in place, so that the daemon reads it",
     "Makes the daemon find every whole record of a damaged folder again. A torn end of the "
     "newest file is cut off; a file damaged before its end is written anew from its records. "
     "No byte is lost: what is taken out is kept in the subfolder damaged. A healthy folder "
     "is not written to. It may be stopped at any time and run again. Refused while the "
     "daemon runs."},
    {Command::Emit, "emit", "announces a status change, checked against the catalogue",
     "Announces a status change on the system bus, as a service would. EVENT is an id or a name "
     "of the catalogue. A value fills the argument that it names, as in \"volts=24.1\", or else "
     "the next one; of an enum it is the number or the text of an item. It is sent by the type "
     "that is read back as it was typed: a byte or int16 only as the last argument, an enum "
     "there or with the items 0 and 1. A variant gets true or false as a bool, whole numbers as "
     "an int, others as a double, and everything else as a text. What does not fit is refused. "
     "Write -- in front of a text that begins with a dash.",
     "EVENT [VALUE...]", 1},
    {Command::Settings, "settings", "shows or changes the daemon's settings",
     "Shows what holds now and what the configuration service has stored; with VALUE changes a "
     "setting. logLocal: events are stored. logNetwork: they are sent as datagrams, to "
     "logNetworkAddress, in logNetworkLang, which is not kept over a start. logtail: the index "
     "of the oldest log file. loglevel: from the next start on only events whose level has a "
     "greater number are logged, below 0 all of them; writing it also sets logtail to the same "
     "number, which may delete files.",
     "[NAME [VALUE]]", 0, 2},
    {Command::Clear, "clear", "deletes the log",
     "Has the daemon delete its log files and what it has not written yet. Numbers go on."},
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
    EmitPath,
    Types,
    Wait,
    Yes,
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
     "the folder of log files, instead of /srv/public/log; the bus is not asked then", everyCommand,
     OptionId::Folder},
    {"-C,--catalogue", "FILE", "the event catalogue, instead of /var/www/data/systemevent.xml",
     everyCommand | bit(Command::Emit), OptionId::Catalogue},
    {"-o,--output", "text|json",
     "for people, or one JSON object a line; salvage prints JSON unless told otherwise",
     everyCommand | bit(Command::Settings), OptionId::Format},
    {"-q,--quiet", nullptr, "say nothing where all is well", everyCommand | busCommands,
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
    {"--path", "PATH", "the object that announces it, instead of /systemeventctl",
     bit(Command::Emit), OptionId::EmitPath},
    {"--type", "TYPES",
     "send exactly these D-Bus types, such as sid for a text, an int and a double, and check "
     "nothing; the event may be an id that the catalogue does not know; b, y, n, q, i, u, x, t, "
     "d, s, o, ay, as, and v in front of another",
     bit(Command::Emit), OptionId::Types},
    {"--wait", nullptr,
     "come back when the record can be read in the log files, within some 30 seconds, and "
     "print its number",
     bit(Command::Emit), OptionId::Wait},
    {"--yes", nullptr, "delete without being asked, as is wanted where there is no terminal",
     bit(Command::Settings) | bit(Command::Clear), OptionId::Yes},
    {"-h,--help", nullptr, "show this help", everyCommand | busCommands, OptionId::Help},
    {"-V,--version", nullptr, "show the version", 0, OptionId::Version},
};

constexpr char exitText[]
    = "Exit status: 0 healthy or done, 2 wrong usage, 3 damage found (the output is complete as "
      "far as it can be), 4 something cannot be read or written, or was refused.";

constexpr size_t width = 80;
constexpr size_t textColumn = 30;

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

std::string commandHelp(Command command)
{
    const CommandText &told = textOf(command);
    std::string help = std::string("Usage: systemeventctl ") + told.name + ' '
        + (told.operands ? std::string(told.operands) + ' ' : std::string()) + "[OPTIONS]\n\n";
    appendWrapped(help, told.text, 0, 0);
    help += "\nOptions:\n";
    for (const OptionText &option : optionTexts) {
        if ((option.commands & bit(command)) != 0) {
            appendOption(help, option);
        }
    }
    help += '\n';
    appendWrapped(help, exitText, 0, 0);
    return help;
}

std::string generalHelp()
{
    std::string help = "Usage: systemeventctl COMMAND [OPTIONS]\n\n"
                       "The event log of a device: its files in people's hands.\n\nCommands:\n";
    for (const CommandText &command : commandTexts) {
        std::string line = std::string("  ") + command.name;
        line.resize(12, ' ');
        help += line;
        appendWrapped(help, command.summary, line.size(), line.size());
    }
    help += "\nOptions:\n";
    for (const OptionText &option : optionTexts) {
        if (option.id == OptionId::Help || option.id == OptionId::Version) {
            appendOption(help, option);
        }
    }
    help += "\n\"systemeventctl COMMAND --help\" tells more of a command.\n";
    return help;
}

//! What was typed, before anything is made of it.
struct Typed {
    std::string folder;
    std::string catalogue;
    std::string format;
    std::string target;
    unsigned timeLimit = 0;
    std::string path;
    std::string types;
    bool wait = false;
    bool yes = false;
    bool help = false;
    bool version = false;
    bool quiet = false;
    bool sure = false;
    bool dryRun = false;
};

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
        app.add_option(option.names, typed.format)->check(CLI::IsMember({"text", "json"}));
        return;
    case OptionId::Target:
        app.add_option(option.names, typed.target);
        return;
    case OptionId::TimeLimit:
        app.add_option(option.names, typed.timeLimit)->check(CLI::Range(1U, 86400U));
        return;
    case OptionId::EmitPath:
        app.add_option(option.names, typed.path);
        return;
    case OptionId::Types:
        app.add_option(option.names, typed.types);
        return;
    case OptionId::Wait:
        app.add_flag(option.names, typed.wait);
        return;
    case OptionId::Yes:
        app.add_flag(option.names, typed.yes);
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
    case OptionId::Help:
        app.add_flag(option.names, typed.help);
        return;
    case OptionId::Version:
        app.add_flag(option.names, typed.version);
        return;
    }
}

QByteArray bytesOf(const std::string &typed)
{
    return {typed.data(), QByteArray::size_type(typed.size())};
}

QString fileName(const std::string &typed)
{
    return QFile::decodeName(bytesOf(typed));
}

bool isGiven(const CLI::App &app, const char *name)
{
    const CLI::Option *const option = app.get_option_no_throw(name);
    return option != nullptr && option->count() > 0;
}

constexpr char operandsName[] = "operands";

/*!
 * As many as come. They are wanted rather than allowed: of those allowed the parser takes
 * one in brackets apart.
 */
void addOperands(CLI::App &app)
{
    constexpr int moreThanEverCome = 1 << 24;
    app.add_option(operandsName)
        ->expected(moreThanEverCome)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

std::vector<std::string> operandsOf(const CLI::App &app)
{
    const CLI::Option *const option = app.get_option_no_throw(operandsName);
    return option != nullptr ? option->results() : std::vector<std::string>();
}

EmitChoice emitChoiceOf(const CLI::App &app, const Typed &typed)
{
    EmitChoice emit;
    const std::vector<std::string> operands = operandsOf(app);
    emit.event = QString::fromStdString(operands.empty() ? std::string() : operands.front());
    for (size_t i = 1; i < operands.size(); ++i) {
        emit.values.append(bytesOf(operands[i]));
    }
    if (isGiven(app, "--path")) {
        emit.path = bytesOf(typed.path);
    }
    emit.types = typed.types;
    emit.hasTypes = isGiven(app, "--type");
    emit.waits = typed.wait;
    return emit;
}

SettingsChoice settingsChoiceOf(const CLI::App &app)
{
    SettingsChoice settings;
    const std::vector<std::string> operands = operandsOf(app);
    if (!operands.empty()) {
        settings.name = QString::fromStdString(operands.front());
    }
    if (operands.size() > 1) {
        settings.value = QString::fromStdString(operands[1]);
    }
    return settings;
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
    plan.output.format = isJson ? Format::Json : Format::Text;
    plan.output.isQuiet = typed.quiet;
    plan.salvage.sureOnly = typed.sure;
    if (isGiven(app, "-O")) {
        plan.salvage.folder = fileName(typed.target);
        plan.salvage.isToFolder = true;
    }
    plan.repair.dryRun = typed.dryRun;
    plan.repair.timeLimit = typed.timeLimit;
    plan.emit = emitChoiceOf(app, typed);
    plan.settings = settingsChoiceOf(app);
    plan.consent.isGiven = typed.yes;
    plan.consent.canAsk = isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1;
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

//! The parser, of which help and messages are not used: they would say things twice.
struct Parser {
    Parser()
    {
        app.set_help_flag();
        app.require_subcommand(0, 1);
        for (const OptionText &option : optionTexts) {
            if (option.id == OptionId::Help || option.id == OptionId::Version) {
                addOption(app, option, typed);
            }
        }
        for (const CommandText &command : commandTexts) {
            CLI::App &sub = *app.add_subcommand(command.name);
            sub.set_help_flag();
            if (command.operands) {
                addOperands(sub);
            }
            for (const OptionText &option : optionTexts) {
                if ((option.commands & bit(command.command)) != 0) {
                    addOption(sub, option, typed);
                }
            }
        }
    }

    CLI::App app;
    Typed typed;
};

CommandLine meaningOf(const Parser &parser)
{
    if (parser.typed.version) {
        return answer("systemeventctl " SEL_VERSION "\n");
    }
    const std::vector<CLI::App *> chosen = parser.app.get_subcommands();
    if (chosen.empty()) {
        return parser.typed.help ? answer(generalHelp()) : complain("a command is missing", "");
    }
    const CLI::App &app = *chosen.front();
    const auto *const command
        = std::find_if(std::begin(commandTexts), std::end(commandTexts),
                       [&app](const CommandText &each) { return app.get_name() == each.name; });
    if (parser.typed.help) {
        return answer(commandHelp(command->command));
    }
    const size_t operands = operandsOf(app).size();
    if (operands < command->leastOperands) {
        return complain(std::string(command->operands) + " is missing", app.get_name() + ' ');
    }
    if (operands > command->mostOperands) {
        return complain("there is more than " + std::string(command->operands),
                        app.get_name() + ' ');
    }
    CommandLine line;
    line.plan = planOf(command->command, app, parser.typed);
    return line;
}

} // namespace

CommandLine CommandLine::read(int argc, const char *const *argv)
{
    Parser parser;
    try {
        parser.app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        const std::vector<CLI::App *> chosen = parser.app.get_subcommands();
        return complain(error.what(), chosen.empty() ? "" : chosen.front()->get_name() + ' ');
    }
    return meaningOf(parser);
}

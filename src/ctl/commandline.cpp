// SPDX-License-Identifier: Apache-2.0
#include "ctl/commandline.h"

#include "ctl/completion.h"
#include "ctl/options.h"
#include "ctl/optionvalues.h"
#include "ctl/surroundings.h"
#include "ctl/timetext.h"

#include <CLI/CLI.hpp>
#include <QFile>

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

namespace
{

using Options::CommandText;
using Options::commandTexts;
using Options::OptionId;
using Options::OptionText;
using Options::optionTexts;

//! What was typed, before anything is made of it.
class Typed
{
public:
    std::vector<std::string> &values(OptionId id) { return texts[size_t(id)]; }
    bool &flag(OptionId id) { return flags[size_t(id)]; }

    [[nodiscard]] bool isOn(OptionId id) const { return flags[size_t(id)]; }
    [[nodiscard]] bool has(OptionId id) const { return !all(id).empty(); }
    [[nodiscard]] const std::vector<std::string> &all(OptionId id) const
    {
        return texts[size_t(id)];
    }
    //! Of an option that was given once.
    [[nodiscard]] const std::string &text(OptionId id) const { return all(id).front(); }

    std::vector<std::string> arguments; //!< of the command, behind its name

private:
    std::array<std::vector<std::string>, Options::optionCount> texts;
    std::array<bool, Options::optionCount> flags{};
};

void addOption(CLI::App &app, const OptionText &option, Typed &typed)
{
    if (option.value) {
        app.add_option(option.names, typed.values(option.id))
            ->expected(1)
            ->allow_extra_args(false)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    } else {
        app.add_flag(option.names, typed.flag(option.id));
    }
}

constexpr char argumentsName[] = "arguments";

/*!
 * As many as come. They are wanted rather than allowed: of those allowed the parser takes
 * one in brackets apart.
 */
void addArguments(CLI::App &app)
{
    constexpr int moreThanEverCome = 1 << 24;
    app.add_option(argumentsName)
        ->expected(moreThanEverCome)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

//! The long name, as messages have it.
const char *nameOf(const OptionText &option)
{
    const std::string_view names = option.names;
    const size_t comma = names.find(',');
    return option.names + (comma == std::string_view::npos ? 0 : comma + 1);
}

const char *nameOf(OptionId id)
{
    return nameOf(*std::find_if(std::begin(optionTexts), std::end(optionTexts),
                                [id](const OptionText &option) { return option.id == id; }));
}

//! Calls a function of the option's name and the text for each text that was given.
template <typename Take>
void forEach(const Typed &typed, OptionId id, Take &&take)
{
    for (const std::string &text : typed.all(id)) {
        take(nameOf(id), text);
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

SourceChoice sourceOf(const Typed &typed)
{
    SourceChoice source;
    if (typed.has(OptionId::Folder)) {
        source.folder = fileName(typed.text(OptionId::Folder));
        source.folderIsNamed = true;
    }
    if (typed.has(OptionId::Catalogue)) {
        source.catalogue = fileName(typed.text(OptionId::Catalogue));
        source.catalogueIsNamed = true;
    }
    return source;
}

SelectionChoice selectionOf(const Typed &typed, const Instant &now)
{
    SelectionChoice chosen;
    forEach(typed, OptionId::Last, [&](const char *name, const std::string &text) {
        chosen.last = OptionValues::number(name, text, 0, std::numeric_limits<qint64>::max());
    });
    chosen.newestFirst = typed.isOn(OptionId::NewestFirst);
    forEach(typed, OptionId::Since, [&](const char *name, const std::string &text) {
        chosen.since = OptionValues::time(name, text, now, TimePoint::Reading::First);
    });
    forEach(typed, OptionId::Until, [&](const char *name, const std::string &text) {
        chosen.until = OptionValues::time(name, text, now, TimePoint::Reading::Second);
    });
    forEach(typed, OptionId::Number, [&](const char *name, const std::string &text) {
        chosen.numbers.push_back(OptionValues::numberRange(name, text));
    });
    forEach(typed, OptionId::Level, [&](const char *name, const std::string &text) {
        chosen.levels.push_back(OptionValues::levelRange(name, text));
    });
    forEach(typed, OptionId::Event, [&](const char *name, const std::string &text) {
        chosen.events.push_back(OptionValues::event(name, text));
    });
    forEach(typed, OptionId::Service, [&](const char * /*name*/, const std::string &text) {
        chosen.services.append(QString::fromStdString(text));
    });
    forEach(typed, OptionId::Path, [&](const char *name, const std::string &text) {
        chosen.paths.push_back(OptionValues::pattern(name, text));
    });
    forEach(typed, OptionId::Text, [&](const char *name, const std::string &text) {
        chosen.texts.append(OptionValues::expression(name, text));
    });
    return chosen;
}

Format formatOf(const Typed &typed, Command command)
{
    const char *const name = nameOf(OptionId::Format);
    if (!typed.has(OptionId::Format)) {
        const bool isJson = command == Command::Salvage && !typed.has(OptionId::Target);
        return isJson ? Format::Json : Format::Text;
    }
    const std::string &text = typed.text(OptionId::Format);
    if ((Options::inAllFormats & Options::bit(command)) == 0) {
        return OptionValues::oneOf<Format>(name, text,
                                           {{"text", Format::Text}, {"json", Format::Json}});
    }
    return OptionValues::oneOf<Format>(name, text,
                                       {{"text", Format::Text},
                                        {"json", Format::Json},
                                        {"csv", Format::Csv},
                                        {"raw", Format::Raw}});
}

enum class ColourChoice : quint8 { Auto, Always, Never };

bool isColoured(const Typed &typed, const Surroundings &surroundings)
{
    ColourChoice chosen = ColourChoice::Auto;
    forEach(typed, OptionId::Colour, [&](const char *name, const std::string &text) {
        chosen = OptionValues::oneOf<ColourChoice>(name, text,
                                                   {{"auto", ColourChoice::Auto},
                                                    {"always", ColourChoice::Always},
                                                    {"never", ColourChoice::Never}});
    });
    return chosen == ColourChoice::Auto ? surroundings.takesColours
                                        : chosen == ColourChoice::Always;
}

TimeStyle timeStyleOf(const char *name, const std::string &text, Command command)
{
    if (command == Command::Report || command == Command::Stats) {
        return OptionValues::oneOf<TimeStyle>(
            name, text, {{"local", TimeStyle::Local}, {"utc", TimeStyle::Utc}});
    }
    return OptionValues::oneOf<TimeStyle>(name, text,
                                          {{"local", TimeStyle::Local},
                                           {"utc", TimeStyle::Utc},
                                           {"iso", TimeStyle::Iso},
                                           {"unix", TimeStyle::Unix},
                                           {"relative", TimeStyle::Relative}});
}

OutputChoice outputOf(const Typed &typed, Command command, const Surroundings &surroundings)
{
    OutputChoice output;
    output.format = formatOf(typed, command);
    output.isQuiet = typed.isOn(OptionId::Quiet);
    forEach(typed, OptionId::Language, [&](const char * /*name*/, const std::string &text) {
        output.language = QString::fromStdString(text);
    });
    output.localeLanguages = surroundings.languages;
    forEach(typed, OptionId::Time, [&](const char *name, const std::string &text) {
        output.time = timeStyleOf(name, text, command);
    });
    if (!typed.isOn(OptionId::Follow)) {
        output.now = surroundings.now;
    }
    output.isOnTerminal = surroundings.isTerminal;
    output.isColoured = isColoured(typed, surroundings);
    output.columns = surroundings.isTerminal ? surroundings.columns : 0;
    if (!typed.isOn(OptionId::NoPager) && !typed.isOn(OptionId::Follow)
        && command != Command::Watch) {
        output.pager = surroundings.pager;
    }
    return output;
}

//! What prints all the time on a terminal shows by that how far it has come.
bool isProgressShown(const Plan &plan, const Surroundings &surroundings)
{
    const bool isPrinting = plan.command == Command::Salvage && !plan.salvage.isToFolder;
    return surroundings.isErrorTerminal && !plan.output.isQuiet
        && !(isPrinting && surroundings.isTerminal);
}

EmitChoice emitOf(const Typed &typed)
{
    EmitChoice emit;
    emit.event = QString::fromStdString(typed.arguments.front());
    std::transform(typed.arguments.begin() + 1, typed.arguments.end(),
                   std::back_inserter(emit.values), bytesOf);
    forEach(typed, OptionId::Emitter,
            [&](const char * /*name*/, const std::string &text) { emit.path = bytesOf(text); });
    forEach(typed, OptionId::Types,
            [&](const char * /*name*/, const std::string &text) { emit.types = text; });
    emit.waits = typed.isOn(OptionId::Wait);
    return emit;
}

CatalogueChoice catalogueOf(Command command, const Typed &typed, const SourceChoice &source)
{
    CatalogueChoice catalogue;
    catalogue.warningsAreErrors = typed.isOn(OptionId::Strict);
    if (command == Command::CatalogueShow) {
        catalogue.event = QString::fromStdString(typed.arguments.front());
        return catalogue;
    }
    std::transform(typed.arguments.begin(), typed.arguments.end(),
                   std::back_inserter(catalogue.files), fileName);
    if (!catalogue.files.isEmpty() && source.catalogueIsNamed) {
        throw WrongUsage{std::string(nameOf(OptionId::Catalogue))
                         + " names the file to be checked, so it cannot go with FILE"};
    }
    if (catalogue.files.isEmpty()) {
        catalogue.files.append(source.catalogue);
    }
    return catalogue;
}

SettingsChoice settingsOf(const Typed &typed)
{
    SettingsChoice settings;
    if (!typed.arguments.empty()) {
        settings.name = QString::fromStdString(typed.arguments[0]);
    }
    if (typed.arguments.size() > 1) {
        settings.value = QString::fromStdString(typed.arguments[1]);
    }
    return settings;
}

//! Either both are given or none; in front of all records there is no time.
CollectChoice collectOf(const Typed &typed, const Instant &now)
{
    CollectChoice collect;
    forEach(typed, OptionId::After, [&](const char *name, const std::string &text) {
        collect.number = OptionValues::number(name, text, 0, std::numeric_limits<qint64>::max());
    });
    const bool isTimeWanted = typed.has(OptionId::After) && collect.number > 0;
    if ((isTimeWanted && !typed.has(OptionId::At))
        || (typed.has(OptionId::At) && !typed.has(OptionId::After))) {
        throw WrongUsage{"--after and --at go together: a record's number and its time"};
    }
    forEach(typed, OptionId::At, [&](const char *name, const std::string &text) {
        std::string written;
        collect.time = OptionValues::time(name, text, now, TimePoint::Reading::Second);
        if (!appendTime(written, collect.time.seconds, collect.time.microseconds)) {
            throw WrongUsage{std::string(name) + ": \"" + text + "\" is no time of a record"};
        }
    });
    return collect;
}

Plan planOf(Command command, const Typed &typed)
{
    const Surroundings surroundings = Surroundings::look();
    Plan plan;
    plan.command = command;
    plan.source = sourceOf(typed);
    plan.selection = selectionOf(typed, surroundings.now);
    plan.output = outputOf(typed, command, surroundings);
    plan.show.follow = typed.isOn(OptionId::Follow);
    if (plan.show.follow && plan.selection.newestFirst) {
        throw WrongUsage{"--follow goes on with what is new, so it cannot go with --reverse"};
    }
    plan.salvage.sureOnly = typed.isOn(OptionId::Sure);
    if (typed.has(OptionId::Target)) {
        plan.salvage.folder = fileName(typed.text(OptionId::Target));
        plan.salvage.isToFolder = true;
        if (plan.selection.newestFirst) {
            throw WrongUsage{"--reverse is for what is printed, so it cannot go with "
                             "--output-directory"};
        }
    }
    if (command == Command::Report) {
        plan.report.file = fileName(typed.arguments.front());
    }
    plan.output.isProgressShown = isProgressShown(plan, surroundings);
    plan.repair.dryRun = typed.isOn(OptionId::DryRun);
    forEach(typed, OptionId::TimeLimit, [&](const char *name, const std::string &text) {
        constexpr quint64 aDay = 86400;
        plan.repair.timeLimit = uint(OptionValues::number(name, text, 1, aDay));
    });
    if (command == Command::Emit) {
        plan.emit = emitOf(typed);
    }
    if ((Options::catalogueCommands & Options::bit(command)) != 0) {
        plan.catalogue = catalogueOf(command, typed, plan.source);
    }
    if (command == Command::Settings) {
        plan.settings = settingsOf(typed);
    }
    plan.collect = collectOf(typed, surroundings.now);
    plan.consent = {typed.isOn(OptionId::Yes), surroundings.canAsk};
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
        makeGroup(app);
        for (const CommandText &command : commandTexts) {
            CLI::App &sub = addCommand(command.name);
            sub.set_help_flag();
            if (command.arguments) {
                addArguments(sub);
            }
            for (const OptionText &option : optionTexts) {
                if ((option.commands & Options::bit(command.command)) != 0) {
                    addOption(sub, option, typed);
                }
            }
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
    void makeGroup(CLI::App &group)
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
    CLI::App &addCommand(const std::string &name)
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
            makeGroup(*found.front());
        }
        return *found.front()->add_subcommand(name.substr(blank + 1));
    }
};

/*!
 * The arguments with the command that is meant where none is named: at the front there is
 * an option, which is not one of those that stand alone, or nothing.
 */
std::vector<std::string> withCommand(int argc, const char *const *argv)
{
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    const std::string_view first = arguments.empty() ? std::string_view() : arguments.front();
    const bool isAlone
        = first == "-h" || first == "--help" || first == "-V" || first == "--version";
    if (arguments.empty() || (first.substr(0, 1) == "-" && !isAlone)) {
        arguments.insert(arguments.begin(), commandTexts[size_t(Command::Show)].name);
    }
    return arguments;
}

CommandLine meaningOf(Parser &parser)
{
    if (parser.typed.isOn(OptionId::Version)) {
        return answer("systemeventctl " SEL_VERSION "\n");
    }
    const std::string words = parser.words();
    const auto *const command = std::find_if(
        std::begin(commandTexts), std::end(commandTexts),
        [&words](const CommandText &each) { return words == each.name + std::string(1, ' '); });
    if (command == std::end(commandTexts)) {
        if (parser.typed.isOn(OptionId::Help)) {
            return answer(Options::generalHelp(words));
        }
        throw WrongUsage{"a command is missing"};
    }
    if (parser.typed.isOn(OptionId::Help)) {
        return answer(Options::commandHelp(command->command));
    }
    for (const OptionText &option : optionTexts) {
        if (!option.isRepeatable && parser.typed.all(option.id).size() > 1) {
            throw WrongUsage{std::string(nameOf(option)) + " can be given once"};
        }
    }
    if (command->arguments) {
        parser.typed.arguments = parser.chosen().back()->get_option(argumentsName)->results();
    }
    const size_t count = parser.typed.arguments.size();
    if (count < command->leastArguments || count > command->mostArguments) {
        throw WrongUsage{std::string(command->name) + " takes " + command->arguments};
    }
    CommandLine line;
    line.plan = planOf(command->command, parser.typed);
    return line;
}

//! What is said of words that nothing takes.
std::string unexpected(const std::vector<std::string> &words)
{
    std::string text = words.size() > 1 ? "these were not expected:" : "this was not expected:";
    bool isCommand = false;
    for (const std::string &word : words) {
        text += ' ' + word;
        isCommand = isCommand
            || std::any_of(std::begin(commandTexts), std::end(commandTexts),
                           [&word](const CommandText &each) { return word == each.name; });
    }
    return isCommand ? text + "; a command stands in front of its options" : text;
}

} // namespace

CommandLine CommandLine::read(int argc, const char *const *argv)
{
    if (argc > 1 && argv[1] == std::string_view(Completion::request)) {
        CommandLine line;
        line.completed.emplace(argv + 2, argv + argc);
        return line;
    }
    Parser parser;
    std::string complaint;
    try {
        std::vector<std::string> arguments = withCommand(argc, argv);
        std::reverse(arguments.begin(), arguments.end()); // as the parser takes them
        parser.app.parse(std::move(arguments));
        return meaningOf(parser);
    } catch (const CLI::ExtrasError &) {
        complaint = unexpected(parser.app.remaining(true));
    } catch (const CLI::ParseError &error) {
        complaint = error.what();
    } catch (const WrongUsage &wrong) {
        complaint = wrong.reason;
    }
    return complain(complaint, parser.words());
}

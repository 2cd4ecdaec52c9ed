// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/plan.h"

#include <limits>
#include <string>

/*!
 * All that is said of commands and options, once: the parser and the help are made of these
 * tables.
 */
namespace Options
{

constexpr unsigned bit(Command command)
{
    return 1U << unsigned(command);
}

struct CommandText {
    Command command = Command::Show;
    const char *name = nullptr; //!< of one word, or of two where there are several of a kind
    const char *summary = nullptr;
    const char *text = nullptr;      //!< in its own help
    const char *arguments = nullptr; //!< besides options; null for none
    size_t leastArguments = 0;
    size_t mostArguments = 0;
};

constexpr CommandText commandTexts[] = {
    {Command::Show, "show", "prints stored records; what is done without a command",
     "Prints the records of a folder of log files in the order of their numbers, the oldest "
     "first. The daemon may be running."},
    {Command::Watch, "watch", "prints status changes live, as they are announced",
     "Prints status changes from the system bus as services announce them, stored or not, until "
     "Ctrl-C. They have no numbers yet, and the texts of the daemon's datagrams. Marked are "
     "events that the catalogue does not know, and those of which the values do not fit what it "
     "declares: they are not read back from the log as they were sent."},
    {Command::Stats, "stats", "counts records by level, event, service, path and time",
     "Counts the records of a folder of log files by level, event, service, path and time, and "
     "tells which numbers are missing or there more than once, where the clock went back and "
     "what is damaged. Only what is selected is counted. The daemon may be running."},
    {Command::Report, "report", "writes a page for a browser",
     "Writes the selected records as one page for a browser, which needs nothing else: a "
     "timeline, counts, a table to search and filter, and all of each record. The file is "
     "there when it is complete, in place of an old one. The daemon may be running.",
     "FILE.html", 1, 1},
    {Command::Verify, "verify", "looks for damage; reads only",
     "Looks through a folder of log files and tells of each file what it holds and what of it "
     "is damaged, which numbers are missing or there more than once, and how much of what can "
     "be read the daemon shows. Nothing is written. The daemon may be running."},
    {Command::Salvage, "salvage", "prints what can be read of a damaged log",
     "Prints all records that can be made out, each with a judgement: whole, likely, or "
     "damaged, and what is no record as lost. All of it comes in the order of the files, as the "
     "bytes stand; only -O sorts by number. The daemon may be running."},
    {Command::Repair, "repair", "mends a damaged log in place, so that the daemon reads it",
     "Makes the daemon find every whole record of a damaged folder again. A torn end of the "
     "newest file is cut off; a file damaged before its end is written anew from its records. "
     "No byte is lost: what is taken out is kept in the subfolder damaged. A healthy folder "
     "is not written to. It may be stopped at any time and run again. Refused while the "
     "daemon runs."},
    {Command::Collect, "collect", "prints what is new since the last time, for a store",
     "Prints the records behind the last one that a store has, as JSON objects, one a line. "
     "{\"missing\":[\"A\",\"B\"]} stands for numbers that are gone, {\"restarted\":\"N\"} where "
     "numbers began again, with N. The last line is {\"resume\":\"NUMBER\",\"time\":\"TIME\"}, for "
     "--after and --at of the next time, also where nothing is new. A store that has device, "
     "number and time as its key, and keeps NUMBER and TIME in the transaction that stores the "
     "records, gets each of them once. Output without that last line is not complete, and not "
     "to be kept. What is damaged behind the last whole record is left for the next time. The "
     "daemon may be running."},
    {Command::Emit, "emit", "announces a status change, checked against the catalogue",
     "Announces a status change on the system bus, as a service would. EVENT is an id or a name "
     "of the catalogue. A value fills the argument that it names, as in \"volts=24.1\", or else "
     "the next one; of an enum it is the number or the text of an item. It is sent by the type "
     "that is read back as it was typed: a byte or int16 only as the last argument, an enum "
     "there or with the items 0 and 1. A variant gets true or false as a bool, whole numbers as "
     "an int, others as a double, and everything else as a text. What does not fit is refused. "
     "Write -- in front of a text that begins with a dash.",
     "EVENT [VALUE...]", 1, std::numeric_limits<size_t>::max()},
    {Command::CatalogueCheck, "catalogue check", "tells what is wrong with a catalogue",
     "Looks for what the author of an event catalogue has not meant: the daemon takes any file "
     "and says nothing. An error is what it then shows wrong or not at all, a warning what is "
     "likely to be meant otherwise. Each is printed with its file, line and column.",
     "[FILE...]", 0, std::numeric_limits<size_t>::max()},
    {Command::CatalogueList, "catalogue list", "prints the events of a catalogue",
     "Prints the events of the catalogue in the order of their ids: id, level, name and text."},
    {Command::CatalogueShow, "catalogue show", "prints all that it says of an event",
     "Prints all that the catalogue says of an event, which is given by its id or its name: "
     "service, level, arguments with their types and items, and the texts in all languages. "
     "Write -- in front of an id with a sign.",
     "EVENT", 1, 1},
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
    Last,
    NewestFirst,
    Since,
    Until,
    Number,
    Level,
    Event,
    Service,
    Path,
    Text,
    Follow,
    Format,
    Time,
    Language,
    Colour,
    NoPager,
    Quiet,
    Sure,
    Target,
    DryRun,
    TimeLimit,
    Emitter,
    Types,
    Wait,
    Strict,
    Yes,
    After,
    At,
    Help,
    Version,
};
constexpr size_t optionCount = size_t(OptionId::Version) + 1;

struct OptionText {
    const char *names = "";      //!< with a comma in between; the long one is the last
    const char *value = nullptr; //!< null for a switch
    const char *text = "";
    unsigned commands = 0;
    OptionId id = OptionId::Help;
    bool isRepeatable = false;
};

constexpr unsigned everyCommand = ~0U;
//! Those that only speak to the bus; they are no commands for a copied folder.
constexpr unsigned onBus
    = bit(Command::Watch) | bit(Command::Emit) | bit(Command::Settings) | bit(Command::Clear);
//! Those that print what a catalogue holds.
constexpr unsigned catalogueTables = bit(Command::CatalogueList) | bit(Command::CatalogueShow);
constexpr unsigned catalogueCommands = catalogueTables | bit(Command::CatalogueCheck);
//! Those that select stored records.
constexpr unsigned stored
    = bit(Command::Show) | bit(Command::Stats) | bit(Command::Salvage) | bit(Command::Report);
//! Those that select by what an event says.
constexpr unsigned selecting = stored | bit(Command::Watch);
//! Those that print records or what becomes one.
constexpr unsigned printing = selecting & ~bit(Command::Report) & ~bit(Command::Stats);
//! Those that may print much, and on a terminal in colours.
constexpr unsigned paging = printing | bit(Command::Stats);
//! Those that have all formats.
constexpr unsigned inAllFormats = printing | catalogueTables;

constexpr OptionText optionTexts[] = {
    {"-D,--directory", "DIR",
     "the folder of log files, instead of /srv/public/log; the bus is not asked then",
     everyCommand & ~onBus & ~catalogueCommands, OptionId::Folder},
    {"-C,--catalogue", "FILE", "the event catalogue, instead of /var/www/data/systemevent.xml",
     everyCommand & ~bit(Command::Settings) & ~bit(Command::Clear), OptionId::Catalogue},
    {"-n,--lines", "N", "only the last N", stored, OptionId::Last},
    {"-n,--lines", "N", "end after N", bit(Command::Watch), OptionId::Last},
    {"-r,--reverse", nullptr, "the newest first", stored & ~bit(Command::Stats),
     OptionId::NewestFirst},
    {"-r,--reverse", nullptr, "taken as show takes it; the counts are the same",
     bit(Command::Stats), OptionId::NewestFirst},
    {"-S,--since", "TIME", "from that time on: 2026-11-21, \"2026-11-21 19:06\", yesterday, 1h",
     selecting, OptionId::Since},
    {"-U,--until", "TIME", "up to that time", stored, OptionId::Until},
    {"-U,--until", "TIME", "end at that time", bit(Command::Watch), OptionId::Until},
    {"--number", "A..B", "of these numbers; also A.., ..B and A", stored, OptionId::Number, true},
    {"-p,--level", "LEVEL", "that urgent and more, by name or number; or from A..B", selecting,
     OptionId::Level, true},
    {"-e,--event", "EVENT", "of that event, by id or name", selecting, OptionId::Event, true},
    {"-s,--service", "SERVICE", "of that service's events", selecting, OptionId::Service, true},
    {"--path", "GLOB", "with such a path; * stands for any text", selecting, OptionId::Path, true},
    {"-g,--grep", "REGEX", "with such a text, as Perl writes expressions", selecting,
     OptionId::Text, true},
    {"-f,--follow", nullptr, "go on with new records", bit(Command::Show), OptionId::Follow},
    {"-o,--output", "text|json|csv|raw",
     "for people; one JSON object a line, as salvage does unless told otherwise; a table; or "
     "byte by byte",
     printing & ~bit(Command::Watch), OptionId::Format},
    {"-o,--output", "text|json|csv|raw",
     "for people; one JSON object a line; a table; or byte by byte", bit(Command::Watch),
     OptionId::Format},
    {"-o,--output", "text|json|csv|raw",
     "for people; one JSON object a line; a table; or byte by byte how a record of it is stored",
     catalogueTables, OptionId::Format},
    {"-o,--output", "text|json", "tables for people, or one JSON object", bit(Command::Stats),
     OptionId::Format},
    {"-o,--output", "text|json", "for people, or one JSON object a line",
     bit(Command::Verify) | bit(Command::Repair) | bit(Command::Settings)
         | bit(Command::CatalogueCheck),
     OptionId::Format},
    {"--time", "local|utc|iso|unix|relative",
     "how text (local otherwise) and csv (utc) write times", printing, OptionId::Time},
    {"--time", "local|utc", "which times the page shows at first", bit(Command::Report),
     OptionId::Time},
    {"--time", "local|utc", "whose days and hours are counted by; JSON has UTC",
     bit(Command::Stats), OptionId::Time},
    {"-l,--language", "LANGUAGE", "of the texts; the locale's otherwise, or English",
     selecting | bit(Command::CatalogueList) | bit(Command::Collect), OptionId::Language},
    {"-l,--language", "LANGUAGE", "only the text in that language, or else in English",
     bit(Command::CatalogueShow), OptionId::Language},
    {"--color", "auto|always|never", "levels in colours; auto: on a terminal", paging,
     OptionId::Colour},
    {"--no-pager", nullptr, "do not page on a terminal", paging & ~bit(Command::Watch),
     OptionId::NoPager},
    {"-q,--quiet", nullptr, "say nothing where all is well", everyCommand, OptionId::Quiet},
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
     bit(Command::Emit), OptionId::Emitter},
    {"--type", "TYPES",
     "send exactly these D-Bus types, such as sid for a text, an int and a double, and check "
     "nothing; the event may be an id that the catalogue does not know; b, y, n, q, i, u, x, t, "
     "d, s, o, ay, as, and v in front of another",
     bit(Command::Emit), OptionId::Types},
    {"--wait", nullptr,
     "come back when the record can be read in the log files, within some 30 seconds, and "
     "print its number",
     bit(Command::Emit), OptionId::Wait},
    {"--werror", nullptr, "exit with 1 for warnings, too", bit(Command::CatalogueCheck),
     OptionId::Strict},
    {"--yes", nullptr, "delete without being asked, as is wanted where there is no terminal",
     bit(Command::Settings) | bit(Command::Clear), OptionId::Yes},
    {"--after", "NUMBER", "the last record that the store has; from the oldest on otherwise, or 0",
     bit(Command::Collect), OptionId::After},
    {"--at", "TIME", "that record's time, which goes with --after", bit(Command::Collect),
     OptionId::At},
    {"-h,--help", nullptr, "show this help", everyCommand, OptionId::Help},
    {"-V,--version", nullptr, "show the version", 0, OptionId::Version},
};

//! Help of at most 60 lines with fewer than 80 characters.
std::string commandHelp(Command command);
/*!
 * Of all commands, or of those whose names begin with the words of \a group, each with a
 * blank behind it.
 */
std::string generalHelp(const std::string &group = {});

} // namespace Options

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/numberset.h"
#include "ctl/timepoint.h"

#include <QByteArray>
#include <QList>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <optional>
#include <string>
#include <variant>
#include <vector>

/*!
 * What a command is to do, worked out of the command line before anything runs. Commands
 * get these values; none looks at arguments or the environment by itself.
 */

enum class Command : quint8 {
    Show,
    Watch,
    Stats,
    Report,
    Verify,
    Salvage,
    Repair,
    Collect,
    Emit,
    CatalogueCheck,
    CatalogueList,
    CatalogueShow,
    Settings,
    Clear,
};

//! What a process ends with.
enum class ExitStatus : int {
    Done = 0,
    NothingMatched = 1, //!< or the user did not want it, or a catalogue has errors
    WrongUsage = 2,
    DamageFound = 3, //!< what is printed is complete as far as it can be
    Failed = 4,      //!< something cannot be read or written, or was refused
};

//! Thrown for what the user has typed and what cannot be meant.
struct WrongUsage {
    std::string reason; //!< a sentence without its full stop, which says what is accepted
};

//! Where records come from, and what explains them.
struct SourceChoice {
    QString folder = QStringLiteral("/srv/public/log");
    QString catalogue = QStringLiteral("/var/www/data/systemevent.xml");
    bool folderIsNamed = false; //!< by the user: it is no device's own log then
    bool catalogueIsNamed = false;
};

//! A level by its number, or by its name in the catalogue.
using LevelChoice = std::variant<int, QString>;
//! From a level to a less urgent one, that is a higher number; both included.
struct LevelRange {
    std::optional<LevelChoice> from; //!< none: from the most urgent one
    std::optional<LevelChoice> to;   //!< none: to the least urgent one
};
//! Events by their id, or by their name in the catalogue.
using EventChoice = std::variant<qint32, QString>;

/*!
 * Which records are meant. Every kind of condition has to hold; of several of a kind one,
 * and of none of a kind all do.
 */
struct SelectionChoice {
    std::optional<quint64> last; //!< only so many, the last ones
    bool newestFirst = false;
    std::optional<Instant> since; //!< included
    std::optional<Instant> until; //!< included
    std::vector<Archive::NumberRange> numbers;
    std::vector<LevelRange> levels;
    std::vector<EventChoice> events;
    QStringList services;
    std::vector<std::string> paths; //!< patterns, of Glob
    QList<QRegularExpression> texts;

    //! Whether nothing is left out.
    [[nodiscard]] bool isEverything() const
    {
        return !last && !since && !until && numbers.empty() && levels.empty() && events.empty()
            && services.isEmpty() && paths.empty() && texts.isEmpty();
    }
};

enum class Format : quint8 {
    Text,
    Json, //!< one object a line
    Csv,  //!< RFC 4180, with a header
    Raw,  //!< the bytes and what they mean
};

//! How a time is written.
enum class TimeStyle : quint8 {
    Local,    //!< for people
    Utc,      //!< RFC 3339, in UTC
    Iso,      //!< the same in local time, with its distance from UTC
    Unix,     //!< seconds since 1970
    Relative, //!< how long ago
};

struct OutputChoice {
    Format format = Format::Text;
    bool isQuiet = false;            //!< says nothing where all is well
    std::optional<QString> language; //!< that the user has named
    QStringList localeLanguages;     //!< otherwise the first of these that is there
    std::optional<TimeStyle> time;   //!< none: what suits the format
    std::optional<Instant> now;      //!< what relative times count from; none: their printing
    bool isOnTerminal = false;
    bool isColoured = false;
    int columns = 0;              //!< of the terminal; 0: lines are as long as they are
    std::string pager;            //!< a line for the shell; empty: none
    bool isProgressShown = false; //!< of long work: standard error is a terminal
};

struct ShowChoice {
    bool follow = false; //!< goes on with new records
};

struct SalvageChoice {
    bool sureOnly = false;
    bool isToFolder = false; //!< a clean set is to be written, instead of printing records
    QString folder;          //!< where
};

struct RepairChoice {
    bool dryRun = false;
    uint timeLimit = 0; //!< in seconds; 0: none
};

struct ReportChoice {
    QString file; //!< where the page is written
};

//! What is to be announced; values as they were typed.
struct EmitChoice {
    QString event; //!< its id or its name
    QList<QByteArray> values;
    QByteArray path = "/systemeventctl";
    //! D-Bus types, one behind the other, in place of the declared ones.
    std::optional<std::string> types;
    bool waits = false; //!< until the record can be read
};

struct CatalogueChoice {
    QStringList files;              //!< to be checked
    bool warningsAreErrors = false; //!< for the exit status of a check
    QString event;                  //!< to be shown, by its id or name
};

struct SettingsChoice {
    std::optional<QString> name;  //!< none: all of them
    std::optional<QString> value; //!< to be set
};

//! The last record that a store has; a number of 0: it has none.
struct CollectChoice {
    quint64 number = 0;
    Instant time;
};

//! Whether what cannot be undone is to be done.
struct ConsentChoice {
    bool isGiven = false;
    bool canAsk = false; //!< there is somebody at a terminal
};

struct Plan {
    Command command = Command::Show;
    SourceChoice source;
    SelectionChoice selection;
    OutputChoice output;
    ShowChoice show;
    SalvageChoice salvage;
    RepairChoice repair;
    ReportChoice report;
    EmitChoice emit;
    CatalogueChoice catalogue;
    SettingsChoice settings;
    ConsentChoice consent;
    CollectChoice collect;
};

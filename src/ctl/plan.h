// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

/*!
 * What a command is to do, worked out of the command line before anything runs. Commands
 * get these values; none looks at arguments or the environment by itself.
 */

enum class Command : quint8 {
    Verify,
    Salvage,
    Repair,
    CatalogueCheck,
    CatalogueList,
    CatalogueShow,
};

//! What a process ends with.
enum class ExitStatus : int {
    Done = 0,
    NothingMatched = 1, //!< or a check has found errors
    WrongUsage = 2,
    DamageFound = 3, //!< what is printed is complete as far as it can be
    Failed = 4,      //!< something cannot be read or written, or was refused
};

//! The worse one.
inline ExitStatus worse(ExitStatus one, ExitStatus other)
{
    return int(one) > int(other) ? one : other;
}

//! Where records come from, and what explains them.
struct SourceChoice {
    QString folder = QStringLiteral("/srv/public/log");
    QString catalogue = QStringLiteral("/var/www/data/systemevent.xml");
    bool folderIsNamed = false; //!< by the user: it is no device's own log then
    bool catalogueIsNamed = false;
};

enum class Format : quint8 {
    Text,
    Json, //!< one object a line
    Csv,  //!< RFC 4180, with a header
};

struct OutputChoice {
    Format format = Format::Text;
    bool isQuiet = false; //!< says nothing where all is well
    QString language = QStringLiteral("en");
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

struct CatalogueChoice {
    QStringList files;              //!< to be checked
    bool warningsAreErrors = false; //!< for the exit status of a check
    QString event;                  //!< to be shown, by its id or name
    QStringList languages;          //!< of a text, the preferred one first
    bool isLanguageNamed = false;   //!< by the user: the others are not wanted
};

struct Plan {
    Command command = Command::Verify;
    SourceChoice source;
    OutputChoice output;
    SalvageChoice salvage;
    RepairChoice repair;
    CatalogueChoice catalogue;
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>
#include <string>

/*!
 * What a command is to do, worked out of the command line before anything runs. Commands
 * get these values; none looks at arguments or the environment by itself.
 */

enum class Command : quint8 {
    Verify,
    Salvage,
    Repair,
    Emit,
    Settings,
    Clear,
};

//! What a process ends with.
enum class ExitStatus : int {
    Done = 0,
    NothingMatched = 1, //!< or the user did not want it
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

//! What is to be announced; values as they were typed.
struct EmitChoice {
    QString event; //!< its id or its name
    QList<QByteArray> values;
    QByteArray path = "/systemeventctl";
    std::string types; //!< D-Bus types, one behind the other, in place of the declared ones
    bool hasTypes = false;
    bool waits = false; //!< until the record can be read
};

struct SettingsChoice {
    std::optional<QString> name;  //!< none: all of them
    std::optional<QString> value; //!< to be set
};

//! Whether what cannot be undone is to be done.
struct ConsentChoice {
    bool isGiven = false;
    bool canAsk = false; //!< there is somebody at a terminal
};

struct Plan {
    Command command = Command::Verify;
    SourceChoice source;
    OutputChoice output;
    SalvageChoice salvage;
    RepairChoice repair;
    EmitChoice emit;
    SettingsChoice settings;
    ConsentChoice consent;
};

// SPDX-License-Identifier: Apache-2.0
#include "ctl/options.h"

#include <algorithm>
#include <string_view>

namespace Options
{
namespace
{

constexpr char exitText[]
    = "Exit status: 0 healthy or done, 2 wrong usage, 3 damage found (the output is complete as "
      "far as it can be), 4 something cannot be read or written, or was refused.";
constexpr char selectingExitText[]
    = "Exit status: 0 found, 1 nothing matched, 2 wrong usage, 3 damage found (the output is "
      "complete as far as it can be), 4 something cannot be read or written.";
constexpr char busExitText[]
    = "Exit status: 0 done, 1 the user did not want it, 2 wrong usage, 4 the bus or the daemon "
      "cannot be reached, or the bus refuses.";
constexpr char emitExitText[]
    = "Exit status: 0 announced, 2 wrong usage, or values that do not fit, 4 the bus or the daemon "
      "cannot be reached, the bus refuses, or --wait was in vain.";
constexpr char watchExitText[]
    = "Exit status: 0 done, 1 the end came before anything was announced that is meant, 2 wrong "
      "usage, 4 the bus cannot be reached, or has gone.";
constexpr char checkExitText[]
    = "Exit status: 0 no errors, 1 errors (with --werror also for warnings), 2 wrong usage, 4 a "
      "file cannot be read.";
constexpr char tableExitText[]
    = "Exit status: 0 found, 1 there is no such event, 2 wrong usage, 4 the catalogue cannot be "
      "read.";

constexpr size_t width = 80;
constexpr size_t textColumn = 30;
constexpr size_t summaryColumn = 19; //!< in the list of commands

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

const char *exitTextOf(Command command)
{
    const unsigned it = bit(command);
    if ((stored & ~bit(Command::Salvage) & it) != 0) {
        return selectingExitText;
    }
    if (command == Command::Watch) {
        return watchExitText;
    }
    if (command == Command::Emit) {
        return emitExitText;
    }
    if ((onBus & it) != 0) {
        return busExitText;
    }
    if ((catalogueTables & it) != 0) {
        return tableExitText;
    }
    return command == Command::CatalogueCheck ? checkExitText : exitText;
}

} // namespace

std::string commandHelp(Command command)
{
    const CommandText &told = commandTexts[size_t(command)];
    const bool isShow = command == Command::Show;
    std::string help = std::string("Usage: systemeventctl ") + (isShow ? "[show]" : told.name) + ' '
        + (told.arguments ? std::string(told.arguments) + ' ' : std::string()) + "[OPTIONS]\n\n";
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

std::string generalHelp(const std::string &group)
{
    std::string help = "Usage: systemeventctl "
        + (group.empty() ? std::string("[COMMAND]") : group + "COMMAND")
        + " [OPTIONS]\n\n"
          "The event log of a device: its files in people's hands.\n\nCommands:\n";
    for (const CommandText &command : commandTexts) {
        if (std::string_view(command.name).substr(0, group.size()) != group) {
            continue;
        }
        std::string line = std::string("  ") + command.name;
        line.resize(summaryColumn, ' ');
        help += line;
        appendWrapped(help, command.summary, line.size(), line.size());
    }
    help += "\nOptions:\n";
    for (const OptionText &option : optionTexts) {
        if (option.id == OptionId::Help || (option.id == OptionId::Version && group.empty())) {
            appendOption(help, option);
        }
    }
    help += "\n\"systemeventctl " + group + "COMMAND --help\" tells more of a command.\n";
    return help;
}

} // namespace Options

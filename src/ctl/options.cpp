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
    const bool isSelecting = isShow || command == Command::Stats || command == Command::Report;
    const bool isOnBus = (onBus & bit(command)) != 0;
    appendWrapped(help, isSelecting ? selectingExitText : isOnBus ? busExitText : exitText, 0, 0);
    return help;
}

std::string generalHelp()
{
    std::string help = "Usage: systemeventctl [COMMAND] [OPTIONS]\n\n"
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

} // namespace Options

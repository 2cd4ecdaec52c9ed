// SPDX-License-Identifier: Apache-2.0

// The input is a command line of the tool, an argument a line. Whatever is typed, it means a
// plan, or there is something to say; and what is typed as a time, a range or a pattern is
// what a plain reading makes of it.

#include "checks.h"
#include "ctl/commandline.h"
#include "ctl/glob.h"

#include <string>
#include <vector>

namespace
{

std::vector<std::string> argumentsOf(const uint8_t *data, size_t size)
{
    std::vector<std::string> arguments(1);
    for (size_t i = 0; i < size; ++i) {
        const char c = char(data[i]);
        if (c == '\n') {
            arguments.emplace_back();
        } else if (c != '\0') { // which ends an argument
            arguments.back() += c;
        }
    }
    return arguments;
}

CommandLine read(const std::vector<std::string> &arguments)
{
    std::vector<const char *> argv{"systemeventctl"};
    for (const std::string &argument : arguments) {
        argv.push_back(argument.c_str());
    }
    return CommandLine::read(int(argv.size()), argv.data());
}

//! One of three, and wrong usage where there is something to complain of.
void checkForm(const CommandLine &line)
{
    const int forms
        = int(line.plan.has_value()) + int(!line.answer.empty()) + int(!line.complaint.empty());
    require(forms == 1, "a command line is a plan, an answer or a complaint");
    require((line.status == ExitStatus::WrongUsage) == !line.complaint.empty(),
            "a complaint is wrong usage");
}

void checkPlan(const Plan &plan)
{
    const SelectionChoice &selection = plan.selection;
    for (const Archive::NumberRange &range : selection.numbers) {
        require(range.first <= range.last, "a range of numbers goes up");
    }
    for (const QRegularExpression &text : selection.texts) {
        require(text.isValid(), "an expression is one");
    }
    for (const std::string &path : selection.paths) {
        require(Glob::isValid(path), "a pattern is one");
        const bool isPlain = path.find_first_of("*?[\\") == std::string::npos;
        require(!isPlain || Glob::matches(path, path), "a path without wildcards matches itself");
        require(Glob::matches("*", path), "everything matches an asterisk");
    }
}

void checkAgain(const std::vector<std::string> &arguments, const CommandLine &first)
{
    const CommandLine second = read(arguments);
    require(first.plan.has_value() == second.plan.has_value() && first.answer == second.answer
                && first.complaint == second.complaint,
            "a command line always means the same");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    prepare();
    const std::vector<std::string> arguments = argumentsOf(data, size);
    const CommandLine line = read(arguments);
    checkForm(line);
    if (line.plan) {
        checkPlan(*line.plan);
    }
    checkAgain(arguments, line);
    (void)takeMessages();
    return 0;
}

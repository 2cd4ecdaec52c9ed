// SPDX-License-Identifier: Apache-2.0
#include "ctl/surroundings.h"

#include <cstdlib>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

//! Empty where the variable is not set.
std::string_view variable(const char *name)
{
    const char *const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    return value ? std::string_view(value) : std::string_view();
}

//! The first of the variables that names a locale; those before it have no say.
std::string_view localeName()
{
    for (const char *const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const std::string_view locale = variable(name);
        if (!locale.empty()) {
            return locale;
        }
    }
    return {};
}

QStringList languagesOf(std::string_view locale)
{
    const std::string_view name = locale.substr(0, locale.find_first_of(".@"));
    if (name.empty() || name == "C" || name == "POSIX") {
        return {};
    }
    const QString exact = QString::fromLatin1(name.data(), int(name.size()));
    QStringList languages{exact};
    const auto country = exact.indexOf(QLatin1Char('_'));
    if (country > 0) {
        QString tag = exact;
        languages.append(tag.replace(country, 1, QLatin1Char('-')));
        languages.append(exact.left(country));
    }
    return languages;
}

int columnsOfTerminal()
{
    constexpr int usual = 80;
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    const int named = std::atoi(std::string(variable("COLUMNS")).c_str());
    return named > 0 ? named : usual;
}

bool isInPath(const std::string &program)
{
    std::string_view folders = variable("PATH");
    while (!folders.empty()) {
        const size_t end = std::min(folders.find(':'), folders.size());
        const std::string file = std::string(folders.substr(0, end)) + '/' + program;
        if (::access(file.c_str(), X_OK) == 0) {
            return true;
        }
        folders.remove_prefix(std::min(end + 1, folders.size()));
    }
    return false;
}

/*!
 * What the user has named is run as it is, unless it is a program that is not there: what
 * is printed would be lost with it. A device may have none at all, and a terminal that can
 * do nothing no use for one.
 */
std::string pagerOfUser(bool isCapable)
{
    if (std::getenv("PAGER")) { // NOLINT(concurrency-mt-unsafe)
        const std::string named(variable("PAGER"));
        const bool isWord = named.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQR"
                                                    "STUVWXYZ0123456789-_.+")
            == std::string::npos;
        return named == "cat" || (isWord && !isInPath(named)) ? std::string() : named;
    }
    return isCapable && isInPath("less") ? "less -FRX" : "";
}

} // namespace

Surroundings Surroundings::look()
{
    Surroundings found;
    found.now = Instant::now();
    found.languages = languagesOf(localeName());
    found.isTerminal = ::isatty(STDOUT_FILENO) == 1;
    found.isErrorTerminal = ::isatty(STDERR_FILENO) == 1;
    found.canAsk = ::isatty(STDIN_FILENO) == 1 && ::isatty(STDERR_FILENO) == 1;
    if (found.isTerminal) {
        const std::string_view terminal = variable("TERM");
        const bool isCapable = !terminal.empty() && terminal != "dumb";
        found.takesColours = variable("NO_COLOR").empty() && isCapable;
        found.columns = columnsOfTerminal();
        found.pager = pagerOfUser(isCapable);
    }
    return found;
}

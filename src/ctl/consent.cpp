// SPDX-License-Identifier: Apache-2.0
#include "ctl/consent.h"

#include "ctl/messages.h"

#include <string>

#include <unistd.h>

namespace
{

//! The first character of a line from standard input, of which the rest is dropped.
char firstOfLine()
{
    char first = '\n';
    char next = '\0';
    for (bool isFirst = true; next != '\n' && ::read(STDIN_FILENO, &next, 1) == 1;
         isFirst = false) {
        first = isFirst ? next : first;
    }
    return first;
}

} // namespace

ExitStatus askConsent(const ConsentChoice &choice, const QString &consequence)
{
    if (choice.isGiven) {
        return ExitStatus::Done;
    }
    if (!choice.canAsk) {
        Messages::tell(consequence + QStringLiteral("; say --yes if that is meant"));
        return ExitStatus::WrongUsage;
    }
    Messages::tell(consequence + QStringLiteral(". Go on? [y/N]"));
    const char answer = firstOfLine();
    if (answer == 'y' || answer == 'Y') {
        return ExitStatus::Done;
    }
    Messages::tell(QStringLiteral("nothing is changed"));
    return ExitStatus::NothingMatched;
}

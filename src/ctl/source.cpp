// SPDX-License-Identifier: Apache-2.0
#include "ctl/source.h"

#include "ctl/messages.h"

#include <cerrno>
#include <utility>

Source::Source(SourceChoice source, bool isQuiet)
    : choice(std::move(source))
    , quiet(isQuiet)
{
}

bool Source::openCatalogue()
{
    events.emplace();
    if (!events->load(choice.catalogue)) {
        events.reset();
        if (choice.catalogueIsNamed) {
            Messages::tell(QStringLiteral("%1: the catalogue cannot be read; name another one "
                                          "with -C, or none")
                               .arg(choice.catalogue));
            return false;
        }
        if (!quiet) {
            Messages::tell(QStringLiteral("%1: there is no catalogue, so what events mean is not "
                                          "known; name one with -C")
                               .arg(choice.catalogue));
        }
    } else if (events->events.isEmpty() && !quiet) {
        Messages::tell(QStringLiteral("%1: the catalogue has no events; \"systemeventctl catalogue "
                                      "check\" says why")
                           .arg(choice.catalogue));
    }
    return true;
}

bool Source::open()
{
    if (!openCatalogue()) {
        return false;
    }
    archive.emplace(choice.folder, catalogue());
    if (!archive->open()) {
        Messages::tell(QStringLiteral("%1: the folder cannot be read: %2; name another one with -D")
                           .arg(choice.folder, Messages::errorText(errno)));
        return false;
    }
    return true;
}

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"
#include "catalog/systemeventcatalogue.h"
#include "ctl/plan.h"

#include <optional>

//! A folder of log files and what explains them, opened as the plan says.
class Source
{
public:
    Source(SourceChoice source, bool isQuiet);

    /*!
     * False, and a message told, where the folder, or a catalogue that the user has
     * named, cannot be read. A missing default catalogue is only remarked on.
     */
    [[nodiscard]] bool open();

    //! The same for the catalogue alone.
    [[nodiscard]] bool openCatalogue();

    //! Null where there is none.
    [[nodiscard]] const SystemeventCatalogue *catalogue() const
    {
        return events ? &*events : nullptr;
    }
    //! Only after open().
    [[nodiscard]] const Archive::Folder &folder() const { return *archive; }

private:
    SourceChoice choice;
    bool quiet;
    std::optional<SystemeventCatalogue> events;
    std::optional<Archive::Folder> archive;
};

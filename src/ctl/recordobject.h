// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/eventkinds.h"

//! Writes what a folder holds as JSON objects.
class RecordObject
{
public:
    //! Both must outlive this; the catalogue may be null.
    RecordObject(const SystemeventCatalogue *systemevents, EventKinds &eventKinds)
        : catalogue(systemevents)
        , kinds(eventKinds)
    {
    }

    //! Appends a record's object; \a file is the one it lies in.
    void append(std::string &out, const Archive::Place &place, const Archive::Record &record,
                const Archive::FileBytes &file);
    //! Appends the object of what is no record.
    static void appendLost(std::string &out, const Archive::Place &place, Archive::Fault reason);

private:
    void appendValues(std::string &out, const SystemeventDescription &event,
                      std::string_view bytes) const;

    const SystemeventCatalogue *catalogue;
    EventKinds &kinds;
    std::string message;
};

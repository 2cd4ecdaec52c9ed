// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/eventkinds.h"

//! Writes what a folder holds as lines for people.
class RecordLine
{
public:
    //! \a eventKinds must outlive this.
    explicit RecordLine(EventKinds &eventKinds)
        : kinds(eventKinds)
    {
    }

    //! Appends a record's line; \a file is the one it lies in.
    void append(std::string &out, const Archive::Place &place, const Archive::Record &record,
                const Archive::FileBytes &file);
    //! Appends the line of what is no record.
    static void appendLost(std::string &out, const Archive::Place &place, Archive::Fault reason);

private:
    EventKinds &kinds;
    std::string message;
};

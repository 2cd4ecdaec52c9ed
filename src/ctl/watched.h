// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"

#include <functional>
#include <utility>

//! Shows all of a folder to a visitor, and tells of everything that goes by.
class Watched : public Archive::Visitor
{
public:
    //! Is called with the size in bytes, before it is shown.
    using Watcher = std::function<void(qint64)>;

    //! The visitor must outlive this.
    Watched(Archive::Visitor &visitor, Watcher watcher)
        : shown(visitor)
        , watch(std::move(watcher))
    {
    }

    void record(const Archive::Place &place, const Archive::Record &record) override
    {
        watch(place.length);
        shown.record(place, record);
    }
    void lost(const Archive::Place &place, Archive::Fault reason) override
    {
        watch(place.length);
        shown.lost(place, reason);
    }

private:
    Archive::Visitor &shown;
    Watcher watch;
};

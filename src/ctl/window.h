// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"

//! Shows of a file what begins in a stretch of it.
class Window : public Archive::Visitor
{
public:
    //! From the start of the file. The visitor must outlive this.
    Window(qint64 from, qint64 to, Archive::Visitor &visitor)
        : begin(from)
        , end(to)
        , shown(visitor)
    {
    }

    void record(const Archive::Place &place, const Archive::Record &record) override
    {
        if (holds(place)) {
            shown.record(place, record);
        }
    }
    void lost(const Archive::Place &place, Archive::Fault reason) override
    {
        if (holds(place)) {
            shown.lost(place, reason);
        }
    }
    void endFile(const Archive::FileResult &result) override { error = result.error; }

    int error = 0; //!< errno of why the file could not be read to its end

private:
    [[nodiscard]] bool holds(const Archive::Place &place) const
    {
        return place.offset >= begin && place.offset < end;
    }

    qint64 begin;
    qint64 end;
    Archive::Visitor &shown;
};

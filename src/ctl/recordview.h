// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archiverecord.h"
#include "archive/filebytes.h"

#include <string_view>

struct EventKind;

/*!
 * What is shown of a record, or of a status change that is not stored yet. Nothing is
 * owned; it is valid for the time of a call.
 */
struct RecordView {
    LogFormat::RecordHead head;      //!< its number is 0 where there is none yet
    const EventKind *kind = nullptr; //!< null of an event that the catalogue does not know
    std::string_view path;           //!< of the emitter
    std::string_view message;        //!< the text; empty of an unknown event
    std::string_view values;         //!< as stored, behind the path
    std::string_view bytes;          //!< all of the record; of a status change as it would be
    Archive::Place place;            //!< of a record
    const Archive::FileBytes *file = nullptr; //!< that it lies in; null where there is none yet
    Archive::State state = Archive::State::Whole;
    Archive::Fault fault = Archive::Fault::None;
    //! In place of the state of what is not stored: "whole", "unknown" or "unfit"; else empty.
    std::string_view liveState;
    std::string_view liveReason; //!< why it is not whole

    [[nodiscard]] bool isStored() const { return liveState.empty(); }
    [[nodiscard]] std::string_view stateName() const
    {
        return isStored() ? std::string_view(Archive::stateName(state).data()) : liveState;
    }
};

//! Without kind and message.
inline RecordView viewOf(const Archive::Place &place, const Archive::Record &record)
{
    RecordView view;
    view.head = record.head;
    view.path = record.path;
    view.values = record.values;
    view.bytes = record.bytes;
    view.place = place;
    view.state = record.state;
    view.fault = record.fault;
    return view;
}

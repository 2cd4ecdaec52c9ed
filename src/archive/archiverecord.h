// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "logformat/logformat.h"

#include <QLatin1String>

#include <string_view>

namespace Archive
{

//! How much a record is to be believed.
enum class State : quint8 {
    /*!
     * It is as the writer made it, as far as anything can tell: its head and its end are
     * right, its values fit the catalogue where that knows them, and what stands beside it
     * speaks for it.
     */
    Whole,
    /*!
     * It looks whole, but nothing beside it speaks for it: damage on both sides, and a
     * number that does not lie between its neighbours'. A piece of a file that was moved,
     * or what is left of the values of a damaged record.
     */
    Likely,
    Damaged, //!< a part of it is damaged, the rest can be read
};

//! What is wrong with bytes.
enum class Fault : quint8 {
    None,
    Head,    //!< a record whose number, time or path cannot be right
    End,     //!< a record whose end mark or length is wrong
    Text,    //!< a record with a text that no sender can have sent
    Torn,    //!< the beginning of a record, whose end is missing
    Zeros,   //!< no record: zeros
    Unknown, //!< no record
};

//! The name of a state as it is shown: "whole", "likely" or "damaged".
QLatin1String stateName(State state);
//! A fault in words: the end of a sentence that begins with a place in a file.
QLatin1String faultText(Fault fault);

//! Bytes of a folder of log files.
struct Place {
    int file = 0;      //!< index of the file; LogFormat::fileName() makes its name of it
    qint64 offset = 0; //!< from the start of the file
    qint64 length = 0; //!< of a record with its trailer

    [[nodiscard]] qint64 end() const { return offset + length; }
};

//! A record as it was found.
struct Record {
    /*!
     * What stands in front of the values; with Fault::Head it is whatever stands there.
     */
    LogFormat::RecordHead head;
    State state = State::Whole;
    Fault fault = Fault::None;  //!< of a damaged one
    bool isReadByDaemon = true; //!< whether the daemon's own walk comes by
    std::string_view bytes;     //!< all of it, with its trailer
    std::string_view path;      //!< empty where it cannot be read
    std::string_view values;    //!< behind the path, up to the end mark
};

} // namespace Archive

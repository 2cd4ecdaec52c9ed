// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace LogFormat
{

//! Why bytes cannot be a record that the writer made.
enum class Flaw {
    None,
    Size,       //!< fewer bytes than any record or any head has
    EndMark,    //!< no end mark in front of the trailer
    Trailer,    //!< the trailer counts other bytes
    LogNr,      //!< 0, or higher than a device can count
    Time,       //!< a second's fraction of a second and more, or a year behind 9999
    Padding,    //!< bytes of the padding that are not zero
    PathLength, //!< a path that does not end within the record
    Path,       //!< a path that is no D-Bus object path
};

/*!
 * Whether bytes look like one whole record from its number to its trailer. The daemon
 * never asks: it shows what stands in its files. Who looks for records in a damaged file
 * does. The values behind the path are not looked at, as their types are not known here.
 */
[[nodiscard]] Flaw recordFlaw(std::string_view record);

/*!
 * The same for what stands in front of a record's values: a number, a time, the padding
 * and a path. \a bytes begin with it and may go on behind it.
 */
[[nodiscard]] Flaw headFlaw(std::string_view bytes);

//! Whether a text is a D-Bus object path, by the rules of the D-Bus specification.
[[nodiscard]] bool isObjectPath(std::string_view text);

} // namespace LogFormat

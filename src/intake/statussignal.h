// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

//! The signal by which services announce status changes.
namespace StatusSignal
{

constexpr char interface[] = "com.tovel.status";
constexpr char member[] = "change";
constexpr char signature[] = "iv"; //!< the event's id; its values

//! By which a bus is asked for it, whoever announces it.
inline std::string matchRule()
{
    return std::string("type='signal',interface='") + interface + "',member='" + member + "'";
}

} // namespace StatusSignal

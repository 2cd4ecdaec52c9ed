// SPDX-License-Identifier: Apache-2.0
#pragma once

//! What is called how on the bus, as the build has it, and who may do what there.
namespace BusName
{

extern const char daemon[];
extern const char logNode[];
extern const char logInterface[];
extern const char statusInterface[];
extern const char statusChange[];
extern const char configService[];
extern const char configPath[];
extern const char configInterface[];

extern const char adminGroup[];  //!< may change settings and clear the log
extern const char statusGroup[]; //!< may announce status changes

} // namespace BusName

/*!
 * Whether the daemon's name on the system bus is owned. Without a bus it is not.
 *
 * A repair before every start must be quick, and does not ask.
 */
[[nodiscard]] bool isDaemonOnBus();

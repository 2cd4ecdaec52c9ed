// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/*!
 * Names that the device fixes for all of its services. Their values are build
 * options (see docs/building.md); the defaults stand in CMakeLists.txt.
 */
namespace zib
{

namespace SystemeventloggerGlobals
{
//! Well-known bus name of the event daemon, also its identity in syslog.
extern const QString SERVICE_NAME;
} // namespace SystemeventloggerGlobals

namespace FwConfigGlobals
{
//! Bus name of the configuration service.
extern const QString SERVICE_PATH_NAME;
//! Object path under which the configuration service keeps its variables.
extern const QString SYSTEMVARIABLES_PATH;
//! Interface name of those variables.
extern const QString SYSTEMVARIABLES_INTERFACE;
} // namespace FwConfigGlobals

namespace ConstParameter
{
//! Index of the domain that holds the device's own parameters.
constexpr int IDX_SYSTEM = 0;

//! The name of the domain with the given index; an empty string for an unknown one.
QString domainForIdx(int index);
} // namespace ConstParameter

} // namespace zib

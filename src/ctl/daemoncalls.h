// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/bus.h"

//! What the daemon is asked (docs/dbus.md).
namespace DaemonCalls
{

//! A method without arguments.
BusAnswer call(Bus &bus, const char *method);
//! A property; the answer is a value within a variant.
BusAnswer get(Bus &bus, const char *property);
BusAnswer set(Bus &bus, const char *property, const BusValue &value);

} // namespace DaemonCalls

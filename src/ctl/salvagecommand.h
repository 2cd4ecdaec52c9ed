// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Prints what can be read of a folder, or writes it as a clean set of log files.
ExitStatus runSalvage(const Plan &plan, OutputStream &out);

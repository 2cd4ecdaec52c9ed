// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Shows the daemon's settings, or changes one. May throw OutputFailure and
//! WrongUsage.
ExitStatus runSettings(const Plan &plan, OutputStream &out);

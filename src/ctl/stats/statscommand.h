// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Carries out "stats". Throws OutputFailure.
ExitStatus runStats(const Plan &plan, OutputStream &out);

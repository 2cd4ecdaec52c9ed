// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Mends a folder in place, or says what that would do.
ExitStatus runRepair(const Plan &plan, OutputStream &out);

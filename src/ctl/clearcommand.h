// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/plan.h"

//! Has the daemon delete the log.
ExitStatus runClear(const Plan &plan);

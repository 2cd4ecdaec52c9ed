// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Announces a status change. May throw OutputFailure and WrongUsage.
ExitStatus runEmit(const Plan &plan, OutputStream &out);

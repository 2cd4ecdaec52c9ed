// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Prints what is behind a record, for a store that is to be complete.
ExitStatus runCollect(const Plan &plan, OutputStream &out);

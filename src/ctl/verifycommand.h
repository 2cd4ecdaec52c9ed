// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Tells what a folder holds and what of it is damaged.
ExitStatus runVerify(const Plan &plan, OutputStream &out);

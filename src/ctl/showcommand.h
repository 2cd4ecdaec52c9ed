// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Prints the stored records that are selected.
ExitStatus runShow(const Plan &plan, OutputStream &out);

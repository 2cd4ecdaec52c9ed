// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Writes a folder of log files as a page for a browser.
ExitStatus runReport(const Plan &plan, OutputStream &out);

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Tells what is wrong with catalogues, each finding with its file, line and column.
ExitStatus runCatalogueCheck(const Plan &plan, OutputStream &out);

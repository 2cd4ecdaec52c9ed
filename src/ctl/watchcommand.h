// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/plan.h"

/*!
 * Prints status changes on standard output as they are announced, until somebody ends it.
 * May throw OutputFailure and WrongUsage.
 */
ExitStatus runWatch(const Plan &plan);

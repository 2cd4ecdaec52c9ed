// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

#include <QStringList>

//! Shows the daemon's settings, or changes one. May throw OutputFailure and
//! WrongUsage.
ExitStatus runSettings(const Plan &plan, OutputStream &out);

//! Of all settings, in the order in which they are shown.
QStringList settingNames();

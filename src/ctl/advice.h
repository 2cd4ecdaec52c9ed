// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/plan.h"

#include <string>

//! What people can do about a folder: the end of what they are told of it.
namespace Advice
{

void appendForDamage(std::string &out, const SourceChoice &source);
//! For a folder without damage of which the daemon does not show everything; says why.
void appendForHidden(std::string &out, const SourceChoice &source);

} // namespace Advice

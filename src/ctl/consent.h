// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/plan.h"

/*!
 * Whether the user agrees to what cannot be undone: by an option, or asked on a terminal.
 * Done where he does; another status, and a message told, where he does not or cannot be
 * asked.
 */
[[nodiscard]] ExitStatus askConsent(const ConsentChoice &choice, const QString &consequence);

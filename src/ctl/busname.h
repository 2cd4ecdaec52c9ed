// SPDX-License-Identifier: Apache-2.0
#pragma once

/*!
 * Whether the daemon's name on the system bus is owned. Without a bus it is not.
 *
 * libdbus is loaded here and nowhere else: a repair before every start must be quick, and
 * does not ask.
 */
[[nodiscard]] bool isDaemonOnBus();

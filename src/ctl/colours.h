// SPDX-License-Identifier: Apache-2.0
#pragma once

//! How a terminal shows texts; each lasts until \c plain.
namespace Colours
{

constexpr char plain[] = "\x1B[0m";
constexpr char bold[] = "\x1B[1m";
constexpr char note[] = "\x1B[1;35m";

//! By the numbers of syslog, which catalogues use. Empty for one that stands back.
inline const char *ofLevel(int level)
{
    if (level <= 3) {
        return "\x1B[1;31m";
    }
    if (level == 4) {
        return "\x1B[33m";
    }
    if (level == 5) {
        return bold;
    }
    return level == 6 ? "" : "\x1B[2m";
}

} // namespace Colours

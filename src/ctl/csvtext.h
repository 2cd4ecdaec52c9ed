// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

//! Tables as RFC 4180 has them.
namespace CsvText
{

constexpr char endOfRow[] = "\r\n";

/*!
 * Appends the content of a cell, in quotes where it needs them. It becomes valid UTF-8, and on
 * a terminal, whose cursor it cannot move, it has no control characters.
 */
void appendCell(std::string &out, std::string_view utf8, bool isOnTerminal);

} // namespace CsvText

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

//! Tables as RFC 4180 has them.
namespace CsvText
{

constexpr char endOfRow[] = "\r\n";

//! Appends the content of a cell, in quotes where it needs them.
void appendCell(std::string &out, std::string_view utf8);

} // namespace CsvText

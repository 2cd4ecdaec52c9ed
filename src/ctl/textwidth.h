// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

//! How texts without control characters fill the columns of a terminal.
namespace TextWidth
{

//! In columns: East Asian characters and pictures take two, marks on others none.
size_t columns(std::string_view utf8);

//! Appends a text and as many blanks as make it so many columns wide.
void appendPadded(std::string &out, std::string_view utf8, size_t width);

/*!
 * Appends a text in lines that take no more than \a width columns each, broken at blanks
 * where there are any. The first one has only \a first columns, the others begin with
 * \a indent blanks.
 */
void appendWrapped(std::string &out, std::string_view utf8, size_t first, size_t indent,
                   size_t width);

} // namespace TextWidth

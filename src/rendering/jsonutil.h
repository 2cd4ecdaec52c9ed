// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace jsonUtil
{

/*!
 * Makes what stands in a text in UTF-8 from a position on fit to stand inside a JSON string
 * (RFC 8259, section 7), without the surrounding quotes: double quote and backslash get a
 * backslash, \b \f \n \r \t their short form, every other character below U+0020 the form
 * \\u00XX with upper-case digits; all others stay as they are.
 */
void escape(std::string &utf8, size_t begin = 0);

} // namespace jsonUtil

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

#include <string>

namespace zib::jsonUtil
{

/*!
 * The text as it stands inside a JSON string (RFC 8259, section 7), without the
 * surrounding quotes: double quote and backslash get a backslash, \b \f \n \r \t
 * their short form, every other character below U+0020 the form \\u00XX with
 * upper-case digits; all others stay as they are.
 */
QString escape(const QString &text);
//! The same within a text in UTF-8, for what stands from a position on.
void escapeFrom(std::string &text, size_t position);

} // namespace zib::jsonUtil

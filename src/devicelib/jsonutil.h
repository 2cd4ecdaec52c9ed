// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace zib::jsonUtil
{

/*!
 * The text as it stands inside a JSON string (RFC 8259, section 7), without the
 * surrounding quotes: double quote and backslash get a backslash, \b \f \n \r \t
 * their short form, every other character below U+0020 the form \\u00XX with
 * upper-case digits; all others stay as they are.
 */
QString escape(const QString &text);

} // namespace zib::jsonUtil

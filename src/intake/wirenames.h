// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/*!
 * Chapter "Valid Names" of the D-Bus specification, as libdbus reads it.
 */
namespace Wire
{

//! Also the name of an error.
bool isInterfaceName(std::string_view name);
bool isMemberName(std::string_view name);
//! A unique one or a well-known one.
bool isBusName(std::string_view name);

} // namespace Wire

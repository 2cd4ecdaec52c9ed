// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/*!
 * Patterns for whole texts, as a shell has them: "*" stands for any text, slashes
 * included, "?" for one character, "[a-z]" for one of those and "[!a-z]" for any other;
 * a backslash takes the meaning from the character behind it. Characters are those of
 * UTF-8; a byte that is none counts as one.
 */
namespace Glob
{

//! False where a bracket is not closed, or a backslash ends the pattern.
bool isValid(std::string_view pattern);
//! Takes time in proportion to the product of both sizes at most.
bool matches(std::string_view pattern, std::string_view text);

} // namespace Glob

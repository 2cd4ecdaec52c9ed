// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

/*!
 * What a shell offers for a word that is being typed. The scripts for the shells know
 * nothing of commands and options: they ask by the word "--complete", which stands in
 * front of all others and in no help, since only they use it.
 */
namespace Completion
{

//! Turns the arguments behind it into words for candidates().
constexpr char request[] = "--complete";

/*!
 * What the last of the words, which may be empty, can become; those in front of it are
 * complete. Neither has the tool's name or quotes.
 *
 * The first line is "words 0", or "files N" or "directories N" where the shell knows the
 * candidates: N characters of the word stand in front of the name of a file. Each other
 * line is a candidate for the whole word, often with a tab and what it means behind it.
 *
 * Catalogue and log are those that the words name, or the device's. What cannot be read
 * or makes no sense gives no candidates and no message. The bus is not asked.
 */
std::string candidates(const std::vector<std::string> &words);

} // namespace Completion

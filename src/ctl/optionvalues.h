// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/plan.h"

#include <initializer_list>
#include <string>
#include <utility>

/*!
 * What the texts behind options mean. Each function throws WrongUsage, which names the
 * option and says what is accepted, for a text that means nothing.
 */
namespace OptionValues
{

//! A whole number from \a least to \a most.
quint64 number(const char *option, const std::string &text, quint64 least, quint64 most);
//! "A..B", "A..", "..B" or "A".
Archive::NumberRange numberRange(const char *option, const std::string &text);
//! "LEVEL", which is that one and the more urgent ones, "A..B", "A.." or "..B".
LevelRange levelRange(const char *option, const std::string &text);
EventChoice event(const char *option, const std::string &text);
Instant time(const char *option, const std::string &text, const Instant &now,
             TimePoint::Reading reading);
QRegularExpression expression(const char *option, const std::string &text);
//! A pattern of Glob.
std::string pattern(const char *option, const std::string &text);

[[noreturn]] void refuse(const char *option, const std::string &text, const std::string &accepted);

template <typename Value>
using Words = std::initializer_list<std::pair<const char *, Value>>;

//! One of a few words.
template <typename Value>
Value oneOf(const char *option, const std::string &text, const Words<Value> &words)
{
    std::string accepted;
    for (const auto &[word, value] : words) {
        if (text == word) {
            return value;
        }
        accepted += accepted.empty() ? "" : ", ";
        accepted += word;
    }
    refuse(option, text, accepted);
}

} // namespace OptionValues

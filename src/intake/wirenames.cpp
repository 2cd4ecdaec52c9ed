// SPDX-License-Identifier: Apache-2.0
#include "intake/wirenames.h"

#include <cstddef>

namespace Wire
{
namespace
{

constexpr size_t mostName = 255; // characters

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

/*!
 * How many parts a name has between its dots, 0 where that is no name. A part may begin
 * with what it may go on with, or not with a digit.
 */
size_t countParts(std::string_view name, std::string_view besidesLetters, bool mayBeginWithDigit)
{
    constexpr std::string_view digits = "0123456789";
    size_t parts = 1;
    bool begins = true;
    for (const char c : name) {
        const bool isDigit = digits.find(c) != std::string_view::npos;
        if (c == '.' && !begins) {
            ++parts;
            begins = true;
        } else if (isLetter(c) || besidesLetters.find(c) != std::string_view::npos
                   || (isDigit && (mayBeginWithDigit || !begins))) {
            begins = false;
        } else {
            return 0;
        }
    }
    return begins || name.size() > mostName ? 0 : parts;
}

} // namespace

bool isInterfaceName(std::string_view name)
{
    return countParts(name, {}, false) > 1;
}

bool isMemberName(std::string_view name)
{
    return countParts(name, {}, false) == 1;
}

bool isBusName(std::string_view name)
{
    if (name.empty() || name.front() != ':') {
        return countParts(name, "-", false) > 1;
    }
    // Behind the colon there may be nothing, or a dot.
    return name.find(':', 1) == std::string_view::npos && countParts(name, ":-", true) > 0;
}

} // namespace Wire

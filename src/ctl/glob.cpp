// SPDX-License-Identifier: Apache-2.0
#include "ctl/glob.h"

#include "ctl/utf8.h"

#include <optional>

namespace Glob
{
namespace
{

//! A character of the pattern that stands for itself where a backslash is before it.
char32_t takeLiteral(std::string_view &pattern)
{
    if (pattern.front() == '\\' && pattern.size() > 1) {
        pattern.remove_prefix(1);
    }
    return Utf8::takeCharacter(pattern);
}

//! Takes what follows an opening bracket: whether it has a character. None where it is not closed.
std::optional<bool> takeBracket(std::string_view &pattern, char32_t wanted)
{
    const bool isNegated = !pattern.empty() && (pattern.front() == '!' || pattern.front() == '^');
    pattern.remove_prefix(isNegated ? 1 : 0);
    bool found = false;
    for (bool isFirst = true; !pattern.empty(); isFirst = false) {
        if (pattern.front() == ']' && !isFirst) {
            pattern.remove_prefix(1);
            return found != isNegated;
        }
        const char32_t from = takeLiteral(pattern);
        char32_t to = from;
        if (pattern.size() > 1 && pattern.front() == '-' && pattern[1] != ']') {
            pattern.remove_prefix(1);
            to = takeLiteral(pattern);
        }
        found = found || (from <= wanted && wanted <= to);
    }
    return std::nullopt;
}

//! Takes a character off both where the pattern's next item stands for it.
bool takeBoth(std::string_view &pattern, std::string_view &text)
{
    if (pattern.empty() || text.empty()) {
        return false;
    }
    if (pattern.front() == '?') {
        pattern.remove_prefix(1);
        (void)Utf8::takeCharacter(text);
        return true;
    }
    if (pattern.front() == '[') {
        pattern.remove_prefix(1);
        return takeBracket(pattern, Utf8::takeCharacter(text)).value_or(false);
    }
    return takeLiteral(pattern) == Utf8::takeCharacter(text);
}

} // namespace

bool isValid(std::string_view pattern)
{
    while (!pattern.empty()) {
        if (pattern == "\\") {
            return false;
        }
        if (pattern.front() != '[') {
            (void)takeLiteral(pattern);
            continue;
        }
        pattern.remove_prefix(1);
        if (!takeBracket(pattern, 0)) {
            return false;
        }
    }
    return true;
}

bool matches(std::string_view pattern, std::string_view text)
{
    // Of several stars only the last one has to give way: whatever those before it stand
    // for, the rest is the same.
    bool hasStar = false;
    std::string_view behindStar;
    std::string_view starText;
    for (;;) {
        if (!pattern.empty() && pattern.front() == '*') {
            pattern.remove_prefix(1);
            hasStar = true;
            behindStar = pattern;
            starText = text;
            continue;
        }
        if (pattern.empty() && text.empty()) {
            return true;
        }
        std::string_view nextPattern = pattern;
        std::string_view nextText = text;
        if (takeBoth(nextPattern, nextText)) {
            pattern = nextPattern;
            text = nextText;
        } else if (hasStar && !starText.empty()) {
            (void)Utf8::takeCharacter(starText);
            pattern = behindStar;
            text = starText;
        } else {
            return false;
        }
    }
}

} // namespace Glob

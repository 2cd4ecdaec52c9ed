// SPDX-License-Identifier: Apache-2.0
#include "ctl/textwidth.h"

#include "ctl/utf8.h"
#include "rendering/utf8text.h"

#include <QChar>

#include <algorithm>
#include <iterator>

namespace TextWidth
{
namespace
{

bool isWide(char32_t code)
{
    // The blocks of UAX #11 whose characters are wide, as far as texts have them.
    static constexpr struct {
        char32_t first;
        char32_t last;
    } blocks[] = {{0x1100, 0x115F}, {0x2E80, 0x303E},   {0x3041, 0xA4CF},   {0xA960, 0xA97F},
                  {0xAC00, 0xD7A3}, {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},
                  {0xFFE0, 0xFFE6}, {0x1F300, 0x1F64F}, {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD}};
    return std::any_of(std::begin(blocks), std::end(blocks), [code](const auto &block) {
        return block.first <= code && code <= block.last;
    });
}

size_t columnsOf(char32_t code)
{
    switch (QChar::category(code)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_Enclosing:
    case QChar::Other_Format:
        return 0;
    default:
        return isWide(code) ? 2 : 1;
    }
}

//! The longest front of a text that fits, but at least one character of it; in bytes.
size_t fitting(std::string_view utf8, size_t width)
{
    std::string_view rest = utf8;
    size_t size = 0;
    size_t taken = 0;
    while (!rest.empty()) {
        taken += columnsOf(Utf8::takeCharacter(rest));
        if (taken > width && size > 0) {
            break;
        }
        size = utf8.size() - rest.size();
    }
    return size;
}

} // namespace

size_t columns(std::string_view utf8)
{
    if (Utf8Text::isAscii(utf8)) {
        return utf8.size();
    }
    size_t sum = 0;
    while (!utf8.empty()) {
        sum += columnsOf(Utf8::takeCharacter(utf8));
    }
    return sum;
}

void appendPadded(std::string &out, std::string_view utf8, size_t width)
{
    out += utf8;
    const size_t taken = columns(utf8);
    out.append(taken < width ? width - taken : 0, ' ');
}

void appendWrapped(std::string &out, std::string_view utf8, size_t first, size_t indent,
                   size_t width)
{
    size_t room = first;
    for (size_t size = fitting(utf8, room); size < utf8.size(); size = fitting(utf8, room)) {
        const size_t blank = utf8.substr(0, size + 1).rfind(' ');
        const bool isAtBlank = blank != std::string_view::npos && blank > 0;
        size = isAtBlank ? blank : size;
        out += utf8.substr(0, size);
        out += '\n';
        out.append(indent, ' ');
        utf8.remove_prefix(size + (isAtBlank ? 1 : 0));
        room = width > indent ? width - indent : 1;
    }
    out += utf8;
}

} // namespace TextWidth

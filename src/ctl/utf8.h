// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace Utf8
{

//! Takes the next character off a text: UTF-8, or one byte that is none. Not of an empty one.
inline char32_t takeCharacter(std::string_view &text)
{
    const auto first = static_cast<unsigned char>(text.front());
    const size_t size = first < 0xC2 ? 1
        : first < 0xE0               ? 2
        : first < 0xF0               ? 3
        : first < 0xF5               ? 4
                                     : 1;
    char32_t code = size == 1 ? first : first & (0x7FU >> size);
    for (size_t i = 1; i < size; ++i) {
        const auto next = i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
        if ((next & 0xC0U) != 0x80U) {
            text.remove_prefix(1);
            return first;
        }
        code = code << 6 | (next & 0x3FU);
    }
    text.remove_prefix(size);
    return code;
}

} // namespace Utf8

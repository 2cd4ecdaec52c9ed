// SPDX-License-Identifier: Apache-2.0
#include "ctl/csvtext.h"

void CsvText::appendCell(std::string &out, std::string_view utf8)
{
    if (utf8.find_first_of("\",\r\n") == std::string_view::npos) {
        out += utf8;
        return;
    }
    out += '"';
    for (const char c : utf8) {
        out.append(c == '"' ? 2 : 1, c);
    }
    out += '"';
}

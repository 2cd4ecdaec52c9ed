// SPDX-License-Identifier: Apache-2.0
#include "ctl/csvtext.h"

#include "ctl/messages.h"
#include "rendering/utf8text.h"

void CsvText::appendCell(std::string &out, std::string_view utf8, bool isOnTerminal)
{
    std::string piece;
    if (isOnTerminal) {
        Messages::appendPrintable(piece, utf8);
        utf8 = piece;
    } else if (!Utf8Text::isAscii(utf8)) {
        Utf8Text::append(piece, Utf8Text::toString(utf8));
        utf8 = piece;
    }
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

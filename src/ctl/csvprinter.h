// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/recordprinter.h"
#include "ctl/timetext.h"

#include <string_view>
#include <utility>

/*!
 * A table as RFC 4180 has it, with a header. Texts are UTF-8 and as they are, but on a
 * terminal, whose cursor they cannot move. What is lost has a row with that state, which
 * gives place and reason as its message.
 */
class CsvPrinter : public RecordPrinter
{
public:
    CsvPrinter(TimeText timeText, bool isOnTerminal, OutputStream &output)
        : times(std::move(timeText))
        , onTerminal(isOnTerminal)
        , out(output)
    {
    }

    void begin() override;
    void record(const RecordView &record) override;
    void lost(const Archive::Place &place, Archive::Fault reason) override;
    void missing(const Archive::NumberRange &numbers) override;

private:
    void addText(std::string_view utf8);
    void endRow(std::string_view message, std::string_view state);

    TimeText times;
    bool onTerminal;
    OutputStream &out;
};

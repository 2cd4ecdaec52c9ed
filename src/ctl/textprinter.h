// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/recordprinter.h"
#include "ctl/timetext.h"

#include <string>
#include <string_view>

/*!
 * Lines for people. On a narrow terminal the message has lines of its own; anywhere but on
 * a terminal a record is one line, however long. Whatever an event holds, it moves no
 * cursor and begins no line.
 */
class TextPrinter : public RecordPrinter
{
public:
    //! How lines are laid out.
    struct Layout {
        bool isAligned = true;
        bool isColoured = false;
        size_t columns = 0;      //!< of the terminal; 0: of none
        bool tellsNotes = false; //!< what is lost or missing goes to standard error
        bool tellsMissing = true;
    };

    //! The catalogue may be null; it is not needed afterwards.
    TextPrinter(const Layout &lines, TimeText timeText, const SystemeventCatalogue *catalogue,
                OutputStream &output);

    void expect(quint64 highestNumber) override;
    void record(const RecordView &record) override;
    void lost(const Archive::Place &place, Archive::Fault reason) override;
    void missing(const Archive::NumberRange &numbers) override;

private:
    void put(std::string_view text, size_t width = 0);
    void putNumber(quint64 number);
    void putTime(const LogFormat::RecordHead &head);
    void putLevel(const EventKind *kind);
    void putName(const RecordView &record);
    void putPath(std::string_view path);
    void putMessage(const RecordView &record);
    void beginLine(size_t indent);
    void note(const std::string &text);
    [[nodiscard]] size_t textColumn() const;
    //! Where a message begins that stands on the line of its record, behind a usual path.
    [[nodiscard]] size_t messageColumn() const;
    [[nodiscard]] bool hasOwnLine() const
    {
        return layout.columns > 0 && messageColumn() + leastMessage > layout.columns;
    }

    //! A message with less room gets lines of its own.
    static constexpr size_t leastMessage = 40;

    Layout layout;
    TimeText times;
    OutputStream &out;
    size_t numberWidth = 0;
    size_t levelWidth = 0;
    size_t nameWidth = 0;
    size_t pathWidth;
    std::string line;  //!< of the record at hand
    size_t column = 0; //!< where the line has come to
    std::string piece; //!< what is put next
};

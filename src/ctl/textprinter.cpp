// SPDX-License-Identifier: Apache-2.0
#include "ctl/textprinter.h"

#include "ctl/colours.h"
#include "ctl/eventkinds.h"
#include "ctl/messages.h"
#include "ctl/textwidth.h"
#include "logformat/logformat.h"
#include "rendering/utf8text.h"

#include <algorithm>
#include <utility>

#include <unistd.h>

namespace
{

// What is longer pushes what stands behind it to the right.
constexpr size_t usualName = 20;
constexpr size_t usualPath = 20;

size_t usual(const QString &text)
{
    return std::min(TextWidth::columns(text.toStdString()), usualName);
}

void appendPlace(std::string &out, const Archive::Place &place)
{
    Utf8Text::append(out, LogFormat::fileName(place.file));
    out += " from " + std::to_string(place.offset) + " to " + std::to_string(place.end());
}

} // namespace

TextPrinter::TextPrinter(const Layout &lines, TimeText timeText,
                         const SystemeventCatalogue *catalogue, OutputStream &output)
    : layout(lines)
    , times(std::move(timeText))
    , out(output)
    , pathWidth(layout.isAligned ? usualPath : 0)
{
    if (catalogue && layout.isAligned) {
        for (const SystemeventDescription &event : catalogue->events) {
            levelWidth = std::max(levelWidth, usual(event.logLevelName));
            nameWidth = std::max(nameWidth, usual(event.name));
        }
    }
}

void TextPrinter::expect(quint64 highestNumber)
{
    numberWidth = layout.isAligned ? std::to_string(highestNumber).size() : 0;
}

size_t TextPrinter::messageColumn() const
{
    return numberWidth + 1 + times.width() + 1 + levelWidth + 1 + nameWidth + 1 + pathWidth + 1;
}

//! Adds a text and a blank, which ends a column.
void TextPrinter::put(std::string_view text, size_t width)
{
    TextWidth::appendPadded(line, text, width);
    line += ' ';
    column += std::max(TextWidth::columns(text), width) + 1;
}

void TextPrinter::putNumber(quint64 number)
{
    piece = std::to_string(number);
    if (layout.isAligned) {
        numberWidth = std::max(numberWidth, piece.size());
    }
    piece.insert(0, piece.size() < numberWidth ? numberWidth - piece.size() : 0, ' ');
    put(piece);
}

void TextPrinter::putTime(const LogFormat::RecordHead &head)
{
    piece.clear();
    if (!times.append(piece, head.seconds, head.microseconds)) {
        piece = '-';
    }
    put(piece, layout.isAligned ? times.width() : 0);
}

void TextPrinter::putLevel(const EventKind *kind)
{
    piece.clear();
    Messages::appendPrintable(piece, kind ? kind->level : "-");
    const std::string_view colour
        = kind && layout.isColoured ? Colours::ofLevel(kind->event->logLevel) : "";
    line += colour;
    line += piece;
    line += colour.empty() ? "" : Colours::plain;
    const size_t taken = TextWidth::columns(piece);
    const size_t left = taken < levelWidth ? levelWidth - taken : 0;
    line.append(left + 1, ' ');
    column += taken + left + 1;
}

void TextPrinter::putName(const RecordView &record)
{
    piece.clear();
    if (record.kind) {
        Messages::appendPrintable(piece, record.kind->name);
    } else {
        Utf8Text::append(piece, record.head.eventId);
    }
    put(piece, nameWidth);
}

void TextPrinter::putPath(std::string_view path)
{
    piece.clear();
    Messages::appendPrintable(piece, path);
    const size_t width = TextWidth::columns(piece);
    if (hasOwnLine() && column + width > layout.columns) {
        beginLine(textColumn());
        TextWidth::appendWrapped(line, piece, layout.columns - column, column, layout.columns);
        return;
    }
    put(piece, hasOwnLine() ? 0 : pathWidth);
}

//! Where lines begin that go on with a record: below its time.
size_t TextPrinter::textColumn() const
{
    return std::min(numberWidth + 1, layout.columns / 2);
}

void TextPrinter::beginLine(size_t indent)
{
    while (line.back() == ' ') {
        line.pop_back();
    }
    line += '\n';
    line.append(indent, ' ');
    column = indent;
}

void TextPrinter::putMessage(const RecordView &record)
{
    piece.clear();
    Messages::appendPrintable(piece, record.message);
    if (record.state != Archive::State::Whole || !record.liveReason.empty()) {
        piece += piece.empty() && layout.isAligned ? "[" : " [";
        piece += record.stateName();
        if (record.isStored()) {
            piece += ", ";
            appendPlace(piece, record.place);
        } else {
            piece += ": ";
            Messages::appendPrintable(piece, record.liveReason);
        }
        piece += ']';
    }
    if (layout.columns == 0) {
        line += piece;
        return;
    }
    if (piece.empty()) {
        return;
    }
    const size_t indent = hasOwnLine() ? textColumn() : messageColumn();
    if (hasOwnLine() || column >= layout.columns) {
        beginLine(indent);
    }
    TextWidth::appendWrapped(line, piece, layout.columns - column, indent, layout.columns);
}

void TextPrinter::record(const RecordView &record)
{
    line.clear();
    column = 0;
    if (record.head.logNr != 0) {
        putNumber(record.head.logNr);
    }
    putTime(record.head);
    putLevel(record.kind);
    putName(record);
    putPath(record.path);
    putMessage(record);
    while (layout.isAligned && line.back() == ' ') {
        line.pop_back();
    }
    line += '\n';
    out.write(line);
}

void TextPrinter::note(const std::string &text)
{
    if (layout.tellsNotes) {
        out.flush(); // so that it is told in its place
        Messages::tell(QString::fromStdString(text));
        return;
    }
    out.write(std::string(layout.isColoured ? Colours::note : "") + "-- " + text
              + (layout.isColoured ? Colours::plain : "") + '\n');
}

void TextPrinter::lost(const Archive::Place &place, Archive::Fault reason)
{
    std::string text = "lost: ";
    appendPlace(text, place);
    text += ": ";
    text += Archive::faultText(reason).data();
    note(text);
}

void TextPrinter::missing(const Archive::NumberRange &numbers)
{
    if (!layout.tellsMissing) {
        return;
    }
    std::string text = "missing: number" + std::string(numbers.first == numbers.last ? " " : "s ")
        + std::to_string(numbers.first);
    if (numbers.first != numbers.last) {
        text += " to " + std::to_string(numbers.last);
    }
    note(text);
}

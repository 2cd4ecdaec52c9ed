// SPDX-License-Identifier: Apache-2.0
#include "ctl/csvprinter.h"

#include "ctl/csvtext.h"
#include "ctl/eventkinds.h"
#include "logformat/logformat.h"
#include "rendering/utf8text.h"

void CsvPrinter::begin()
{
    out.write("number,time,event,name,service,level,levelNumber,path,message,state");
    out.write(CsvText::endOfRow);
}

//! The next cell, behind a comma.
void CsvPrinter::addText(std::string_view utf8)
{
    std::string &row = out.text();
    row += ',';
    CsvText::appendCell(row, utf8, onTerminal);
}

void CsvPrinter::endRow(std::string_view message, std::string_view state)
{
    addText(message);
    addText(state);
    out.write(CsvText::endOfRow);
}

void CsvPrinter::record(const RecordView &record)
{
    std::string &row = out.text();
    if (record.head.logNr != 0) {
        Utf8Text::append(row, record.head.logNr);
    }
    row += ',';
    (void)times.append(row, record.head.seconds, record.head.microseconds); // or an empty cell
    row += ',';
    Utf8Text::append(row, record.head.eventId);
    if (const EventKind *const kind = record.kind) {
        addText(kind->name);
        addText(kind->service);
        addText(kind->level);
        row += ',';
        Utf8Text::append(row, kind->event->logLevel);
    } else {
        row += ",,,,";
    }
    addText(record.path);
    endRow(record.message, record.stateName());
}

void CsvPrinter::lost(const Archive::Place &place, Archive::Fault reason)
{
    out.text() += ",,,,,,,";
    endRow(LogFormat::fileName(place.file).toStdString() + " from " + std::to_string(place.offset)
               + " to " + std::to_string(place.end()) + ": " + Archive::faultText(reason).data(),
           "lost");
}

//! Who reads the table sees it by the numbers.
void CsvPrinter::missing(const Archive::NumberRange & /*numbers*/)
{
}

// SPDX-License-Identifier: Apache-2.0
#include "ctl/recordprinter.h"

#include "ctl/csvprinter.h"
#include "ctl/jsonprinter.h"
#include "ctl/rawprinter.h"
#include "ctl/textprinter.h"

RecordPrinter::~RecordPrinter() = default;

void RecordPrinter::expect(quint64 /*highestNumber*/)
{
}

void RecordPrinter::begin()
{
}

std::unique_ptr<RecordPrinter> makePrinter(const OutputChoice &output,
                                           const SystemeventCatalogue *catalogue, OutputStream &out)
{
    switch (output.format) {
    case Format::Json:
        return std::make_unique<JsonPrinter>(out);
    case Format::Csv:
        return std::make_unique<CsvPrinter>(
            TimeText(output.time.value_or(TimeStyle::Utc), output.now), output.isOnTerminal, out);
    case Format::Raw:
        return std::make_unique<RawPrinter>(catalogue, out);
    case Format::Text:
        break;
    }
    TextPrinter::Layout layout;
    layout.isColoured = output.isColoured;
    layout.columns = size_t(output.columns);
    layout.tellsNotes = !output.isOnTerminal;
    return std::make_unique<TextPrinter>(
        layout, TimeText(output.time.value_or(TimeStyle::Local), output.now), catalogue, out);
}

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/recordprinter.h"
#include "logformat/bytesource.h"
#include "logformat/storedvalue.h"

#include <string>

/*!
 * Explains stored records byte by byte: a line for every field with its offset, its bytes
 * and what they mean. Which values a record holds is taken from the catalogue.
 */
class RawPrinter : public RecordPrinter
{
public:
    //! The catalogue may be null; it must outlive this.
    RawPrinter(const SystemeventCatalogue *systemevents, OutputStream &output)
        : catalogue(systemevents)
        , out(output)
    {
    }

    [[nodiscard]] bool needsMessage() const override { return false; }
    void record(const RecordView &record) override;
    void lost(const Archive::Place &place, Archive::Fault reason) override;
    void missing(const Archive::NumberRange &numbers) override;

private:
    void separate();
    void printHead(const RecordView &record);
    void printValues(const RecordView &record);
    void printValue(const SystemeventArgument &argument, ByteSource &in);
    [[nodiscard]] std::string valueText(const StoredValue &value, const QString &enumName) const;
    //! Prints the bytes between the last printed one and a place of the record.
    void printField(qint64 end, const std::string &meaning);

    const SystemeventCatalogue *catalogue;
    OutputStream &out;
    std::string_view bytes; //!< of the record at hand
    qint64 printed = 0;     //!< bytes of it that have had their line
    bool isFirst = true;
};

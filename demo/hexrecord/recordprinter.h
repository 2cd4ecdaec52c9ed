// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "logformat/bytesource.h"
#include "logformat/storedvalue.h"

#include <QByteArray>
#include <QString>

/*!
 * Explains a stored record byte by byte: a line for every field with its offset,
 * its bytes and what they mean. Which values a record holds is taken, as the
 * reader does it, from the catalogue.
 */
class RecordPrinter
{
public:
    //! \a record begins with the log number and ends with the trailer.
    RecordPrinter(QByteArray record, const SystemeventCatalogue &events);

    //! Prints to standard output; false where the bytes do not add up to a whole record.
    [[nodiscard]] bool print();

private:
    void printHead(const LogFormat::RecordHead &head);
    void printValue(const SystemeventArgument &argument);
    void printTail();
    [[nodiscard]] QString valueText(const StoredValue &value, const QString &enumName) const;
    //! Prints the bytes between the last printed one and a place of the record.
    void printField(qint64 end, const QString &meaning);

    QByteArray bytes;
    const SystemeventCatalogue &catalogue;
    ByteSource input;
    qint64 printed = 0; //!< bytes that have had their line
};

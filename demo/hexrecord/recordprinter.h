// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"

#include <QBuffer>
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
    void printHead();
    void printValues(const SystemeventDescription &event);
    void printValue(const QString &name, int type, const QString &enumName);
    void printText(const QString &name);
    [[nodiscard]] bool printTail();
    template <typename Number>
    Number number();
    QString plainValue(int type);
    //! Prints the bytes between the last printed one and the reading position.
    void printField(const QString &meaning);

    QByteArray bytes;
    const SystemeventCatalogue &catalogue;
    QBuffer input;
    qint64 printed = 0; //!< bytes that have had their line
    qint32 eventId = 0;
};

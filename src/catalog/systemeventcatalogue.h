// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventdescription.h"

#include <QHash>
#include <QList>
#include <QString>

/*!
 * The number that a catalogue's text of an event id is read as. Kept: anything but decimal
 * digits makes the whole id 0, and large numbers wrap at 32 bits. Catalogues in the field
 * were written against this.
 */
uint eventIdFromText(const QString &text);

/*!
 * The event catalogue: what every event id means. Loaded once from XML, only
 * read afterwards; docs/catalogue.md describes the file for those who write it.
 */
class SystemeventCatalogue
{
public:
    /*!
     * Reads a catalogue file into the tables, where later definitions replace
     * earlier ones. False only when the file cannot be opened; a document with
     * XML errors keeps what stands before the first one, without any message.
     */
    [[nodiscard]] bool load(const QString &fileName);

    //! The number of a log level, unknownLogLevel for a name the catalogue does not define.
    [[nodiscard]] int logLevelForName(const QString &name) const;
    //! The text of an enumeration's item; null when the enumeration or the item is missing.
    [[nodiscard]] QString enumText(const QString &enumName, int value) const;

    QHash<uint, SystemeventDescription> events; //!< by event id
    QHash<QString, QHash<int, QString>> enums;  //!< item texts by value, by enumeration
    //! The items of the enumeration "LogLevel", by text; of several with one text the last.
    QHash<QString, int> logLevels;

private:
    void resolveLogLevels(const QList<int> &values);
};

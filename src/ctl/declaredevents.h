// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"

#include <QString>

#include <optional>
#include <vector>

class JsonObject;

/*!
 * Events as a catalogue declares them: how a user names one, and how it is shown. What is
 * found is the catalogue's own.
 */
namespace DeclaredEvents
{

//! An event id as a catalogue or a signal writes it; nothing where that is none.
std::optional<qint32> idOf(const QString &typed);
//! All events of a catalogue, by their ids.
std::vector<const SystemeventDescription *> all(const SystemeventCatalogue &catalogue);
//! The event of an id, else those of a name, by their ids.
std::vector<const SystemeventDescription *> find(const SystemeventCatalogue &catalogue,
                                                 const QString &typed);

//! The items of an enumeration, by their values.
QList<int> sortedValues(const QHash<int, QString> &items);
/*!
 * The arguments of an event on one line, as in "enum PowerInput input, double volts"; with
 * \a catalogue also the items of enumerations: "enum PowerInput input (0 A, 1 B)".
 */
QString argumentsText(const SystemeventDescription &event,
                      const SystemeventCatalogue *catalogue = nullptr);
//! Adds name, service, level and levelNumber.
void addMembers(JsonObject &object, const SystemeventDescription &event);

} // namespace DeclaredEvents

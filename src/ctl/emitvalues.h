// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "ctl/busvalue.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <string>
#include <vector>

/*!
 * Makes values for the bus of what somebody has typed. What is sent for a declared type is
 * read back as what was typed, from the log files and by the catalogue; where no type of the
 * bus does that, nothing is sent (docs/catalogue.md, "Types").
 */
namespace EmitValues
{

struct Result {
    std::vector<BusValue> values;
    QString refusal; //!< why there are none, as the end of a sentence; empty where there are
};

/*!
 * By the declaration of an event. A typed value that begins with the name of an argument and
 * an equals sign is that argument's; the others follow the order of the arguments that are
 * left.
 */
Result byDeclaration(const SystemeventDescription &event, const SystemeventCatalogue &catalogue,
                     const QList<QByteArray> &typed);

/*!
 * By D-Bus types, one behind the other: "b", "y", "n", "q", "i", "u", "x", "t", "d", "s",
 * "o", "ay" (the bytes of a text), "as" (one text), and "v" in front of any of them.
 */
Result byTypes(const std::string &types, const QList<QByteArray> &typed);

//! How an event is declared: "supplyChanged(enum PowerInput input, double volts)".
QString declaration(const SystemeventDescription &event);

//! Whether the bus takes a text as the path of an object.
[[nodiscard]] bool isPath(const QByteArray &text);

} // namespace EmitValues

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "ctl/stats/statistics.h"

#include <QString>

#include <optional>
#include <vector>

/*!
 * What was counted by event, with what the catalogue knows of events. A catalogue may be null;
 * events point into it.
 */
namespace NamedAmounts
{

struct Event {
    qint32 id = 0;
    const SystemeventDescription *event = nullptr; //!< null of one that is not known
    Amount amount;
};
//! The one with the most records first. Without Statistics::unknownEvents().others().
std::vector<Event> events(const Statistics &statistics, const SystemeventCatalogue *catalogue);

struct Level {
    std::optional<int> number; //!< none: that of unknown events
    QString name;              //!< null for those
    Amount amount;
};
//! The most urgent one first, unknown events last.
std::vector<Level> levels(const Statistics &statistics, const SystemeventCatalogue *catalogue);

struct Service {
    QString name; //!< null: that of unknown events
    Amount amount;
};
//! The one with the most records first.
std::vector<Service> services(const Statistics &statistics, const SystemeventCatalogue *catalogue);

} // namespace NamedAmounts

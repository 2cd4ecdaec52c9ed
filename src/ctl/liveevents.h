// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/bus.h"
#include "ctl/eventkinds.h"
#include "ctl/recordprinter.h"
#include "ctl/selection.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

/*!
 * Prints status changes as they come from the bus: their texts as the daemon's datagrams
 * have them, their values as the daemon would store them. Whatever anybody sends, no more
 * is kept of it than constants say.
 */
class LiveEvents
{
public:
    /*!
     * The catalogue may be null; it and \a output must outlive this. Throws WrongUsage for a
     * selection that the catalogue does not know.
     */
    LiveEvents(const Plan &plan, const SystemeventCatalogue *systemevents, OutputStream &output);

    void begin() { printer->begin(); }
    //! Whether a message is a status change; one that the daemon does not hear is told.
    [[nodiscard]] bool isOne(const BusMessage &message);
    //! Prints a status change, where it is selected. May throw OutputFailure.
    void show(const BusMessage &message);
    //! How many have been printed.
    [[nodiscard]] quint64 count() const { return shown; }

private:
    const EventTemplate &textOf(const SystemeventDescription &event);
    [[nodiscard]] QByteArray reasonOf(const EventKind *kind, qint64 recordSize) const;
    qint64 makeRecord(RecordView &record, const QList<QVariant> &args);
    void tellUnheard(const BusMessage &message);

    const SystemeventCatalogue *catalogue;
    QString language;
    bool quiet;
    bool wantsBytes; //!< whether the printer shows values as they are stored
    EventKinds kinds;
    Selection selection;
    std::unique_ptr<RecordPrinter> printer;
    std::unordered_map<uint, EventTemplate> texts; //!< of events of the catalogue
    std::vector<BusValue> values;                  //!< of the status change at hand
    QByteArray bytes;                              //!< of the record that it would be
    quint64 shown = 0;
    int unheardTold = 0;
};

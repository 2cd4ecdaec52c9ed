// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/numberset.h"
#include "catalog/systemeventcatalogue.h"
#include "ctl/outputstream.h"
#include "ctl/plan.h"
#include "ctl/recordview.h"

#include <QtGlobal>

#include <memory>

/*!
 * Prints records one after another, in one format. All calls throw OutputFailure.
 */
class RecordPrinter
{
public:
    RecordPrinter() = default;
    virtual ~RecordPrinter();
    Q_DISABLE_COPY_MOVE(RecordPrinter)

    //! Prepares for numbers up to that one, so that what stands behind them is aligned.
    virtual void expect(quint64 highestNumber);
    //! What stands in front of all records. Once, before any other call but expect().
    virtual void begin();
    //! Whether record() needs the text of records.
    [[nodiscard]] virtual bool needsMessage() const { return true; }
    virtual void record(const RecordView &record) = 0;
    //! A stretch of a file that is no record.
    virtual void lost(const Archive::Place &place, Archive::Fault reason) = 0;
    //! Numbers that no record has.
    virtual void missing(const Archive::NumberRange &numbers) = 0;
};

/*!
 * A printer for the format of the plan. The catalogue may be null; it and \a out must
 * outlive the printer. Texts go to people: where standard output is no terminal, what
 * is lost or missing is told on standard error.
 */
std::unique_ptr<RecordPrinter>
makePrinter(const OutputChoice &output, const SystemeventCatalogue *catalogue, OutputStream &out);

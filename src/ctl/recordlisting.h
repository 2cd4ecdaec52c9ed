// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/eventkinds.h"
#include "ctl/newestfirst.h"
#include "ctl/outputstream.h"
#include "ctl/pager.h"
#include "ctl/plan.h"
#include "ctl/recordorder.h"
#include "ctl/recordprinter.h"
#include "ctl/recordsieve.h"
#include "ctl/selection.h"
#include "ctl/source.h"

#include <memory>
#include <utility>

/*!
 * Prints the records of a folder that a plan selects, paged where the plan says so. Of the
 * last ones alone, only the newest files are read.
 */
class RecordListing
{
public:
    /*!
     * All must outlive this; \a output leads to standard output. Throws WrongUsage for a
     * selection that the catalogue does not know.
     */
    RecordListing(const Plan &shown, const Source &source, OutputStream &output);
    ~RecordListing();
    Q_DISABLE_COPY_MOVE(RecordListing)

    //! Prints on its own terms; otherwise the plan's.
    void use(std::unique_ptr<RecordPrinter> other) { printer = std::move(other); }
    //! Leaves out all that may be no record as it was made.
    void showWholeOnly() { wholeOnly = true; }

    //! Prints what is selected. Once.
    void print(RecordOrder &order);

    //! For records that come later, and are selected, too.
    [[nodiscard]] RecordSieve &sieve();
    //! How many records have been printed.
    [[nodiscard]] quint64 count() const;
    //! Done, DamageFound or NothingMatched.
    [[nodiscard]] ExitStatus status() const;

private:
    class Printing;
    //! Where the records begin that are shown.
    struct Beginning {
        size_t stretch = 0;
        quint64 leftOut = 0; //!< how many of the stretch are not shown
    };

    void printBackwards(RecordOrder &order);
    void printForwards(RecordOrder &order);
    void visit(RecordOrder &order, const Stretch &stretch, RecordSieve &into) const;
    [[nodiscard]] Beginning beginning(RecordOrder &order);

    const Plan &plan;
    OutputStream &out;
    Selection selection;
    EventKinds kinds;
    Pager pager;
    std::unique_ptr<RecordPrinter> printer;
    std::unique_ptr<Printing> printing;
    NewestFirst::Result result; //!< of what was printed backwards
    bool wholeOnly = false;
};

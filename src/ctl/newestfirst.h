// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/eventkinds.h"
#include "ctl/pager.h"
#include "ctl/recordorder.h"
#include "ctl/recordprinter.h"
#include "ctl/selection.h"

/*!
 * Prints what is selected with the last record first. Goes through one file after
 * another, so the first lines are there at once.
 *
 * Memory: 64 bytes a record of a file, up to 4 MiB; a file with more is gone through
 * again for each such part.
 */
class NewestFirst
{
public:
    struct Result {
        quint64 count = 0; //!< of the records that were printed
        bool isDamaged = false;
    };

    //! All must outlive this.
    NewestFirst(Selection &selected, EventKinds &eventKinds, RecordPrinter &recordPrinter,
                const Pager &outputPager)
        : selection(selected)
        , kinds(eventKinds)
        , printer(recordPrinter)
        , pager(outputPager)
    {
    }

    //! Prints at most so many records, of those that are whole, or all.
    Result print(RecordOrder &order, quint64 most, bool wholeOnly);

private:
    Selection &selection;
    EventKinds &kinds;
    RecordPrinter &printer;
    const Pager &pager;
};

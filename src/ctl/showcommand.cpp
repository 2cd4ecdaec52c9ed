// SPDX-License-Identifier: Apache-2.0
#include "ctl/showcommand.h"

#include "ctl/recordlisting.h"
#include "ctl/recordorder.h"
#include "ctl/source.h"

ExitStatus runShow(const Plan &plan, OutputStream &out)
{
    Source source(plan.source, plan.output.isQuiet);
    if (!source.open()) {
        return ExitStatus::Failed;
    }
    RecordListing listing(plan, source, out);
    RecordOrder order(source.folder(), RecordOrder::By::Number);
    listing.print(order);
    return order.isComplete() ? listing.status() : ExitStatus::Failed;
}

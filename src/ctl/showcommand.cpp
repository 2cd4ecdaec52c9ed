// SPDX-License-Identifier: Apache-2.0
#include "ctl/showcommand.h"

#include "ctl/folderwatch.h"
#include "ctl/follower.h"
#include "ctl/messages.h"
#include "ctl/recordlisting.h"
#include "ctl/recordorder.h"
#include "ctl/source.h"

namespace
{

//! Ends with the process, or when nobody reads any more.
[[noreturn]] void follow(const Plan &plan, const Source &source, const RecordOrder &order,
                         RecordListing &listing, OutputStream &out)
{
    if (!plan.output.isQuiet) {
        Messages::tell(QStringLiteral("records reach the files up to 30 seconds after their "
                                      "event; \"systemeventctl watch\" shows events at once"));
    }
    FolderWatch watch(plan.source.folder);
    Archive::Folder folder(plan.source.folder, source.catalogue());
    Follower follower(folder, order);
    for (;;) {
        follower.catchUp(listing.sieve());
        out.flush();
        watch.wait();
    }
}

} // namespace

ExitStatus runShow(const Plan &plan, OutputStream &out)
{
    Source source(plan.source, plan.output.isQuiet);
    if (!source.open()) {
        return ExitStatus::Failed;
    }
    RecordListing listing(plan, source, out);
    RecordOrder order(source.folder(), RecordOrder::By::Number);
    listing.print(order);
    if (plan.show.follow) {
        follow(plan, source, order, listing, out);
    }
    return order.isComplete() ? listing.status() : ExitStatus::Failed;
}

// SPDX-License-Identifier: Apache-2.0
#include "ctl/clearcommand.h"

#include "ctl/busname.h"
#include "ctl/consent.h"
#include "ctl/daemoncalls.h"

ExitStatus runClear(const Plan &plan)
{
    const ExitStatus consent = askConsent(
        plan.consent,
        QStringLiteral("this deletes all log files of the device, and what waits to be written"));
    if (consent != ExitStatus::Done) {
        return consent;
    }
    Bus bus;
    if (!bus.openToDaemon()) {
        return ExitStatus::Failed;
    }
    const BusAnswer answer = DaemonCalls::call(bus, "clearLogfiles");
    if (!answer.isDone()) {
        tellFailure(answer, QStringLiteral("the log is not cleared"), BusName::adminGroup);
        return ExitStatus::Failed;
    }
    return ExitStatus::Done;
}

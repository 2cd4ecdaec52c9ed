// SPDX-License-Identifier: Apache-2.0
#include "ctl/ctl.h"

#include "ctl/cataloguecheckcommand.h"
#include "ctl/cataloguecommand.h"
#include "ctl/clearcommand.h"
#include "ctl/collectcommand.h"
#include "ctl/commandline.h"
#include "ctl/completion.h"
#include "ctl/emitcommand.h"
#include "ctl/interruption.h"
#include "ctl/messages.h"
#include "ctl/outputstream.h"
#include "ctl/pager.h"
#include "ctl/repaircommand.h"
#include "ctl/reportcommand.h"
#include "ctl/salvagecommand.h"
#include "ctl/settingscommand.h"
#include "ctl/showcommand.h"
#include "ctl/stats/statscommand.h"
#include "ctl/verifycommand.h"
#include "ctl/watchcommand.h"

#include <QtGlobal>

#include <cerrno>
#include <clocale>
#include <csignal>

#include <unistd.h>

namespace
{

ExitStatus runCommand(const Plan &plan, OutputStream &out)
{
    switch (plan.command) {
    case Command::Show:
        return runShow(plan, out);
    case Command::Stats:
        return runStats(plan, out);
    case Command::Verify:
        return runVerify(plan, out);
    case Command::Salvage:
        return runSalvage(plan, out);
    case Command::Report:
        return runReport(plan, out);
    case Command::Watch:
        return runWatch(plan);
    case Command::Emit:
        return runEmit(plan, out);
    case Command::CatalogueCheck:
        return runCatalogueCheck(plan, out);
    case Command::CatalogueList:
        return runCatalogueList(plan, out);
    case Command::CatalogueShow:
        return runCatalogueShow(plan, out);
    case Command::Settings:
        return runSettings(plan, out);
    case Command::Clear:
        return runClear(plan);
    case Command::Collect:
        return runCollect(plan, out);
    case Command::Repair:
        break;
    }
    return runRepair(plan, out);
}

ExitStatus run(const CommandLine &line, OutputStream &out)
{
    ExitStatus status = line.status;
    if (line.plan) {
        status = runCommand(*line.plan, out);
    } else if (line.completed) {
        out.write(Completion::candidates(*line.completed));
    } else if (!line.complaint.empty()) {
        Messages::tell(QString::fromStdString(line.complaint));
    } else {
        out.write(line.answer);
    }
    out.flush();
    return status;
}

//! Ends the process as other tools end, whatever its parent has made of the signal.
void endByClosedPipe()
{
    sigset_t closedPipe;
    (void)sigemptyset(&closedPipe);
    (void)sigaddset(&closedPipe, SIGPIPE);
    (void)sigprocmask(SIG_UNBLOCK, &closedPipe, nullptr);
    (void)std::signal(SIGPIPE, SIG_DFL);
    (void)std::raise(SIGPIPE);
}

//! What Qt remarks on, such as a text without a placeholder, is not for the user.
void dropMessage(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                 const QString & /*message*/)
{
}

} // namespace

int runCtl(int argc, char **argv)
{
    qInstallMessageHandler(dropMessage);
    (void)std::setlocale(LC_CTYPE, ""); // for the names of files
    // A closed pipe shows as an error of writing, so that work under way ends in order.
    (void)std::signal(SIGPIPE, SIG_IGN);
    OutputStream out(STDOUT_FILENO);
    try {
        return int(run(CommandLine::read(argc, argv), out));
    } catch (const WrongUsage &wrong) {
        Messages::tell(QString::fromStdString(wrong.reason));
        return int(ExitStatus::WrongUsage);
    } catch (const Pager::Left &) {
        return int(ExitStatus::Done);
    } catch (const OutputFailure &failure) {
        if (failure.error == EPIPE) {
            endByClosedPipe();              // who reads has had enough
            return int(ExitStatus::Failed); // only of a process that signals do not end
        }
        Messages::tell(QStringLiteral("standard output cannot be written: %1; what is there is "
                                      "not complete")
                           .arg(Messages::errorText(failure.error)));
        return int(ExitStatus::Failed);
    } catch (const Interruption::Happened &interruption) {
        (void)std::raise(interruption.signal);
        return int(ExitStatus::Failed); // only where the signal is ignored
    }
}

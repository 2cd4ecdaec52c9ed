// SPDX-License-Identifier: Apache-2.0
#include "ctl/ctl.h"

#include "ctl/cataloguecheckcommand.h"
#include "ctl/cataloguecommand.h"
#include "ctl/commandline.h"
#include "ctl/interruption.h"
#include "ctl/messages.h"
#include "ctl/outputstream.h"
#include "ctl/repaircommand.h"
#include "ctl/salvagecommand.h"
#include "ctl/verifycommand.h"

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
    case Command::Verify:
        return runVerify(plan, out);
    case Command::Salvage:
        return runSalvage(plan, out);
    case Command::Repair:
        return runRepair(plan, out);
    case Command::CatalogueCheck:
        return runCatalogueCheck(plan, out);
    case Command::CatalogueList:
        return runCatalogueList(plan, out);
    case Command::CatalogueShow:
        break;
    }
    return runCatalogueShow(plan, out);
}

ExitStatus run(const CommandLine &line, OutputStream &out)
{
    ExitStatus status = line.status;
    if (line.plan) {
        status = runCommand(*line.plan, out);
    } else if (!line.complaint.empty()) {
        Messages::tell(QString::fromStdString(line.complaint));
    } else {
        out.write(line.answer);
    }
    out.flush();
    return status;
}

//! What the framework remarks on, such as a text without a placeholder, is not for the user.
void dropMessage(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
                 const QString & /*message*/)
{
}

} // namespace

int runCtl(int argc, char **argv)
{
    qInstallMessageHandler(dropMessage);
    (void)std::setlocale(LC_CTYPE, ""); // for the names of files
    // A closed pipe shows as an error of writing, whoever has started this.
    (void)std::signal(SIGPIPE, SIG_IGN);
    OutputStream out(STDOUT_FILENO);
    try {
        return int(run(CommandLine::read(argc, argv), out));
    } catch (const OutputFailure &failure) {
        if (failure.error == EPIPE) {
            return int(ExitStatus::Done); // who reads has had enough
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

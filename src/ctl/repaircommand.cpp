// SPDX-License-Identifier: Apache-2.0
#include "ctl/repaircommand.h"

#include "archive/repair.h"
#include "archive/repairdisk.h"
#include "ctl/advice.h"
#include "ctl/busname.h"
#include "ctl/jsonobject.h"
#include "ctl/messages.h"
#include "ctl/source.h"
#include "logformat/logformat.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string_view>

#include <unistd.h>

namespace
{

using Archive::RepairAction;
using Archive::RepairObstacle;
using Archive::RepairResult;
using Archive::RepairStep;
using Messages::counted;

//! Why a file is left as it is, and what to do.
std::string obstacleText(const RepairStep &step)
{
    switch (step.obstacle) {
    case RepairObstacle::None:
        break;
    case RepairObstacle::Record:
        return "the daemon shows the damaged records as they are; nothing is to be done";
    case RepairObstacle::NoRecord:
        return "no record in it can be made out; nothing is to be done";
    case RepairObstacle::Kept:
        return "no room in damaged/ for what would be taken out; move its files elsewhere "
               "and run this again";
    case RepairObstacle::NotOwn:
        return "it is a link, or has a second name; replace it by a file of its own";
    case RepairObstacle::Unsure:
        return "mending it would hide what the daemon shows now; see what salvage makes of it";
    case RepairObstacle::Unreadable:
        return "it cannot be read: " + Messages::errorText(step.error).toStdString()
            + "; mend that and run this again";
    case RepairObstacle::Failed:
        return "this failed: " + Messages::errorText(step.error).toStdString()
            + "; mend that and run this again";
    }
    return {};
}

const char *actionName(RepairAction action)
{
    switch (action) {
    case RepairAction::CutEnd:
        return "cutEnd";
    case RepairAction::Rewrite:
        return "rewrite";
    case RepairAction::Leave:
        break;
    }
    return "leave";
}

void appendStepObject(std::string &text, const RepairStep &step)
{
    JsonObject object(text);
    object.add("file", LogFormat::fileName(step.file));
    object.add("action", std::string_view(actionName(step.action)));
    object.addNumber("size", step.size).addNumber("newSize", step.newSize);
    object.addNumber("damagedAt", step.damagedAt);
    object.add("reason", Archive::faultText(step.fault));
    object.addNumber("records", qint64(step.records));
    object.addNumber("readBefore", qint64(step.readBefore));
    object.addNumber("readAfter", qint64(step.readAfter));
    if (!step.keptAs.isEmpty()) {
        object.add("keptAs", step.keptAs);
    }
    if (step.obstacle != RepairObstacle::None) {
        object.add("obstacle", std::string_view(obstacleText(step)));
    }
    object.end();
    text += '\n';
}

void appendResultObject(std::string &text, const RepairResult &result, bool dryRun)
{
    text += "{\"summary\":";
    JsonObject object(text);
    object.addFlag("dryRun", dryRun).addFlag("well", result.isWell());
    object.addNumber("records", qint64(result.records));
    object.addNumber("readBefore", qint64(result.readBefore));
    object.addNumber("readAfter", qint64(result.readAfter));
    object.addLarge("nextBefore", result.nextBefore).addLarge("nextAfter", result.nextAfter);
    object.end();
    text += "}\n";
}

std::string placeText(const RepairStep &step)
{
    std::string text = LogFormat::fileName(step.file).toStdString();
    if (step.fault != Archive::Fault::None) {
        text += std::string(", ") + Archive::faultText(step.fault).data() + " at "
            + std::to_string(step.damagedAt);
    }
    return text + ":\n  ";
}

std::string actionText(const RepairStep &step, bool dryRun)
{
    switch (step.action) {
    case RepairAction::CutEnd:
        return std::string(dryRun ? "its end would be cut off" : "its end was cut off") + ", from "
            + std::to_string(step.size) + " to " + std::to_string(step.newSize) + " bytes\n";
    case RepairAction::Rewrite:
        return std::string(dryRun ? "it would be written anew" : "it was written anew")
            + " from its records, from " + std::to_string(step.size) + " to "
            + std::to_string(step.newSize) + " bytes\n";
    case RepairAction::Leave:
        break;
    }
    return "it is left as it is\n";
}

void appendStepText(std::string &text, const RepairStep &step, bool dryRun)
{
    text += placeText(step) + actionText(step, dryRun);
    if (step.obstacle != RepairObstacle::None) {
        text += "  " + obstacleText(step) + '\n';
    }
    if (step.records > 0) {
        text += "  the daemon shows " + std::to_string(step.readBefore) + " of its "
            + counted(step.records, "record");
        text += step.action == RepairAction::Leave
            ? "\n"
            : " before, " + std::to_string(step.readAfter) + " after\n";
    }
    if (!step.keptAs.isEmpty()) {
        text += std::string(dryRun ? "  what is taken out would be kept as "
                                   : "  what was taken out is kept as ")
            + step.keptAs.toStdString() + '\n';
    }
}

std::string healthyText(const RepairResult &result)
{
    if (result.readBefore < result.records) {
        return "Nothing is damaged: the daemon shows " + std::to_string(result.readBefore) + " of "
            + counted(result.records, "record");
    }
    switch (result.records) {
    case 0:
        return "All is well: there are no records";
    case 1:
        return "All is well: the daemon shows the only record";
    default:
        return "All is well: the daemon shows all " + std::to_string(result.records) + " records";
    }
}

void appendResultText(std::string &text, const RepairResult &result, const SourceChoice &source)
{
    if (result.wasHealthy()) {
        text += healthyText(result) + ", and the next number is "
            + std::to_string(result.nextBefore) + ".\n";
        if (result.readBefore < result.records) {
            Advice::appendForHidden(text, source);
        }
        return;
    }
    text += "In all the daemon shows " + std::to_string(result.readBefore) + " of "
        + counted(result.records, "record") + " before, " + std::to_string(result.readAfter)
        + " after.\nThe next number is " + std::to_string(result.nextBefore) + " before, "
        + std::to_string(result.nextAfter) + " after.\n";
}

void show(const Plan &plan, const RepairResult &result, OutputStream &out)
{
    if (result.wasHealthy() && plan.output.isQuiet) {
        return;
    }
    const bool isJson = plan.output.format == Format::Json;
    for (const RepairStep &step : result.steps) {
        if (isJson) {
            appendStepObject(out.text(), step);
        } else {
            appendStepText(out.text(), step, plan.repair.dryRun);
        }
        out.wrote();
    }
    if (isJson) {
        appendResultObject(out.text(), result, plan.repair.dryRun);
    } else {
        appendResultText(out.text(), result, plan.source);
    }
    out.wrote();
}

//! A repair may be stopped anywhere, so this needs no care.
void stopAtOnce(int /*signal*/)
{
    static constexpr std::string_view message
        = "systemeventctl: the time for the repair is over; the next run goes on\n";
    (void)!::write(STDERR_FILENO, message.data(), message.size());
    ::_exit(int(ExitStatus::Failed));
}

void limitTime(uint seconds)
{
    if (seconds > 0) {
        (void)std::signal(SIGALRM, stopAtOnce);
        (void)::alarm(seconds);
    }
}

ExitStatus statusOf(const RepairResult &result, bool dryRun)
{
    const bool hasFailed
        = std::any_of(result.steps.begin(), result.steps.end(), [](const RepairStep &step) {
              return step.obstacle == RepairObstacle::Failed
                  || step.obstacle == RepairObstacle::Unreadable;
          });
    if (hasFailed) {
        return ExitStatus::Failed;
    }
    const bool isLeft = dryRun ? !result.wasHealthy() : !result.isWell();
    return isLeft ? ExitStatus::DamageFound : ExitStatus::Done;
}

//! Why a repair is refused, as somebody else may be writing; null: it is not.
QString refusal(const SourceChoice &source, const Archive::FolderLock &lock)
{
    if (lock.error() == EWOULDBLOCK) {
        return QStringLiteral("%1: another process writes there; stop the daemon first, with "
                              "\"systemctl stop systemeventlogger\"")
            .arg(source.folder);
    }
    if (!lock.isHeld()) {
        return QStringLiteral("%1: the folder cannot be opened and locked: %2; name another one "
                              "with -D")
            .arg(source.folder, Messages::errorText(lock.error()));
    }
    if (!source.folderIsNamed && isDaemonOnBus()) {
        return QStringLiteral("the daemon runs; stop it first, with "
                              "\"systemctl stop systemeventlogger\"");
    }
    return {};
}

} // namespace

ExitStatus runRepair(const Plan &plan, OutputStream &out)
{
    limitTime(plan.repair.timeLimit);
    const Archive::FolderLock lock(plan.source.folder);
    const QString reason = refusal(plan.source, lock);
    if (!reason.isNull()) {
        Messages::tell(reason);
        return ExitStatus::Failed;
    }
    Source source(plan.source, plan.output.isQuiet);
    if (!source.open()) {
        return ExitStatus::Failed;
    }
    Archive::RepairDisk disk;
    Archive::Repair repair(source.folder(), disk);
    const RepairResult result = plan.repair.dryRun ? repair.plan() : repair.run();
    show(plan, result, out);
    return statusOf(result, plan.repair.dryRun);
}

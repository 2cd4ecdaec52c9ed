// SPDX-License-Identifier: Apache-2.0
#include "archive/repair.h"

#include "archive/daemonwalk.h"
#include "archive/repaircontent.h"
#include "logformat/logformat.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <set>

#include <fcntl.h>

namespace Archive
{
namespace
{

const char *const temporaryName = "tmp";

QByteArray fileNameOf(int index)
{
    return QFile::encodeName(LogFormat::fileName(index));
}

} // namespace

bool RepairResult::isWell() const
{
    return std::all_of(steps.begin(), steps.end(), [](const RepairStep &step) {
        return step.obstacle == RepairObstacle::None;
    });
}

Repair::Repair(const Folder &opened, RepairDisk &used, RepairLimits most)
    : folder(opened)
    , disk(used)
    , limits(most)
{
}

RepairResult Repair::plan()
{
    planAll();
    for (const Job &job : jobs) {
        result.steps.push_back(job.step);
    }
    return result;
}

RepairResult Repair::run()
{
    planAll();
    bool hasFailed = false;
    for (Job &job : jobs) {
        if (job.step.action != RepairAction::Leave) {
            job.step.error = carryOut(job);
        }
        if (job.step.error != 0 && job.step.action != RepairAction::Leave) {
            hasFailed = true;
            job.step.action = RepairAction::Leave;
            job.step.obstacle = RepairObstacle::Failed;
            result.readAfter -= job.step.readAfter - job.step.readBefore;
            job.step.readAfter = job.step.readBefore;
            job.step.newSize = job.step.size;
            job.step.keptAs.clear();
        }
        result.steps.push_back(job.step);
    }
    if (hasFailed) {
        result.nextAfter = presentNext();
    }
    return result;
}

//! The number that the daemon would go on with behind the files as they stand.
quint64 Repair::presentNext() const
{
    const std::vector<ListedFile> &files = folder.files();
    for (auto file = files.rbegin(); file != files.rend(); ++file) {
        const FileBytes bytes(directory.get(), fileNameOf(file->index));
        const qint64 size = bytes.isOpen() ? qint64(bytes.status().st_size) : 0;
        if (size > 0) {
            return DaemonWalk(bytes, size).lastLogNr() + 1;
        }
    }
    return 1;
}

void Repair::planAll()
{
    result = {};
    jobs.clear();
    hasNewest = false;
    directory = openFolder(folder.path());
    kept = std::make_unique<Quarantine>(directory.get(), limits);
    result.nextBefore = presentNext();
    const std::vector<ListedFile> &files = folder.files();
    for (auto file = files.rbegin(); file != files.rend(); ++file) {
        planFile(*file);
    }
}

void Repair::planFile(const ListedFile &file)
{
    FileSurvey survey(limits.bytes);
    const bool isRead = folder.visit(file, survey);
    Job job;
    job.identity = file.identity;
    job.step.file = file.index;
    job.step.size = survey.size;
    job.step.newSize = survey.size;
    job.step.damagedAt = std::max<qint64>(survey.damagedAt, 0);
    job.step.fault = survey.fault;
    job.step.records = survey.records;
    job.step.readBefore = survey.result.readByDaemon;
    job.step.readAfter = job.step.readBefore;
    if (!isRead) {
        job.step.obstacle = RepairObstacle::Unreadable;
        job.step.error = survey.result.error;
        jobs.push_back(job);
    } else if (survey.damagedAt >= 0) {
        decide(job, survey);
        jobs.push_back(job);
    }
    result.records += job.step.records;
    result.readBefore += job.step.readBefore;
    result.readAfter += job.step.readAfter;
    if (!hasNewest && job.step.newSize > 0) {
        hasNewest = true;
        const bool isChanged = job.step.action != RepairAction::Leave;
        result.nextAfter
            = nextNumber(job, isChanged ? job.content : std::vector<Range>{{0, job.step.size}});
    }
}

//! The number that the daemon would go on with behind ranges of a file.
quint64 Repair::nextNumber(const Job &job, const std::vector<Range> &ranges) const
{
    const FileBytes file(directory.get(), fileNameOf(job.step.file));
    QByteArray bytes;
    const bool isBeginning = ranges.size() == 1 && ranges.front().begin == 0;
    if (isBeginning || !file.read(0, job.step.size, bytes)) {
        return DaemonWalk(file, sizeOf(ranges)).lastLogNr() + 1;
    }
    const QByteArray parts = partsOf(bytes, ranges);
    return DaemonWalk(FileBytes(parts), qint64(parts.size())).lastLogNr() + 1;
}

//! Finds out what can be done with a damaged file.
void Repair::decide(Job &job, const FileSurvey &survey)
{
    if (survey.goodPrefix == survey.size) {
        job.step.obstacle = RepairObstacle::Record;
        return;
    }
    if (survey.goodEnd == 0 && hasNewest) {
        job.step.obstacle = RepairObstacle::NoRecord; // it hides nothing
        return;
    }
    const FileBytes file(directory.get(), fileNameOf(job.step.file));
    const bool isCurrent = job.step.file == 0;
    QByteArray bytes;
    job.step.obstacle = RepairObstacle::Kept;
    if (survey.isNoted && file.isOpen() && file.read(0, survey.size, bytes)) {
        if (!findContent(job, survey, bytes) || leavesOutWalked(bytes, job.content)
            || !keepsReadable(job, survey, bytes)) {
            job.step.obstacle = RepairObstacle::Unsure;
            return;
        }
        const bool isCut
            = isCurrent && (job.content.empty() || job.content.back().end == sizeOf(job.content));
        if (isCut ? cutEnd(job, file) : rewrite(job, bytes)) {
            return;
        }
    }
    // The next number comes from the end of the file: that at least.
    job.left = survey.damagedAt < survey.goodEnd ? job.step.obstacle : RepairObstacle::None;
    job.content = {{0, survey.goodEnd}};
    job.step.readAfter = survey.goodRecords;
    const bool isSafe = !survey.isNoted || keepsReadable(job, survey, bytes);
    if (!isCurrent || survey.goodEnd == survey.size || !isSafe || !cutEnd(job, file)) {
        job.step.readAfter = job.step.readBefore;
    }
}

/*!
 * Finds out what the file is to consist of. What is left out may make its neighbours look
 * different: the result is what nothing would be left out of.
 */
bool Repair::findContent(Job &job, const FileSurvey &survey, const QByteArray &bytes)
{
    constexpr int mostRounds = 8;
    job.content = goodContent(survey, bytes);
    for (int round = 0; round < mostRounds; ++round) {
        const QByteArray mended = partsOf(bytes, job.content);
        FileSurvey again(limits.bytes);
        if (!folder.visit(job.step.file, FileBytes(mended), qint64(mended.size()), again)) {
            return false;
        }
        job.left = again.damagedAt < 0 ? RepairObstacle::None : RepairObstacle::Record;
        if (again.damagedAt < 0 || again.goodPrefix == again.size
            || (again.goodEnd == 0 && hasNewest)) {
            return true;
        }
        const std::vector<Range> rest = goodContent(again, mended);
        if (sizeOf(rest) == mended.size()) {
            return true;
        }
        job.content = rangesOfRanges(job.content, rest);
    }
    return false;
}

/*!
 * Whether the daemon's walk finds all good records in the new content that it finds now;
 * counts what it finds there.
 */
bool Repair::keepsReadable(Job &job, const FileSurvey &survey, const QByteArray &bytes)
{
    const std::set<qint64> found = walkedPositions(partsOf(bytes, job.content));
    const auto isFound
        = [&](qint64 begin) { return found.count(positionInParts(begin, job.content)) != 0; };
    const std::vector<qint64> sound = undoubtedRecords(survey, bytes);
    if (!std::all_of(survey.readNow.begin(), survey.readNow.end(), isFound)
        || !std::all_of(sound.begin(), sound.end(), isFound)) {
        return false;
    }
    job.step.readAfter
        = quint64(std::count_if(survey.begins.begin(), survey.begins.end(), isFound));
    return true;
}

//! A file that has another name, but for one in damaged/, is changed under that, too.
bool Repair::isOwn(const Job &job, const QByteArray &keptName) const
{
    struct stat status {
    };
    if (::fstatat(directory.get(), fileNameOf(job.step.file).constData(), &status,
                  AT_SYMLINK_NOFOLLOW)
            != 0
        || !S_ISREG(status.st_mode)) {
        return false;
    }
    struct stat inKept {
    };
    const QByteArray path = QByteArray(Quarantine::folderName()) + '/' + keptName;
    const bool isKept
        = ::fstatat(directory.get(), path.constData(), &inKept, AT_SYMLINK_NOFOLLOW) == 0
        && identityOf(inKept) == identityOf(status);
    return status.st_nlink == (isKept ? 2U : 1U);
}

bool Repair::rewrite(Job &job, const QByteArray &bytes)
{
    const QByteArray name = fileNameOf(job.step.file);
    return keep(job, RepairAction::Rewrite, Quarantine::nameFor(name, bytes), bytes);
}

bool Repair::cutEnd(Job &job, const FileBytes &file)
{
    const qint64 size = sizeOf(job.content);
    QByteArray end;
    if (job.step.size - size > limits.bytes || !file.read(size, job.step.size, end)) {
        return false;
    }
    const QByteArray prefix = fileNameOf(job.step.file) + '-' + QByteArray::number(size);
    return keep(job, RepairAction::CutEnd, Quarantine::nameFor(prefix, end), end);
}

//! Decides for an action, if there is room for what it takes out.
bool Repair::keep(Job &job, RepairAction action, const QByteArray &name, const QByteArray &bytes)
{
    if (!isOwn(job, name)) {
        job.step.obstacle = RepairObstacle::NotOwn;
        return false;
    }
    if (!kept->reserve(name, bytes)) {
        job.step.obstacle = RepairObstacle::Kept;
        return false;
    }
    job.step.action = action;
    job.step.obstacle = job.left;
    job.step.keptAs = QFile::decodeName(Quarantine::folderName() + QByteArray("/") + name);
    job.step.newSize = sizeOf(job.content);
    return true;
}

//! Each gives 0 or an errno.
int Repair::carryOut(const Job &job)
{
    const FileBytes original(directory.get(), fileNameOf(job.step.file));
    if (!original.isOpen()) {
        return errno;
    }
    const struct stat status = original.status();
    if (!(identityOf(status) == job.identity) || qint64(status.st_size) != job.step.size) {
        return EBUSY; // somebody writes in spite of the lock
    }
    if (const int error = disk.makeFolder(directory.get(), Quarantine::folderName())) {
        return error;
    }
    const Descriptor keptFolder(::openat(directory.get(), Quarantine::folderName(),
                                         O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!keptFolder.isOpen()) {
        return errno;
    }
    const int error = job.step.action == RepairAction::Rewrite
        ? replace(job, original, keptFolder.get())
        : cut(job, original, keptFolder.get());
    if (error != 0) {
        (void)disk.remove(keptFolder.get(), temporaryName); // it may fill a disk that is full
    }
    return error;
}

int Repair::writeTemporary(int keptFolder, const FileBytes &original,
                           const std::vector<Range> &content)
{
    Descriptor temporary;
    int error = disk.create(keptFolder, temporaryName, temporary);
    for (const Range &range : content) {
        QByteArray bytes;
        if (error == 0 && !original.read(range.begin, range.end, bytes)) {
            error = errno != 0 ? errno : EBUSY;
        }
        if (error == 0) {
            error = disk.write(temporary.get(), {bytes.constData(), size_t(bytes.size())});
        }
    }
    if (error == 0) {
        error = disk.setAttributes(temporary.get(), original.status());
    }
    return error == 0 ? disk.sync(temporary.get()) : error;
}

/*!
 * The new file is on storage before it gets the name, and so is the other name of the old
 * one before it loses its own.
 */
int Repair::replace(const Job &job, const FileBytes &original, int keptFolder)
{
    const QByteArray name = fileNameOf(job.step.file);
    const QByteArray keptName
        = QFile::encodeName(job.step.keptAs).mid(int(qstrlen(Quarantine::folderName())) + 1);
    int error = writeTemporary(keptFolder, original, job.content);
    if (error == 0) {
        error = disk.link(directory.get(), name.constData(), keptFolder, keptName.constData());
        error = error == EEXIST ? 0 : error; // kept by a run that was stopped
    }
    error = error == 0 ? disk.sync(keptFolder) : error;
    error = error == 0 ? disk.sync(directory.get()) : error; // damaged/ itself may be new
    if (error == 0) {
        error = disk.rename(keptFolder, temporaryName, directory.get(), name.constData());
    }
    error = error == 0 ? disk.sync(directory.get()) : error;
    return error == 0 ? disk.sync(keptFolder) : error;
}

//! What is cut off is on storage before it is cut off.
int Repair::cut(const Job &job, const FileBytes &original, int keptFolder)
{
    const struct stat before = original.status();
    const QByteArray keptName
        = QFile::encodeName(job.step.keptAs).mid(int(qstrlen(Quarantine::folderName())) + 1);
    int error = writeTemporary(keptFolder, original, {{job.step.newSize, job.step.size}});
    if (error == 0) {
        error = disk.rename(keptFolder, temporaryName, keptFolder, keptName.constData());
    }
    error = error == 0 ? disk.sync(keptFolder) : error;
    error = error == 0 ? disk.sync(directory.get()) : error;
    Descriptor file;
    if (error == 0) {
        error = disk.open(directory.get(), fileNameOf(job.step.file).constData(), file);
    }
    error = error == 0 ? disk.truncate(file.get(), job.step.newSize) : error;
    error = error == 0 ? disk.setAttributes(file.get(), before) : error;
    return error == 0 ? disk.sync(file.get()) : error;
}

} // namespace Archive

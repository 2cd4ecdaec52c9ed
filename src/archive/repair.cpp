// SPDX-License-Identifier: Apache-2.0
#include "archive/repair.h"

#include "archive/chainsearch.h"
#include "archive/daemonwalk.h"
#include "archive/filescan.h"
#include "logformat/bytesource.h"
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

QByteArray partsOf(const QByteArray &bytes, const std::vector<Range> &ranges)
{
    QByteArray parts;
    for (const Range &range : ranges) {
        parts.append(bytes.constData() + range.begin, int(range.end - range.begin));
    }
    return parts;
}

//! Where the daemon's walk finds records in bytes.
std::set<qint64> walk(const QByteArray &bytes)
{
    std::set<qint64> found;
    if (bytes.isEmpty()) {
        return found;
    }
    ByteSource in({bytes.constData(), size_t(bytes.size())});
    LogFormat::walkBack(in, in.size(), LogFormat::Walk::WholeFile,
                        [&found](qint64 position, quint64 /*logNr*/) {
                            found.insert(position);
                            return true;
                        });
    return found;
}

//! Where a position of a file lies in its parts; negative where it is in none.
qint64 positionInParts(qint64 position, const std::vector<Range> &ranges)
{
    qint64 before = 0;
    for (const Range &range : ranges) {
        if (position < range.end) {
            return position >= range.begin ? before + position - range.begin : -1;
        }
        before += range.end - range.begin;
    }
    return -1;
}

/*!
 * Where the daemon finds records now without doubt: from the end of the bytes, as long as
 * nothing is wrong. A last number far from the one before is.
 */
std::vector<qint64> soundEnd(std::string_view bytes, const std::vector<Range> &good, Range &range)
{
    std::vector<qint64> found;
    quint64 following = 0;
    range = {qint64(bytes.size()), qint64(bytes.size())};
    for (qint64 end = qint64(bytes.size()); end > 0; end = found.back()) {
        const qint64 begin = lastRecord(bytes.substr(0, size_t(end)));
        if (begin < 0 || end - begin - LogFormat::trailerSize >= LogFormat::lengthModulus) {
            break;
        }
        const std::string_view record = bytes.substr(size_t(begin), size_t(end - begin));
        ByteSource in(record);
        const auto logNr = LogFormat::readNumber<quint64>(in);
        const bool isSuspicious = following != logNr + 1 || positionInParts(begin, good) < 0;
        if (isSuspicious && holdsRecord(record)) {
            break;
        }
        const bool isWrong = following != 0
            && (logNr >= following || following - logNr > ChainSearch::farthestNumber);
        if (isWrong && found.size() > 1) {
            break; // there the damage begins
        }
        if (isWrong) {
            found.clear(); // it is the last number that is wrong
            range.end = end;
        }
        found.push_back(begin);
        range.begin = begin;
        following = logNr;
    }
    return found;
}

//! What is good and the sound end of the bytes, which comes first where they overlap.
std::vector<Range> withSoundEnd(const FileSurvey &survey, const QByteArray &bytes)
{
    Range sound;
    (void)soundEnd({bytes.constData(), size_t(bytes.size())}, survey.good, sound);
    // The last record that ends before it.
    const auto behind = std::upper_bound(survey.begins.begin(), survey.begins.end(), sound.begin);
    const qint64 limit = behind != survey.begins.begin() ? *std::prev(behind) : 0;
    std::vector<Range> ranges;
    for (Range range : survey.good) {
        if (range.end > sound.begin) {
            range.end = limit;
        }
        if (range.begin < range.end) {
            ranges.push_back(range);
        }
    }
    if (sound.begin < sound.end) {
        ranges.push_back(sound);
    }
    return ranges;
}

} // namespace

bool RepairResult::isWell() const
{
    return std::all_of(steps.begin(), steps.end(),
                       [](const RepairStep &step) { return step.action != RepairAction::Leave; });
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
    for (Job &job : jobs) {
        if (job.step.action != RepairAction::Leave) {
            job.step.error = carryOut(job);
        }
        if (job.step.error != 0 && job.step.action != RepairAction::Leave) {
            job.step.action = RepairAction::Leave;
            job.step.obstacle = RepairObstacle::Failed;
            result.readAfter -= job.step.readAfter - job.step.readBefore;
            job.step.readAfter = job.step.readBefore;
            job.step.newSize = job.step.size;
            job.step.keptAs.clear();
        }
        result.steps.push_back(job.step);
    }
    return result;
}

void Repair::planAll()
{
    result = {};
    jobs.clear();
    hasNext = false;
    hasNewest = false;
    directory = openFolder(folder.path());
    kept = std::make_unique<Quarantine>(directory.get(), limits);
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
    result.readBefore += job.step.readBefore;
    result.readAfter += job.step.readAfter;
    if (!hasNext && survey.size > 0) {
        hasNext = true;
        const FileBytes bytes(directory.get(), fileNameOf(file.index));
        result.nextBefore = DaemonWalk(bytes, survey.size).lastLogNr() + 1;
    }
    if (!hasNewest && job.step.newSize > 0) {
        hasNewest = true;
        const bool isMended = job.step.action != RepairAction::Leave || survey.damagedAt < 0;
        result.nextAfter = isMended ? survey.lastNumber + 1 : result.nextBefore;
    }
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
    job.step.obstacle = RepairObstacle::Kept;
    const bool isCut = survey.goodPrefix == survey.goodEnd && job.step.file == 0;
    if ((!isCut && rewrite(job, survey)) || (job.step.file == 0 && cutEnd(job, survey))) {
        job.step.obstacle = RepairObstacle::None;
    }
}

/*!
 * Whether the daemon's walk finds all good records in the new content that it finds now;
 * counts what it finds there.
 */
bool Repair::keepsReadable(Job &job, const FileSurvey &survey, const QByteArray &bytes)
{
    const std::set<qint64> found = walk(partsOf(bytes, job.content));
    const auto isFound
        = [&](qint64 begin) { return found.count(positionInParts(begin, job.content)) != 0; };
    Range range;
    const std::vector<qint64> sound
        = soundEnd({bytes.constData(), size_t(bytes.size())}, survey.good, range);
    if (!std::all_of(survey.readNow.begin(), survey.readNow.end(), isFound)
        || !std::all_of(sound.begin(), sound.end(), isFound)) {
        job.step.obstacle = RepairObstacle::Unsure;
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

bool Repair::rewrite(Job &job, const FileSurvey &survey)
{
    const QByteArray name = fileNameOf(job.step.file);
    const FileBytes file(directory.get(), name);
    QByteArray bytes;
    if (!survey.isNoted || !file.isOpen() || !file.read(0, survey.size, bytes)) {
        return false;
    }
    const QByteArray keptName = Quarantine::nameFor(name, bytes);
    if (!isOwn(job, keptName)) {
        job.step.obstacle = RepairObstacle::NotOwn;
        return false;
    }
    job.content = withSoundEnd(survey, bytes);
    if (!keepsReadable(job, survey, bytes) || !kept->reserve(keptName, bytes)) {
        job.step.readAfter = job.step.readBefore;
        return false;
    }
    job.step.action = RepairAction::Rewrite;
    job.step.keptAs = QFile::decodeName(Quarantine::folderName() + QByteArray("/") + keptName);
    job.step.newSize = 0;
    for (const Range &range : job.content) {
        job.step.newSize += range.end - range.begin;
    }
    return true;
}

bool Repair::cutEnd(Job &job, const FileSurvey &survey)
{
    const QByteArray name = fileNameOf(job.step.file);
    const FileBytes file(directory.get(), name);
    QByteArray end;
    if (survey.goodEnd == survey.size || survey.size - survey.goodEnd > limits.bytes
        || !file.isOpen() || !file.read(survey.goodEnd, survey.size, end)) {
        return false;
    }
    const QByteArray keptName
        = Quarantine::nameFor(name + '-' + QByteArray::number(survey.goodEnd), end);
    if (!isOwn(job, keptName)) {
        job.step.obstacle = RepairObstacle::NotOwn;
        return false;
    }
    job.content = {{0, survey.goodEnd}};
    job.step.readAfter = survey.goodRecords;
    QByteArray bytes;
    if (survey.isNoted
        && !(file.read(0, survey.size, bytes) && keepsReadable(job, survey, bytes))) {
        return false;
    }
    if (!kept->reserve(keptName, end)) {
        job.step.readAfter = job.step.readBefore;
        return false;
    }
    job.step.action = RepairAction::CutEnd;
    job.step.keptAs = QFile::decodeName(Quarantine::folderName() + QByteArray("/") + keptName);
    job.step.newSize = survey.goodEnd;
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

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"
#include "archive/filesurvey.h"
#include "archive/quarantine.h"
#include "archive/repairdisk.h"

#include <QString>

#include <memory>
#include <vector>

namespace Archive
{

//! What is done with a file.
enum class RepairAction : quint8 {
    CutEnd,  //!< its end is cut off
    Rewrite, //!< a new one with its good records takes its place
    Leave,   //!< something is wrong with it, and stays so
};

//! Why something wrong stays as it is.
enum class RepairObstacle : quint8 {
    None,
    Record,     //!< it is within records, which the daemon shows as they are
    NoRecord,   //!< nothing in the file can be made out
    Kept,       //!< what would be taken out does not fit into damaged/
    NotOwn,     //!< the file is a link, or has a second name
    Unsure,     //!< the daemon would no longer find what it finds now
    Unreadable, //!< the file cannot be read, see error
    Failed,     //!< a step failed, see error
};

//! What is to be done with a file that is not as it should be, or was done.
struct RepairStep {
    int file = 0; //!< index
    RepairAction action = RepairAction::Leave;
    RepairObstacle obstacle = RepairObstacle::None; //!< also to the rest of a mended file
    int error = 0;                                  //!< errno
    qint64 size = 0;                                //!< before
    qint64 newSize = 0;                             //!< after
    qint64 damagedAt = 0;                           //!< where the first damage is
    Fault fault = Fault::None;                      //!< which
    quint64 records = 0;                            //!< that are whole or likely
    quint64 readBefore = 0;                         //!< of them by the daemon
    quint64 readAfter = 0;
    QString keptAs; //!< where what is taken out is kept, from the folder; empty: nothing is
};

struct RepairResult {
    std::vector<RepairStep> steps; //!< the newest file first
    quint64 records = 0;           //!< of all files, whole or likely ones
    quint64 readBefore = 0;        //!< of them by the daemon
    quint64 readAfter = 0;
    quint64 nextBefore = 1; //!< the number that the daemon would go on with
    quint64 nextAfter = 1;

    //! Nothing is or was wrong.
    [[nodiscard]] bool wasHealthy() const { return steps.empty(); }
    //! Nothing is left that could not be mended, in the files that were mended either.
    [[nodiscard]] bool isWell() const;
};

/*!
 * Makes the daemon's own walk find every whole record of a folder again, and the right
 * next number, in place. The caller holds the folder's lock (FolderLock), so that nobody
 * else writes, and has opened the folder since.
 *
 * Of a file that is damaged before its end, what is good goes byte for byte into a new
 * file that takes its place, with owner, mode and time of modification; FileSurvey says
 * what is good. A file 0 that is damaged at its end alone is cut. The newest file is mended
 * first.
 *
 * No byte is lost. What is taken out is kept in the folder damaged/: a whole file as
 * zibN.log-CHECKSUM, the end of one as zibN.log-OFFSET-CHECKSUM. Where it does not fit
 * there, the file stays as it is.
 *
 * It may be stopped before each of its steps: at no time does the daemon find less than
 * before, and another run ends in the same bytes. A run on a mended folder does nothing,
 * and a sound one is not written to at all.
 *
 * Memory: a few times the limit in bytes.
 */
class Repair
{
public:
    //! Both must outlive this.
    Repair(const Folder &opened, RepairDisk &used, RepairLimits most = {});

    //! What would be done. Writes nothing.
    [[nodiscard]] RepairResult plan();
    //! Does it.
    [[nodiscard]] RepairResult run();

private:
    struct Job {
        RepairStep step;
        FileIdentity identity;
        std::vector<Range> content;                 //!< of what the file is to consist
        RepairObstacle left = RepairObstacle::None; //!< why damage is left in that
    };

    void planAll();
    void planFile(const ListedFile &file);
    [[nodiscard]] quint64 presentNext() const;
    [[nodiscard]] quint64 nextNumber(const Job &job, const std::vector<Range> &ranges) const;
    void decide(Job &job, const FileSurvey &survey);
    [[nodiscard]] bool findContent(Job &job, const FileSurvey &survey, const QByteArray &bytes);
    [[nodiscard]] bool rewrite(Job &job, const QByteArray &bytes);
    [[nodiscard]] bool cutEnd(Job &job, const FileBytes &file);
    [[nodiscard]] bool keep(Job &job, RepairAction action, const QByteArray &name,
                            const QByteArray &bytes);
    [[nodiscard]] bool keepsReadable(Job &job, const FileSurvey &survey, const QByteArray &bytes);
    [[nodiscard]] bool isOwn(const Job &job, const QByteArray &keptName) const;
    [[nodiscard]] int carryOut(const Job &job);
    [[nodiscard]] int replace(const Job &job, const FileBytes &original, int keptFolder);
    [[nodiscard]] int cut(const Job &job, const FileBytes &original, int keptFolder);
    [[nodiscard]] int writeTemporary(int keptFolder, const FileBytes &original,
                                     const std::vector<Range> &content);

    const Folder &folder;
    RepairDisk &disk;
    RepairLimits limits;
    Descriptor directory;
    std::vector<Job> jobs;
    RepairResult result;
    bool hasNewest = false; //!< the file with the last record that stays has been met
    std::unique_ptr<Quarantine> kept;
};

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"
#include "archive/repairdisk.h"

#include <QString>

#include <functional>
#include <vector>

namespace Archive
{

//! What a repair keeps at most in the folder damaged/.
struct RepairLimits {
    int files = 16;
    qint64 bytes = qint64(2) << 20;
};

//! What is done with a file.
enum class RepairAction : quint8 {
    None,    //!< it is as it should be
    CutEnd,  //!< its end is cut off
    Rewrite, //!< a new one with its good records takes its place
    Leave,   //!< something is wrong with it, and stays so
};

//! Why a file with something wrong is left as it is.
enum class RepairObstacle : quint8 {
    None,
    NoRecord, //!< nothing in it can be made out
    Record,   //!< the damage is within a record that the daemon shows as it is
    Kept,     //!< what would be taken out does not fit into damaged/ any more
    NotOwn,   //!< it is a link, or it has a second name
    Busy,     //!< it is being written
    Failed,   //!< a step failed, see error
};

//! What is to be done with a file, or was done.
struct RepairStep {
    int file = 0;
    RepairAction action = RepairAction::None;
    RepairObstacle obstacle
        = RepairObstacle::None; //!< of a file that is left, or a step that failed
    int error = 0;              //!< errno, of a failed one
    qint64 size = 0;            //!< before
    qint64 newSize = 0;         //!< after
    qint64 damagedAt = 0;       //!< where the first damage is
    Fault fault = Fault::None;  //!< the first damage
    quint64 records = 0;        //!< that are whole or likely
    quint64 readBefore = 0;     //!< of them by the daemon
    quint64 readAfter = 0;
    QString keptAs; //!< where its bytes are kept, below the folder; empty where none are
};

struct RepairResult {
    std::vector<RepairStep> steps; //!< of files that are not as they should be, the newest first
    quint64 readBefore = 0;        //!< of all files
    quint64 readAfter = 0;
    quint64 nextBefore = 0; //!< the number that the daemon would go on with
    quint64 nextAfter = 0;
    int error = 0; //!< errno of the first file that could not be read

    //! Nothing is left that could not be mended.
    [[nodiscard]] bool isWell() const;
    //! Nothing had to be done.
    [[nodiscard]] bool wasHealthy() const { return steps.empty() && error == 0; }
};

/*!
 * Makes the daemon's own walk find every whole record of a folder again, and the next
 * number, in place. The caller holds the folder's lock (FolderLock), so that nobody else
 * writes.
 *
 * The newest file is mended first. Of a file that is damaged before its end, the good
 * records go byte for byte into a new file that takes its place, with owner, mode and time
 * of modification; good are the whole ones, the likely ones, and those damaged in a way
 * that the daemon's walk gets over. A file damaged at its end alone is cut. No byte is lost: what
 * is taken out is kept in the folder damaged/ below, the whole file as zibN.log-CHECKSUM, a piece
 * of one as zibN.log-OFFSET-CHECKSUM.
 *
 * It may be stopped before each of its steps: at no time does the daemon find less than
 * before, and another run ends in the same bytes. A run on a mended folder does nothing.
 */
class Repair
{
public:
    Repair(const Folder &opened, RepairDisk &disk, RepairLimits most = {});

    //! What would be done. Writes nothing.
    [[nodiscard]] RepairResult plan();
    //! Does it.
    [[nodiscard]] RepairResult run();
};

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QtGlobal>

class QDir;

/*!
 * The exclusive lock (flock) of a folder, by which others can tell that a writer is at
 * work there and keep their hands off. It is on the folder itself: there is no lock file,
 * and whatever ends the process ends the lock. It is a sign, no condition: who cannot
 * have it goes on without.
 */
class FolderLock
{
public:
    //! Locks nothing yet.
    explicit FolderLock(const QDir &directory);
    ~FolderLock();
    Q_DISABLE_COPY_MOVE(FolderLock)

    /*!
     * Locks the folder that has the path now, and no other. Where it is locked already,
     * the lock is never let go; where that fails, there is none until the next call.
     */
    void hold();

private:
    [[nodiscard]] bool isHeld() const;
    void release();

    QByteArray path;
    int descriptor = -1; //!< of the locked folder; -1: none
};

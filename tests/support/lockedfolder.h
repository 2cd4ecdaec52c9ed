// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFile>
#include <QString>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

//! A folder that a test opens and tries to lock, as anybody else may.
class LockedFolder
{
public:
    explicit LockedFolder(const QString &path)
        : descriptor(open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC))
    {
    }
    ~LockedFolder()
    {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
    Q_DISABLE_COPY_MOVE(LockedFolder)

    //! False where somebody else has it; a shared one (LOCK_SH) only an exclusive one refuses.
    [[nodiscard]] bool lock(int kind = LOCK_EX) const
    {
        return flock(descriptor, kind | LOCK_NB) == 0;
    }

private:
    int descriptor;
};

//! Whether there is such a folder and somebody has its exclusive lock.
inline bool isLocked(const QString &path)
{
    return QFile::exists(path) && !LockedFolder(path).lock(LOCK_SH);
}

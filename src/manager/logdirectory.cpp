// SPDX-License-Identifier: Apache-2.0
#include "manager/logdirectory.h"

#include <QDir>
#include <QFileInfo>

bool ensureLogDirectory(const QDir &directory)
{
    if (directory.exists()) {
        return true;
    }
    const QFileInfo log(directory.absolutePath());
    const QFileInfo parent(log.absolutePath());
    (void)QDir(parent.absolutePath()).mkdir(parent.fileName()); // may be there already
    (void)QDir(log.absolutePath()).mkdir(log.fileName());
    return directory.exists();
}

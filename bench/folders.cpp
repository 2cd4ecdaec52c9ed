// SPDX-License-Identifier: Apache-2.0
#include "folders.h"

#include <QFileInfo>

namespace
{

QString parentOf(Folder::Place place)
{
    const QString memory = QStringLiteral("/dev/shm");
    return place == Folder::Tmpfs && QFileInfo(memory).isWritable() ? memory : QDir::tempPath();
}

} // namespace

Folder::Folder(Place place)
    : folder(parentOf(place) + QStringLiteral("/selbench-XXXXXX"))
{
    if (!folder.isValid()) {
        qFatal("cannot make a temporary folder");
    }
}

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDir>
#include <QTemporaryDir>

//! An empty folder that goes when the object does.
class Folder
{
public:
    enum Place { Tmpfs, Disk };

    //! Without a tmpfs at /dev/shm, both places are the one for temporary files.
    explicit Folder(Place place);

    [[nodiscard]] QDir dir() const { return QDir(folder.path()); }

private:
    QTemporaryDir folder;
};

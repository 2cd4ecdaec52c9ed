// SPDX-License-Identifier: Apache-2.0
#include "archive/quarantine.h"

#include "archive/filebytes.h"

#include <QCryptographicHash>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace Archive
{

const char *Quarantine::folderName()
{
    return "damaged";
}

QByteArray Quarantine::nameFor(const QByteArray &prefix, const QByteArray &bytes)
{
    constexpr int digits = 16;
    const QByteArray sum = QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
    return prefix + '-' + sum.left(digits);
}

Quarantine::Quarantine(int folder, RepairLimits most)
    : parent(folder)
    , limits(most)
{
    const Directory directory = openDirectory(parent, folderName());
    while (const dirent *const entry = directory ? readdir(directory.get()) : nullptr) {
        const QByteArray name(entry->d_name);
        struct stat status {
        };
        if (name == "." || name == ".." || name == "tmp"
            || ::fstatat(dirfd(directory.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW)
                != 0) {
            continue;
        }
        size += qint64(status.st_size);
        known.insert(name, qint64(status.st_size));
    }
}

bool Quarantine::holds(const QByteArray &name, const QByteArray &bytes) const
{
    if (known.value(name, -1) != qint64(bytes.size())) {
        return false;
    }
    const Directory folder = openDirectory(parent, folderName());
    if (!folder) {
        return false;
    }
    const FileBytes file(dirfd(folder.get()), name);
    QByteArray kept;
    return file.isOpen() && file.status().st_size == bytes.size()
        && file.read(0, bytes.size(), kept) && kept == bytes;
}

bool Quarantine::reserve(const QByteArray &name, const QByteArray &bytes)
{
    if (known.contains(name)) {
        return holds(name, bytes);
    }
    if (known.size() >= limits.files || size + bytes.size() > limits.bytes) {
        return false;
    }
    size += bytes.size();
    known.insert(name, qint64(bytes.size()));
    return true;
}

} // namespace Archive

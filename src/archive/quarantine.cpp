// SPDX-License-Identifier: Apache-2.0
#include "archive/quarantine.h"

#include <QCryptographicHash>

#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace Archive
{
namespace
{

struct CloseDirectory {
    void operator()(DIR *directory) const { (void)closedir(directory); }
};

} // namespace

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

Descriptor Quarantine::open() const
{
    return Descriptor(
        ::openat(parent, folderName(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Quarantine::Quarantine(int folder, RepairLimits most)
    : parent(folder)
    , limits(most)
{
    const int opened
        = ::openat(parent, folderName(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const std::unique_ptr<DIR, CloseDirectory> directory(opened < 0 ? nullptr : fdopendir(opened));
    if (opened >= 0 && !directory) {
        (void)::close(opened);
    }
    while (const dirent *const entry = directory ? readdir(directory.get()) : nullptr) {
        const QByteArray name(entry->d_name);
        struct stat status {
        };
        if (name == "." || name == ".." || name == "tmp"
            || ::fstatat(dirfd(directory.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW)
                != 0) {
            continue;
        }
        ++files;
        size += qint64(status.st_size);
        known.insert(name, qint64(status.st_size));
    }
}

bool Quarantine::holds(const QByteArray &name, const QByteArray &bytes) const
{
    if (known.value(name, -1) != qint64(bytes.size())) {
        return false;
    }
    const Descriptor folder = open();
    const FileBytes file(folder.get(), name);
    QByteArray kept;
    return folder.isOpen() && file.isOpen() && file.status().st_size == bytes.size()
        && file.read(0, bytes.size(), kept) && kept == bytes;
}

bool Quarantine::reserve(const QByteArray &name, const QByteArray &bytes)
{
    if (known.contains(name)) {
        return holds(name, bytes);
    }
    if (files >= limits.files || size + bytes.size() > limits.bytes) {
        return false;
    }
    ++files;
    size += bytes.size();
    known.insert(name, qint64(bytes.size()));
    return true;
}

} // namespace Archive

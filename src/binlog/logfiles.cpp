// SPDX-License-Identifier: Apache-2.0
#include "binlog/logfiles.h"

#include "logformat/logformat.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <limits>

#include <sys/stat.h>

namespace
{

/*!
 * Moves a file to a name that is free. QFile::rename() would make up for a failed
 * rename by a copy: slow, not forced to storage before its source is deleted, and a
 * second set of the same records where the source cannot be deleted.
 */
void moveFile(const QString &from, const QString &to)
{
    if (!QFileInfo::exists(to)) {
        (void)std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData());
    }
}

} // namespace

QString LogFiles::path(int index) const
{
    return folder.absoluteFilePath(LogFormat::fileName(index));
}

std::error_code LogFiles::ensureFolder() const
{
    const QByteArray name = QFile::encodeName(folder.absolutePath());
    if (folder.exists() || mkdir(name.constData(), S_IRWXU | S_IRWXG | S_IRWXO) == 0) {
        return {};
    }
    const std::error_code reason(errno, std::generic_category());
    return folder.exists() ? std::error_code() : reason; // somebody else may have made it
}

quint64 LogFiles::lastLogNr() const
{
    const QList<int> older = existing(1, std::numeric_limits<int>::max());
    for (auto index = older.crbegin(); index != older.crend(); ++index) {
        QFile file(path(*index));
        // Opening a pipe would wait for a writer that never comes.
        if (QFileInfo(file).isFile() && file.open(QIODevice::ReadOnly) && file.size() > 0) {
            return LogFormat::lastLogNr(file);
        }
    }
    return 0;
}

void LogFiles::remove(int lowest, int highest) const
{
    for (const int index : existing(lowest, highest)) {
        (void)QFile::remove(path(index));
    }
}

void LogFiles::rotate(int highest) const
{
    remove(highest, highest);
    for (const int index : existing(0, highest - 1)) {
        moveFile(path(index), path(index + 1));
    }
}

//! The indexes between two bounds, both included, that have a file; the highest first.
QList<int> LogFiles::existing(int lowest, int highest) const
{
    QList<int> indexes;
    const QStringList names
        = folder.entryList(QDir::Files | QDir::Dirs | QDir::Hidden | QDir::System, QDir::Unsorted);
    for (const QString &name : names) {
        const int index = LogFormat::fileIndex(name);
        if (index >= lowest && index <= highest) {
            indexes.append(index);
        }
    }
    std::sort(indexes.begin(), indexes.end(), std::greater<>());
    return indexes;
}

// SPDX-License-Identifier: Apache-2.0
#include "memoryfolder.h"

#include "checks.h"
#include "logformat/logformat.h"
#include "support/literals.h"

#include <QFile>
#include <QFileInfo>

namespace
{

QString folderTemplate()
{
    const QString memory = "/dev/shm"_s;
    return (QFileInfo(memory).isWritable() ? memory : QDir::tempPath()) + "/fuzz-XXXXXX"_s;
}

} // namespace

MemoryFolder::MemoryFolder()
    : folder(folderTemplate())
{
    require(folder.isValid(), "no folder for the log files");
}

QMap<int, QByteArray> MemoryFolder::logFiles() const
{
    QMap<int, QByteArray> contents;
    const QStringList names = dir().entryList(QDir::Files, QDir::Unsorted);
    for (const QString &name : names) {
        QFile file(folder.filePath(name));
        require(file.open(QIODevice::ReadOnly), "a log file cannot be read");
        contents.insert(LogFormat::fileIndex(name), file.readAll());
    }
    return contents;
}

void MemoryFolder::write(const QString &name, const QByteArray &content) const
{
    QFile file(folder.filePath(name));
    require(file.open(QIODevice::WriteOnly) && file.write(content) == content.size(),
            "a log file cannot be written");
}

void MemoryFolder::clear() const
{
    const QStringList names = dir().entryList(QDir::Files, QDir::Unsorted);
    for (const QString &name : names) {
        require(QFile::remove(folder.filePath(name)), "a log file cannot be removed");
    }
}

// SPDX-License-Identifier: Apache-2.0
#include "rewrittenfolder.h"

#include "support/literals.h"

#include <QFile>
#include <QFileInfo>

#include <array>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

//! In memory where there is such a place: nothing here needs to survive.
QString folderTemplate()
{
    const QString memory = "/dev/shm"_s;
    return (QFileInfo(memory).isWritable() ? memory : QDir::tempPath()) + "/logs-XXXXXX"_s;
}

void require(bool done)
{
    if (!done) {
        qFatal("cannot prepare the log files");
    }
}

} // namespace

RewrittenFolder::RewrittenFolder()
    : folder(folderTemplate())
{
    require(folder.isValid());
}

QByteArray RewrittenFolder::path(const QString &name) const
{
    return QFile::encodeName(folder.filePath(name));
}

void RewrittenFolder::write(const QString &name, const QByteArray &content, int flags) const
{
    const int file = open(path(name).constData(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0600);
    require(file >= 0
            && ::write(file, content.constData(), size_t(content.size())) == content.size());
    require(close(file) == 0);
}

void RewrittenFolder::put(const QString &name, const QByteArray &content, int ageInSeconds)
{
    write(name, content, O_TRUNC);
    constexpr time_t present = 1700000000;
    const timespec time{present - ageInSeconds, 0};
    const std::array<timespec, 2> times{time, time};
    require(utimensat(AT_FDCWD, path(name).constData(), times.data(), 0) == 0);
    contents.insert(name, content);
    former.removeAll(name);
}

void RewrittenFolder::append(const QString &name, const QByteArray &content)
{
    write(name, content, O_APPEND);
    contents[name] += content;
    former.removeAll(name);
}

void RewrittenFolder::rename(const QString &name, const QString &newName)
{
    require(::rename(path(name).constData(), path(newName).constData()) == 0);
    contents.insert(newName, contents.take(name));
}

void RewrittenFolder::remove(const QString &name)
{
    require(unlink(path(name).constData()) == 0);
    contents.remove(name);
}

void RewrittenFolder::makeFolder(const QString &name)
{
    require(mkdir(path(name).constData(), 0700) == 0);
    folders.append(name);
}

void RewrittenFolder::clear()
{
    for (const QString &name : std::as_const(folders)) {
        require(rmdir(path(name).constData()) == 0);
    }
    folders.clear();
    former += contents.keys();
    contents.clear();
}

void RewrittenFolder::removeOthers()
{
    for (const QString &name : std::as_const(former)) {
        require(unlink(path(name).constData()) == 0);
    }
    former.clear();
}

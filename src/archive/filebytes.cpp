// SPDX-License-Identifier: Apache-2.0
#include "archive/filebytes.h"

#include <QFile>
#include <QString>

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace Archive
{

Descriptor::~Descriptor()
{
    if (isOpen()) {
        (void)::close(number); // nothing was written through it that has not been synced
    }
}

Descriptor::Descriptor(Descriptor &&other) noexcept
    : number(std::exchange(other.number, -1))
{
}

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept
{
    std::swap(number, other.number);
    return *this;
}

Descriptor openFolder(const QString &path)
{
    return Descriptor(
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

void CloseDirectory::operator()(DIR *directory) const
{
    (void)::closedir(directory);
}

Directory openDirectory(int folder, const char *name)
{
    const int opened = ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (opened < 0) {
        return {};
    }
    Directory directory(::fdopendir(opened));
    if (!directory) {
        (void)::close(opened);
    }
    return directory;
}

FileIdentity identityOf(const struct stat &status)
{
    return {quint64(status.st_dev), quint64(status.st_ino)};
}

FileBytes::FileBytes(int folder, const QByteArray &name)
    : file(::openat(folder, name.constData(),
                    O_RDONLY | O_NONBLOCK | O_CLOEXEC)) // not to wait for a pipe
{
    if (file.isOpen() && !S_ISREG(status().st_mode)) {
        file = Descriptor();
        errno = EINVAL;
    }
}

struct stat FileBytes::status() const
{
    struct stat found {
    };
    if (::fstat(file.get(), &found) != 0) {
        return {};
    }
    return found;
}

bool FileBytes::read(qint64 begin, qint64 end, QByteArray &out) const
{
    if (!isOpen()) {
        errno = 0;
        out = memory.mid(int(begin), int(end - begin));
        return out.size() == end - begin;
    }
    out.resize(int(end - begin));
    int done = 0;
    while (done < out.size()) {
        const ssize_t count
            = ::pread(file.get(), out.data() + done, size_t(out.size() - done), begin + done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            if (count == 0) {
                errno = 0;
            }
            return false;
        }
        done += int(count);
    }
    return true;
}

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#include "binlog/currentfile.h"

#include "logformat/logformat.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

std::error_code lastError()
{
    return {errno, std::generic_category()};
}

std::error_code writeWhole(int descriptor, const QByteArray &bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const ssize_t step
            = write(descriptor, bytes.constData() + done, size_t(bytes.size() - done));
        if (step == 0) {
            return std::make_error_code(std::errc::io_error);
        }
        if (step < 0 && errno != EINTR) {
            return lastError();
        }
        done += std::max<qint64>(step, 0);
    }
    return {};
}

} // namespace

std::error_code CurrentFile::open(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    // Appending: wherever somebody else has cut the file, its end is where it goes on.
    const int descriptor = ::open(name.constData(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC,
                                  S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH);
    if (descriptor < 0) {
        return lastError();
    }
    auto opened = std::make_unique<QFile>(path);
    // Does not fail for a descriptor that is open.
    (void)opened->open(descriptor, QFile::ReadWrite | QFile::Append | QFile::Unbuffered,
                       QFile::AutoCloseHandle);
    struct stat status {
    };
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::make_error_code(std::errc::invalid_seek); // what a pipe or a device answers
    }
    if (file && isDeleted()) {
        tornAt = -1;
    }
    file = std::move(opened);
    return {};
}

bool CurrentFile::isDeleted() const
{
    struct stat status {
    };
    return fstat(file->handle(), &status) == 0 && status.st_nlink == 0;
}

quint64 CurrentFile::lastLogNr()
{
    return LogFormat::lastLogNr(*file);
}

std::error_code CurrentFile::append(const QByteArray &bytes)
{
    const qint64 begin = size();
    const std::error_code error = writeWhole(file->handle(), bytes);
    if (error) {
        // Records are found from the end of the file: half of one would hide all before it.
        tornAt = begin;
        (void)mend();
    }
    return error;
}

std::error_code CurrentFile::sync()
{
    return fsync(file->handle()) == 0 ? std::error_code() : lastError();
}

std::error_code CurrentFile::mend()
{
    // Only ever cut: somebody may have emptied the file, and resizing would fill it with zeros.
    if (isTorn() && size() > tornAt && ftruncate(file->handle(), tornAt) != 0) {
        return lastError();
    }
    tornAt = -1;
    return {};
}

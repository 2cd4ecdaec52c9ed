// SPDX-License-Identifier: Apache-2.0
#include "ctl/newfile.h"

#include "ctl/messages.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

//! What a file made by open() would have.
mode_t usualMode()
{
    const mode_t mask = ::umask(0);
    (void)::umask(mask);
    return 0666 & ~mask;
}

//! Whether a new file may take the place of what is there.
bool isReplaceable(const QByteArray &path)
{
    struct stat status {
    };
    return ::stat(path.constData(), &status) != 0 || S_ISREG(status.st_mode);
}

} // namespace

NewFile::NewFile(const QString &path)
{
    const QString target = QFileInfo(path).canonicalFilePath();
    place = QFile::encodeName(target.isEmpty() ? path : target);
    if (!isReplaceable(place)) {
        reason = QStringLiteral("is no regular file");
        return;
    }
    QByteArray name = place + ".XXXXXX";
    file = Archive::Descriptor(::mkostemp(name.data(), O_CLOEXEC));
    if (!file.isOpen()) {
        reason = Messages::errorText(errno);
        return;
    }
    temporary = name;
    (void)::fchmod(file.get(), usualMode());
}

NewFile::~NewFile()
{
    if (!temporary.isEmpty()) {
        (void)::unlink(temporary.constData());
    }
}

bool NewFile::publish()
{
    if (::fsync(file.get()) != 0 || ::rename(temporary.constData(), place.constData()) != 0) {
        return false;
    }
    temporary.clear();
    return true;
}

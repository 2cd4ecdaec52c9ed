// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <memory>
#include <utility>

#include <dirent.h>
#include <sys/stat.h>

namespace Archive
{

//! A descriptor that is closed when its owner goes.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int opened)
        : number(opened)
    {
    }
    ~Descriptor();
    Descriptor(Descriptor &&other) noexcept;
    Descriptor &operator=(Descriptor &&other) noexcept;
    Q_DISABLE_COPY(Descriptor)

    [[nodiscard]] int get() const { return number; }
    [[nodiscard]] bool isOpen() const { return number >= 0; }

private:
    int number = -1;
};

//! Opens a folder for reading; not open, with errno, where that fails.
Descriptor openFolder(const QString &path);

struct CloseDirectory {
    void operator()(DIR *directory) const;
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

/*!
 * Opens a folder within another one, or that itself (".") again, to list what is in it from
 * its beginning. Null, with errno, where that fails, as of a link.
 */
Directory openDirectory(int folder, const char *name);

//! Tells a file from every other, whatever its name.
struct FileIdentity {
    quint64 device = 0;
    quint64 inode = 0;

    friend bool operator==(const FileIdentity &left, const FileIdentity &right)
    {
        return left.device == right.device && left.inode == right.inode;
    }
};

FileIdentity identityOf(const struct stat &status);

/*!
 * Reads a regular file at any position; never mapped, as it may shrink at any time. Or
 * bytes in memory, in place of those of a file.
 */
class FileBytes
{
public:
    FileBytes() = default;
    explicit FileBytes(QByteArray content)
        : memory(std::move(content))
    {
    }
    //! Anything but a regular file is not opened; errno says why.
    FileBytes(int folder, const QByteArray &name);

    [[nodiscard]] bool isOpen() const { return file.isOpen(); }
    [[nodiscard]] int descriptor() const { return file.get(); }
    //! As of now; all zero with errno where it cannot be had.
    [[nodiscard]] struct stat status() const;
    /*!
     * Reads bytes into \a out, which gets their size. False where they are not all there,
     * with errno, or 0 in it where the file has become shorter.
     */
    [[nodiscard]] bool read(qint64 begin, qint64 end, QByteArray &out) const;

private:
    Descriptor file;
    QByteArray memory;
};

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <memory>
#include <system_error>

/*!
 * The file that records are appended to, whole or not at all: what a failed write leaves
 * behind is cut off, at once or when mend() can do it.
 *
 * An error is that of the system call that failed; without one, everything is done.
 * Before open() has succeeded, nothing but open(), device() and isTorn() may be called.
 */
class CurrentFile
{
public:
    /*!
     * Opens a file, a new one where it is missing. Only a regular one is taken: a pipe
     * would sooner or later block the writer. Where it fails, the file before stays open.
     * A tear stays to be mended, unless it is gone with a file that was deleted while open.
     */
    [[nodiscard]] std::error_code open(const QString &path);
    void close() { file->close(); }
    //! Null until open() succeeds, and another one whenever it does again.
    [[nodiscard]] QIODevice *device() const { return file.get(); }

    [[nodiscard]] qint64 size() const { return file->size(); }
    [[nodiscard]] bool isDeleted() const;
    //! The number of the last record of a file that is not empty.
    [[nodiscard]] quint64 lastLogNr();

    //! Appends bytes, in one write where the storage takes them whole.
    [[nodiscard]] std::error_code append(const QByteArray &bytes);
    [[nodiscard]] std::error_code sync();
    //! Whether the file ends in what a failed append() has left, which mend() cuts off.
    [[nodiscard]] bool isTorn() const { return tornAt >= 0; }
    [[nodiscard]] std::error_code mend();

private:
    std::unique_ptr<QFile> file;
    qint64 tornAt = -1; //!< where the file has to be cut off once it can be; -1: nowhere
};

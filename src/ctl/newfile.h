// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filebytes.h"

#include <QByteArray>
#include <QString>

/*!
 * A file that is there with all of its content or not at all: it is written under a name of
 * its own beside its place and gets its name, in place of what has it, when it is complete
 * and on disk. Until then it goes with its object.
 */
class NewFile
{
public:
    //! \a path may be a link to the place. Only a regular file is replaced.
    explicit NewFile(const QString &path);
    ~NewFile();
    Q_DISABLE_COPY_MOVE(NewFile)

    //! Why it cannot be written; null: it can.
    [[nodiscard]] const QString &failure() const { return reason; }
    [[nodiscard]] int descriptor() const { return file.get(); }
    //! False, with errno, where it cannot be brought to disk or get its name.
    [[nodiscard]] bool publish();

private:
    QString reason;
    QByteArray place;
    QByteArray temporary; //!< empty once it has its name
    Archive::Descriptor file;
};

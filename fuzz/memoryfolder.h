// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QDir>
#include <QMap>
#include <QTemporaryDir>

//! A folder for the log files of one input after another, in memory where there is such a place.
class MemoryFolder
{
public:
    MemoryFolder();

    [[nodiscard]] QDir dir() const { return QDir(folder.path()); }
    //! Content by file index.
    [[nodiscard]] QMap<int, QByteArray> logFiles() const;
    void write(const QString &name, const QByteArray &content) const;
    void clear() const;

private:
    QTemporaryDir folder;
};

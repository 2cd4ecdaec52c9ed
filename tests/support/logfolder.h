// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/literals.h"

#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

//! A folder of log files that a test fills by hand.
class LogFolder
{
public:
    [[nodiscard]] QDir dir() const { return QDir(folder.path()); }
    [[nodiscard]] QString path(const QString &name) const { return folder.filePath(name); }
    [[nodiscard]] static QString name(int index) { return "zib%1.log"_s.arg(index); }

    //! Replaces a file's content, in the same file where there is one.
    void put(const QString &fileName, const QByteArray &content) const
    {
        write(fileName, content, QIODevice::WriteOnly | QIODevice::Truncate);
    }
    void put(int index, const QByteArray &content) const { put(name(index), content); }
    [[nodiscard]] QByteArray content(int index) const
    {
        QFile file(path(name(index)));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    void append(int index, const QByteArray &content) const
    {
        write(name(index), content, QIODevice::WriteOnly | QIODevice::Append);
    }
    //! Sets a file's modification time; the reader lists the newest file first.
    void setAge(const QString &fileName, int seconds) const
    {
        QFile file(path(fileName));
        const QDateTime time = QDateTime::currentDateTime().addSecs(-seconds);
        if (!file.open(QIODevice::ReadWrite)
            || !file.setFileTime(time, QFileDevice::FileModificationTime)) {
            qFatal("cannot set a file's time");
        }
    }

private:
    void write(const QString &fileName, const QByteArray &content, QIODevice::OpenMode mode) const
    {
        QFile file(path(fileName));
        if (!file.open(mode) || file.write(content) != content.size()) {
            qFatal("cannot write a log file");
        }
    }

    QTemporaryDir folder;
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QDir>
#include <QMap>
#include <QString>
#include <QTemporaryDir>

/*!
 * One folder that holds one set of log files after another: a file that is there
 * already is written anew, which takes a fraction of creating thousands of folders.
 */
class RewrittenFolder
{
public:
    RewrittenFolder();

    [[nodiscard]] QDir dir() const { return QDir(folder.path()); }
    [[nodiscard]] bool has(const QString &name) const { return contents.contains(name); }
    [[nodiscard]] QByteArray content(const QString &name) const { return contents.value(name); }
    [[nodiscard]] QStringList names() const { return contents.keys(); }

    //! Writes a file; the newest are listed first.
    void put(const QString &name, const QByteArray &content, int ageInSeconds);
    void append(const QString &name, const QByteArray &content);
    //! Renames a file, in place of the one of the new name.
    void rename(const QString &name, const QString &newName);
    void remove(const QString &name);
    void makeFolder(const QString &name);
    void clear();
    //! Removes the files that no put() has written since clear().
    void removeOthers();

private:
    [[nodiscard]] QByteArray path(const QString &name) const;
    void write(const QString &name, const QByteArray &content, int flags) const;

    QTemporaryDir folder;
    QMap<QString, QByteArray> contents;
    QStringList former; //!< of the set before, still there
    QStringList folders;
};

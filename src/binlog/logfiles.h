// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDir>
#include <QList>
#include <QString>

#include <system_error>

/*!
 * The files of a log and the folder they are in. File 0 is the current one; the higher
 * an index, the older the file.
 *
 * Only files that exist cost anything: an index may be astronomical. A removal or a
 * renaming that fails goes unnoticed and leaves that file where it is.
 */
class LogFiles
{
public:
    explicit LogFiles(const QDir &directory)
        : folder(directory)
    {
    }

    [[nodiscard]] QString path(int index) const;
    //! Makes the last level of the folder where it is missing; the error says why it still is.
    [[nodiscard]] std::error_code ensureFolder() const;
    //! The number of the newest record that is not in the current file; 0 where there is none.
    [[nodiscard]] quint64 lastLogNr() const;
    //! Removes the files with an index between two bounds, both included.
    void remove(int lowest, int highest) const;
    //! Removes the file with the highest index and moves every one below it up by one.
    void rotate(int highest) const;

private:
    [[nodiscard]] QList<int> existing(int lowest, int highest) const;

    QDir folder;
};

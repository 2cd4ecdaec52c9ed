// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filebytes.h"

#include <QByteArray>
#include <QString>

/*!
 * Waits for something to change in a folder, which may be deleted and made again. Where
 * the system cannot tell of changes, or somebody else's share does not, time alone is
 * waited for.
 */
class FolderWatch
{
public:
    explicit FolderWatch(const QString &path);

    /*!
     * Waits for a change, or for half a second. Throws OutputFailure once nobody reads
     * standard output any more.
     */
    void wait();

private:
    void look();
    void takeEvents();

    QByteArray folder;
    Archive::Descriptor events;
    int watched = -1; //!< what the folder under that path is to the system
};

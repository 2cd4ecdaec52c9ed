// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filebytes.h"

#include <QByteArray>

#include <vector>

namespace Archive
{

/*!
 * Where the daemon's own walk finds records in a file, which believes every trailer.
 * Memory: 16 bytes for every MiB of the file, and those positions that are asked for.
 */
class DaemonWalk
{
public:
    //! Walks the first \a size bytes of a file, which must outlive this.
    DaemonWalk(const FileBytes &file, qint64 size);

    //! The positions from one to another, which is not included, in descending order.
    [[nodiscard]] std::vector<qint64> positions(qint64 begin, qint64 end) const;

    //! The number that a start takes for that of the last record; 0 where the file is empty.
    [[nodiscard]] quint64 lastLogNr() const { return last; }

private:
    const FileBytes &bytes;
    qint64 fileSize;
    std::vector<qint64> marks; //!< some positions, descending
    quint64 last = 0;
};

} // namespace Archive

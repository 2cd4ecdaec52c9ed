// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"
#include "ctl/plan.h"

#include <memory>

/*!
 * Finds out which part of a folder a store has not got yet, in the order in which it was
 * written: the oldest file first, each from its start. Numbers would not do, as they may
 * begin again.
 *
 * It ends behind the last whole record. What is damaged behind that one is left for the next
 * time: it may be a write in progress, or be cut off by a repair, and its numbers given
 * again.
 *
 * The files are read from the newest one back, as far as the record goes that the store
 * has last.
 */
class CollectRange
{
public:
    //! The folder is open. Tells of files that cannot be read.
    CollectRange(const Archive::Folder &opened, const CollectChoice &choice);

    //! Tells of a file that cannot be read to its end; an error of 0: it was cut meanwhile.
    static void tellUnread(const Archive::Folder &folder, int file, int error);

    //! False where files could not be read, so that nothing is known.
    [[nodiscard]] bool isKnown() const { return known; }
    //! Whether there is any whole record; the rest is only valid then.
    [[nodiscard]] bool hasEnd() const { return end.bytes != nullptr; }

    //! What the range says of the numbers.
    enum class Beginning : quint8 {
        Oldest,     //!< the store has nothing yet
        Follows,    //!< behind the record that the store has last, which may be gone
        BeganAgain, //!< numbers began again since
    };

    Beginning beginning = Beginning::Oldest;
    size_t firstFile = 0;     //!< index in the folder's files()
    qint64 begin = 0;         //!< in that
    quint64 oldestNumber = 0; //!< of the whole records of the folder; only with BeganAgain
    Instant oldestTime;       //!< the same

    //! The last file, which is held open.
    struct End {
        std::shared_ptr<const Archive::FileBytes> bytes;
        size_t file = 0;
        qint64 size = 0; //!< in bytes, up to the end of the last whole record
    };
    End end;

private:
    class Search;

    void find(const CollectChoice &choice);

    const Archive::Folder &folder;
    bool known = true;
};

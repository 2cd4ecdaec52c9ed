// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"
#include "ctl/recordorder.h"
#include "ctl/recordsieve.h"
#include "logformat/logformat.h"

#include <memory>
#include <string>
#include <vector>

/*!
 * Finds what is written to a folder behind what was there, each record once: across
 * rotation, clearing, a restart of the daemon, a repair, a file that is emptied and written
 * again, and a folder that is deleted and made again. The file that is written to is held
 * open, so that its end is not missed when it is gone.
 *
 * A torn end of that file is left until it is whole, or something stands behind it: it
 * may be a write in progress, or be cut off by the daemon.
 *
 * Memory: 64 bytes a file.
 */
class Follower
{
public:
    //! Begins behind what \a order has found. The folder is listed anew from now on.
    Follower(Archive::Folder &followed, const RecordOrder &order);

    //! Shows what has come since.
    void catchUp(RecordSieve &sieve);

private:
    //! A file that has been shown, as far as it went.
    struct Known {
        Archive::FileIdentity identity;
        std::string head; //!< that of its first record; empty while there is none
    };

    //! Behind what a file is shown.
    enum class Wanted : quint8 {
        Itself,    //!< the last record that was shown
        NotBeyond, //!< what has no higher number than that
    };
    class RecordFinder;
    class Ending;
    class Passing;

    //! How far a file is shown.
    struct Position {
        //! Goes behind a record.
        void pass(const Archive::Place &place, const Archive::Record &record);

        qint64 end = 0;   //!< what lies in front of it is shown
        qint64 begin = 0; //!< of the last record in front of it
        std::string head; //!< that record's; empty while there is none
    };

    using Bytes = std::shared_ptr<const Archive::FileBytes>;

    void note(const Archive::ListedFile &file, const Archive::FileBytes &opened);
    void forgetGone();
    void show(RecordSieve &sieve, bool isComplete);
    void enter(const Archive::ListedFile &file, const Bytes &opened, const Position &from);
    void goBack();
    void showFile(RecordSieve &sieve, size_t index);
    void showFrom(RecordSieve &sieve, size_t index);
    [[nodiscard]] bool showBehind(RecordSieve &sieve, size_t index, Wanted wanted);
    void findAgain(RecordSieve &sieve);
    [[nodiscard]] Position find(int index, const Archive::FileBytes &opened, Wanted wanted) const;
    [[nodiscard]] Bytes open(const Archive::ListedFile &file) const;
    [[nodiscard]] bool isShown(const Archive::ListedFile &file,
                               const Archive::FileBytes &opened) const;
    [[nodiscard]] bool isKnown(const Archive::FileBytes &opened) const;
    [[nodiscard]] qint64 endOfLast() const;

    Archive::Folder &folder;
    std::vector<Known> known;
    Archive::ListedFile current; //!< the file that is written to
    Bytes bytes;                 //!< of it; null where there was none yet
    Position shown;              //!< of it
    LogFormat::RecordHead last;  //!< of the last record; a number of 0 where there is none
};

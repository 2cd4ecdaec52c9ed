// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archiverecord.h"
#include "archive/folderlisting.h"
#include "archive/valuefit.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <string_view>
#include <vector>

class SystemeventCatalogue;

namespace Archive
{

//! Whether somebody may be writing to a folder.
enum class Writers : quint8 { Possible, None };

//! A file to be shown, perhaps more than once.
struct OpenFile {
    std::shared_ptr<const FileBytes> bytes; //!< null where they cannot be had
    qint64 size = 0;                        //!< of what counts: it may grow meanwhile
    int error = 0; //!< errno of why they cannot be had; 0: the file is gone
};

//! What became of a file.
struct FileResult {
    int file = 0;
    qint64 size = 0; //!< of what was read: a file that is being written may have grown since
    /*!
     * How many of its records that are whole or likely the daemon's own walk finds, which
     * goes from trailer to trailer and checks nothing.
     */
    quint64 readByDaemon = 0;
    bool isGone = false; //!< deleted, by rotation or by clearing, before it could be read
    int error = 0;       //!< errno of why it could not be read to its end; 0: it could
};

/*!
 * Is shown a folder of log files. What it gets is valid until it returns.
 */
class Visitor
{
public:
    Visitor() = default;
    virtual ~Visitor();
    Q_DISABLE_COPY_MOVE(Visitor)

    virtual void beginFile(int file, qint64 size);
    virtual void record(const Place &place, const Record &record) = 0;
    //! A stretch that is no record. None touches another.
    virtual void lost(const Place &place, Fault reason) = 0;
    virtual void endFile(const FileResult &result);
};

/*!
 * A folder of log files as a sequence of records: the file with the highest index first,
 * as that is the oldest, each from its start to its end. All bytes of a file are shown, as
 * records or as lost.
 *
 * A file is sound when the walk from its end over plausible records comes out at its
 * start, with numbers that rise; that costs one reading of it, of a file of more than
 * 512 KiB two. In any other, the chain of records is looked for that leaves the least
 * unexplained (ChainSearch has the rules and the bounds).
 *
 * Memory: 16 MiB, whatever the size of folder and files, 64 MiB with a file made for it, and
 * what the longest record takes; besides 40 bytes a file.
 *
 * A daemon may be writing and rotating meanwhile: what is shown is the folder as it was
 * when open() was called, but that the file then current may have grown. The oldest
 * Listing::mostOpen files are held open until the folder object goes, the others may be
 * gone by the time that they are shown. Nothing is locked, nothing is written.
 *
 * Files are those with the names that the writer gives. The daemon's reader takes other
 * names that begin with "zib" and a digit, too; otherNames() has them.
 */
class Folder
{
public:
    //! Without a catalogue values are not judged. It is not needed afterwards.
    explicit Folder(QString path, const SystemeventCatalogue *catalogue = nullptr);

    /*!
     * Finds out which files there are; false, with errno, where the folder cannot be read.
     * With Writers::Possible a torn end of the current file is looked at again, for a second
     * where it is fresh, as it may be a write in progress.
     */
    [[nodiscard]] bool open(Writers writers = Writers::Possible);

    [[nodiscard]] const QString &path() const { return folderPath; }
    //! Oldest first.
    [[nodiscard]] const std::vector<ListedFile> &files() const { return listing.files; }
    //! Of files that only the daemon's reader takes for log files, in no order.
    [[nodiscard]] const QStringList &otherNames() const { return listing.otherNames; }

    //! Opens one of files(), and looks for its end as open() says.
    [[nodiscard]] OpenFile openFile(const ListedFile &file) const;

    //! Shows all files; false where one could not be read, which its FileResult says.
    [[nodiscard]] bool visit(Visitor &visitor) const;
    //! Shows one of files().
    [[nodiscard]] bool visit(const ListedFile &file, Visitor &visitor) const;
    //! Shows the first \a size bytes as a file of that index.
    [[nodiscard]] bool visit(int file, const FileBytes &bytes, qint64 size, Visitor &visitor) const;

private:
    QString folderPath;
    Listing listing;
    EventTypes types;
    Writers others = Writers::Possible;
};

//! What the bytes of a record say; state and fault are for the caller to fill in.
Record recordIn(std::string_view bytes);

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"

#include <memory>
#include <vector>

//! A part of a file whose records follow one another, with what is lost among them.
struct Stretch {
    size_t file = 0;  //!< index in RecordOrder::files()
    qint64 begin = 0; //!< from the start of the file
    qint64 end = 0;
    quint64 first = 0; //!< the lowest number, or less; 0 with a last one of 0: there is none
    quint64 last = 0;  //!< the highest one, or more
};

/*!
 * Finds out in which order a folder's records are shown: by their numbers, wherever they
 * stand. Where numbers were given twice, as after a start that did not know the last one,
 * each run of them comes after the other.
 *
 * A file whose trailers lead from its end to its start, over numbers that rise, is one
 * stretch, which takes no more than reading its bytes. Only what else there is, is taken
 * apart, as Archive::Folder says.
 *
 * Memory: 40 bytes a file; 64 times as much for damaged ones, up to 5 MiB.
 */
class RecordOrder
{
public:
    //! A file as it was found, of which no more is shown.
    struct File {
        Archive::ListedFile listed;
        qint64 size = 0;
    };

    //! What records are in the order of.
    enum class By : quint8 {
        Number,
        Place, //!< in the folder: the oldest file first
    };

    //! The folder is open, and must outlive this. Tells of files that cannot be read.
    RecordOrder(const Archive::Folder &opened, By order);

    [[nodiscard]] const std::vector<File> &files() const { return found; }
    //! In the order in which they are shown.
    [[nodiscard]] const std::vector<Stretch> &stretches() const { return ordered; }
    //! Whether all files could be read so far.
    [[nodiscard]] bool isComplete() const { return complete; }
    [[nodiscard]] quint64 highestNumber() const;

    //! The file of a stretch; null where it is gone, or cannot be read, which is told.
    [[nodiscard]] std::shared_ptr<const Archive::FileBytes> open(const Stretch &stretch);
    //! Shows what lies in a stretch of its file; what cannot be read is told.
    void visit(const Stretch &stretch, const Archive::FileBytes &bytes, Archive::Visitor &visitor);

private:
    using Indices = std::vector<size_t>;

    void add(const Archive::ListedFile &file, By order);
    void sort();
    [[nodiscard]] bool addWhole(const Archive::FileBytes &bytes, qint64 size);
    void addParts(const Archive::FileBytes &bytes, qint64 size);
    [[nodiscard]] Indices *bestRun(std::vector<Indices> &runs, const Stretch &stretch) const;
    [[nodiscard]] std::vector<Indices> runs() const;
    void put(const Stretch &stretch);
    void notice(int file, int error);

    const Archive::Folder &folder;
    QByteArray content; //!< of the file at hand
    std::vector<File> found;
    std::vector<Stretch> parts; //!< in the order of the folder
    std::vector<Stretch> ordered;
    bool complete = true;
};

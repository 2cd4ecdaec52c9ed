// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archiverecord.h"
#include "archive/filebytes.h"
#include "archive/valuefit.h"

#include <QByteArray>

#include <functional>
#include <optional>
#include <vector>

namespace Archive
{

//! A stretch of a file: a record, or none.
struct Piece {
    qint64 begin = 0; //!< from the start of the file
    qint64 end = 0;
    quint64 logNr = 0; //!< of a record
    State state = State::Whole;
    Fault fault = Fault::None;
    bool isRecord = true;
};

//! Pieces one after another, and the bytes that they lie in.
struct Pieces {
    std::vector<Piece> pieces;
    QByteArray bytes;
    qint64 bytesBegin = 0; //!< from the start of the file

    [[nodiscard]] std::string_view bytesOf(const Piece &piece) const
    {
        return {bytes.constData() + (piece.begin - bytesBegin), size_t(piece.end - piece.begin)};
    }
};

/*!
 * Takes one file apart. Folder says what makes a file sound and what that costs.
 */
class FileScan
{
public:
    //! In bytes. A file is read so much at a time.
    static constexpr qint64 windowSize = 524288;
    /*!
     * Longer than any record: a message of the bus has at most 32 MiB, and a text takes no
     * more in a file.
     */
    static constexpr qint64 longestRecord = qint64(33) << 20;

    //! Looks at the first \a size bytes.
    FileScan(const FileBytes &file, qint64 size, const EventTypes &types);

    //! Is shown pieces that may go on in the next ones where they are no record.
    using Show = std::function<void(const Pieces &)>;
    //! Shows all pieces in their order; false, with errno, where the file cannot be read.
    [[nodiscard]] bool run(const Show &show);

    //! Whether the daemon's own walk finds all that was shown.
    [[nodiscard]] bool isReadByDaemon() const { return sound && !holdsLongRecord; }

private:
    [[nodiscard]] bool findParts();
    [[nodiscard]] bool load(qint64 begin, qint64 end);
    [[nodiscard]] bool isSound(qint64 begin, qint64 end);
    [[nodiscard]] bool arePositionsSound(qint64 end);
    void walkPart(qint64 end);
    [[nodiscard]] bool showParts(const Show &show);
    void judgeTexts(Pieces &found);
    [[nodiscard]] bool search(const Show &show);

    const FileBytes &bytes;
    qint64 fileSize;
    ValueFit fit;
    QByteArray window;
    qint64 windowBegin = 0;
    std::vector<qint64> parts;     //!< of a sound file: where each ends, the last one first
    std::vector<qint64> positions; //!< of the records of a part, the last one first
    quint64 following = 0;         //!< number of the record behind; 0 at the end of the file
    bool sound = false;
    bool holdsLongRecord = false;
};

/*!
 * Where the plausible record begins that ends with the bytes; negative where none does.
 * Of several, as only records over 64 KiB can have, the shortest.
 */
qint64 lastRecord(std::string_view bytes);
//! Whether a plausible record ends within another one.
bool holdsRecord(std::string_view record);

} // namespace Archive

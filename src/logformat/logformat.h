// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <QtEndian>

#include <array>
#include <optional>

/*!
 * The bytes of a log file, and nothing else: no file is opened here and no clock is
 * read. docs/log-format.md shows a record byte by byte.
 *
 * A file is a plain sequence of records. Of a record, all numbers little-endian
 * and unaligned:
 *
 *   offset  size  field
 *        0     8  log number, unsigned
 *        8     8  seconds since 1970-01-01 UTC, as their absolute value
 *       16     4  microseconds
 *       20     4  padding, written as zero, ignored on reading
 *       24     4  event id, signed
 *       28     n  argument values one after another, the emitter's path first
 *     28+n     1  end mark 0x0A
 *     29+n     2  trailer: the number of bytes before it, modulo 65536
 *
 * Everything that reads is a template over its source: a QIODevice, or anything else with
 * its seek() and read() (ByteSource, LogFileCursor). Sources keep their position, and
 * where a damaged record lies before the start of its file that position is part of what
 * is read: seek() says how.
 */
namespace LogFormat
{

constexpr qint64 logNrOffset = 0;
constexpr qint64 secondsOffset = logNrOffset + 8;
constexpr qint64 microsecondsOffset = secondsOffset + 8;
constexpr qint64 paddingOffset = microsecondsOffset + 4;
constexpr qint64 eventIdOffset = paddingOffset + 4;
constexpr qint64 valuesOffset = eventIdOffset + 4;
static_assert(valuesOffset == 28, "files in the field begin like this");
constexpr char endMark = '\n';
constexpr qint64 trailerSize = sizeof(quint16);
//! A record's bytes without its trailer are counted modulo this.
constexpr qint64 lengthModulus = 65536;
//! Of a whole record: with an empty path, and no other value.
constexpr qint64 minRecordSize = valuesOffset + 2 + 1 + trailerSize;

//! The path of the file with an index: "zib0.log" is the current one, higher ones are older.
QString fileName(int index);
//! The index of a name that fileName() makes; -1 for any other name.
int fileIndex(const QString &name);
//! What a reader takes for log files, as a pattern for QDir, which ignores letter case.
QString readerNamePattern();
//! Whether a name is one of these. All that fileName() makes are.
bool isReaderName(const QString &name);

//! Appends a number.
template <typename Number>
void append(QByteArray &out, Number value)
{
    std::array<char, sizeof(Number)> bytes{};
    qToLittleEndian(value, bytes.data());
    out.append(bytes.data(), int(bytes.size()));
}

/*!
 * Reads a number from the current position. Bytes that the source does not have count as
 * zero; the result says how many it delivered.
 */
template <typename Source, typename Number>
qint64 read(Source &in, Number &value)
{
    std::array<char, sizeof(Number)> bytes{};
    const qint64 delivered = in.read(bytes.data(), qint64(bytes.size()));
    value = qFromLittleEndian<Number>(bytes.data());
    return delivered;
}

//! The same where it does not matter how much of it is there.
template <typename Number, typename Source>
Number readNumber(Source &in)
{
    Number value{};
    read(in, value);
    return value;
}

/*!
 * Goes to a position from the start of the file. A position before the start
 * leaves the source where it is; one behind the end is fine and reads nothing.
 */
template <typename Source>
void seek(Source &in, qint64 position)
{
    if (position >= 0) {
        in.seek(position);
    }
}

//! What stands in front of a record's values.
struct RecordHead {
    quint64 logNr = 0;
    quint64 seconds = 0;
    quint32 microseconds = 0;
    qint32 eventId = 0;
};

void appendLogNr(QByteArray &out, quint64 logNr);
//! \a seconds count from 1970-01-01 UTC. Kept: earlier ones lose their sign.
void appendTimestamp(QByteArray &out, qint64 seconds, qint32 microseconds);
void appendEventId(QByteArray &out, qint32 eventId);
//! Ends the record that begins at an index of \a out. Kept: its length is cut to 16 bits.
void appendTail(QByteArray &out, qint64 recordBegin);

//! Reads the head of the record at a position, and leaves the source at its values.
template <typename Source>
RecordHead readHead(Source &in, qint64 position)
{
    RecordHead head;
    seek(in, position + logNrOffset);
    read(in, head.logNr);
    seek(in, position + secondsOffset);
    std::array<char, eventIdOffset - secondsOffset> timestamp{};
    in.read(timestamp.data(), qint64(timestamp.size())); // in one go, with the padding
    head.seconds = qFromLittleEndian<quint64>(timestamp.data());
    head.microseconds
        = qFromLittleEndian<quint32>(timestamp.data() + (microsecondsOffset - secondsOffset));
    seek(in, position + eventIdOffset);
    read(in, head.eventId);
    seek(in, position + valuesOffset);
    return head;
}

//! How much of what it reads a walk believes.
enum class Walk {
    //! Everything: it ends behind the first record that begins at or before the start.
    WholeFile,
    //! All but a trailer that begins at or before the start, or of which no byte can be read.
    Tail,
};

/*!
 * Walks a file from its end towards its start, from trailer to trailer, and calls
 * \a visit(position, logNr) for every record on the way as long as that is true. Nothing
 * is checked: behind a damaged trailer a walk finds whatever stands there, in the end
 * perhaps a record with a negative position.
 *
 * Of an empty file a walk over all of it visits a record at -2: ask for the size before.
 *
 * The source is left at the last record's beginning, behind its number where the visitor
 * ended the walk, and behind what was read of the trailer that ended it otherwise. The
 * result is the position of such a trailer.
 */
template <typename Source, typename Visit>
std::optional<qint64> walkBack(Source &in, qint64 fileSize, Walk walk, Visit &&visit)
{
    qint64 position = fileSize;
    do {
        const qint64 trailerPosition = position - trailerSize;
        quint16 length = 0;
        seek(in, trailerPosition);
        const qint64 delivered = read(in, length);
        if (walk == Walk::Tail && (delivered < 1 || trailerPosition <= 0)) {
            return trailerPosition;
        }
        position = trailerPosition - length;
        quint64 logNr = 0;
        seek(in, position + logNrOffset);
        read(in, logNr);
        if (!visit(position, logNr)) {
            return std::nullopt;
        }
        seek(in, position);
    } while (walk == Walk::Tail || position > 0);
    return std::nullopt;
}

//! The number of a file's last record; 0 where it cannot be read. Nothing is checked.
template <typename Source>
quint64 lastLogNr(Source &in)
{
    quint64 last = 0;
    (void)walkBack(in, in.size(), Walk::WholeFile, [&last](qint64 /*position*/, quint64 logNr) {
        last = logNr;
        return false;
    });
    return last;
}

} // namespace LogFormat

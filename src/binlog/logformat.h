// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <QVariant>
#include <QtEndian>

#include <array>

/*!
 * The bytes of a log file, and nothing else: no file is opened here and no
 * clock is read. Writer and reader both include this header and never each
 * other. docs/log-format.md shows a record byte by byte.
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
 */
namespace LogFormat
{

constexpr qint64 logNrOffset = 0;
constexpr qint64 timestampOffset = 8;
constexpr qint64 timestampSize = 16;
constexpr qint64 eventIdOffset = timestampOffset + timestampSize;
constexpr qint64 valuesOffset = eventIdOffset + 4;
static_assert(valuesOffset == 28, "files in the field begin like this");
constexpr char endMark = '\n';
constexpr qint64 trailerSize = 2;

//! The path of the file with an index: "zib0.log" is the current one, higher ones are older.
QString fileName(int index);
//! The index of a name that fileName() makes; -1 for any other name.
int fileIndex(const QString &name);

//! Appends a number.
template <typename Number>
void append(QByteArray &out, Number value)
{
    std::array<char, sizeof(Number)> bytes{};
    qToLittleEndian(value, bytes.data());
    out.append(bytes.data(), int(bytes.size()));
}

/*!
 * Reads a number from the current position of a QIODevice or of anything else that
 * reads like one. Bytes that the source does not have count as zero; the result
 * says how many it delivered.
 */
template <typename Source, typename Number>
qint64 read(Source &in, Number &value)
{
    std::array<char, sizeof(Number)> bytes{};
    const qint64 delivered = in.read(bytes.data(), qint64(bytes.size()));
    value = qFromLittleEndian<Number>(bytes.data());
    return delivered;
}

/*!
 * Appends an argument value in the encoding of its type:
 *
 *   bool           1 byte
 *   int, uint      4 bytes
 *   qlonglong      8 bytes: the low 32 bits, sign-extended
 *   double         8 bytes
 *   QChar          1 byte: the low 8 bits
 *   QString        2 bytes: length of the UTF-8 text modulo 65536; then the text
 *   QDBusVariant   2 bytes: type code of the wrapped value; then that value
 *
 * A value of another registered type appends nothing. One of another built-in type
 * appends nothing either and gives false: the caller reports it.
 */
[[nodiscard]] bool appendValue(QByteArray &out, const QVariant &value);

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

//! The log number of a file's last record; 0 where it cannot be read. Nothing is checked.
quint64 lastLogNr(QIODevice &in);

} // namespace LogFormat

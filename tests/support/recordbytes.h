// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QList>
#include <QtEndian>

/*!
 * Records put together byte by byte, on purpose without the product's own
 * description of the format: what the tests expect must not come from what they
 * test.
 */
namespace RecordBytes
{

inline QByteArray number(quint64 value, int size)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i) {
        bytes.append(char((value >> (8 * i)) & 0xFF));
    }
    return bytes;
}

//! A string or byte array value: its length in two bytes, then the bytes.
inline QByteArray sized(const QByteArray &content)
{
    return number(quint64(content.size()), 2) + content;
}

struct Fields {
    quint64 logNr = 1;
    qint64 seconds = 1700000000;
    qint32 microseconds = 250000;
    qint32 eventId = 1001;
    QByteArray path = "/power/supply";
    QByteArray values;
};

inline QByteArray record(const Fields &fields)
{
    const QByteArray body = number(fields.logNr, 8) + number(quint64(fields.seconds), 8)
        + number(quint64(fields.microseconds), 4) + number(0, 4)
        + number(quint64(fields.eventId), 4) + sized(fields.path) + fields.values + '\n';
    return body + number(quint64(body.size()), 2);
}

//! A record without values, of the given number.
inline QByteArray record(quint64 logNr)
{
    Fields fields;
    fields.logNr = logNr;
    return record(fields);
}

//! A record within a file.
struct Stored {
    int begin = 0;
    int end = 0; //!< behind its length
    quint64 logNr = 0;
};

/*!
 * The records of a file in their order, found from its end by their lengths; none at all
 * where these do not lead to its start.
 */
inline QList<Stored> storedIn(const QByteArray &file)
{
    QList<Stored> records;
    int end = int(file.size());
    while (end >= 2) {
        const int begin = end - 2 - qFromLittleEndian<quint16>(file.constData() + end - 2);
        if (begin < 0 || end - begin < 10) {
            return {};
        }
        records.prepend({begin, end, qFromLittleEndian<quint64>(file.constData() + begin)});
        end = begin;
    }
    return end == 0 ? records : QList<Stored>{};
}

//! Their log numbers.
inline QList<quint64> numbersIn(const QByteArray &file)
{
    QList<quint64> numbers;
    const QList<Stored> records = storedIn(file);
    for (const Stored &record : records) {
        numbers.append(record.logNr);
    }
    return numbers;
}

} // namespace RecordBytes

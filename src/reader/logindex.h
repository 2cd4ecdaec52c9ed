// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <vector>

//! A record's number and where it lies.
struct LogIndexEntry {
    quint64 logNr = 0;
    qint64 position = 0; //!< of its first byte; negative where a damaged trailer points there
    int fileNr = 0;      //!< number of its file
};

/*!
 * Leads from log numbers to records: a vector in ascending order of the numbers,
 * at 24 bytes a record.
 */
class LogIndex
{
public:
    using const_iterator = std::vector<LogIndexEntry>::const_iterator;

    /*!
     * Takes the records of a scan over all files, in the order in which they were
     * found, in place of everything before. Of equal numbers the last one holds.
     */
    void assign(std::vector<LogIndexEntry> found);
    //! Takes further records in the order in which they were found, none of a known number.
    void add(std::vector<LogIndexEntry> found);

    [[nodiscard]] bool contains(quint64 logNr) const;
    //! The first entry with this number or a higher one.
    [[nodiscard]] const_iterator from(quint64 logNr) const;
    [[nodiscard]] const_iterator end() const { return entries.cend(); }

    //! 0xFFFFFFFFFFFFFFFF without any record.
    [[nodiscard]] quint64 minLogNr() const;
    //! 0 without any record.
    [[nodiscard]] quint64 maxLogNr() const;

private:
    std::vector<LogIndexEntry> entries;
};

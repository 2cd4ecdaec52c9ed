// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archivefolder.h"

#include <vector>

namespace Archive
{

//! Bytes of a file, from a place to another.
struct Range {
    qint64 begin = 0;
    qint64 end = 0;
};

/*!
 * Finds out what of a file is good: the whole records, and as far as their numbers suit
 * those beside them the likely ones that the daemon finds, and the damaged ones that its
 * walk gets over.
 */
class FileSurvey : public Visitor
{
public:
    //! Notes good ranges as long as the file is not larger than \a mostBytes.
    explicit FileSurvey(qint64 mostBytes)
        : mostNoted(mostBytes)
    {
    }

    void beginFile(int file, qint64 fileSize) override;
    void record(const Place &place, const Record &record) override;
    void lost(const Place &place, Fault reason) override;
    void endFile(const FileResult &fileResult) override;

    FileResult result;
    qint64 size = 0;
    bool isNoted = false;        //!< there are ranges and starts
    std::vector<Range> good;     //!< ascending, none touching another
    std::vector<qint64> readNow; //!< where good records begin that the daemon finds, ascending
    std::vector<qint64> begins;  //!< where good records begin that are whole or likely
    qint64 goodPrefix = 0;       //!< up to here all is good
    qint64 goodEnd = 0;          //!< of the last good record
    quint64 lastNumber = 0;      //!< that of the last good record
    quint64 records = 0;         //!< whole or likely
    quint64 goodRecords = 0;     //!< of these
    qint64 damagedAt = -1;       //!< where the first damage is; negative: there is none
    Fault fault = Fault::None;

private:
    struct Doubtful {
        Place place;
        quint64 logNr = 0;
        bool isLikely = false;
    };

    void noteDamage(const Place &place, Fault reason);
    void decideDoubtful(quint64 limit);
    void addWhole(const Place &place, bool isReadByDaemon);
    void addGood(const Place &place, quint64 logNr);

    qint64 mostNoted;
    std::vector<Doubtful> doubtful; //!< since the last good one
};

} // namespace Archive

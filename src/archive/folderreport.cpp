// SPDX-License-Identifier: Apache-2.0
#include "archive/folderreport.h"

namespace Archive
{
namespace
{

class Reporter : public Visitor
{
public:
    explicit Reporter(const std::function<void(const FileReport &)> &toCall)
        : perFile(toCall)
    {
    }

    void beginFile(int file, qint64 size) override
    {
        report = {};
        report.file = file;
        report.size = size;
    }

    void record(const Place &place, const Record &record) override
    {
        if (record.state == State::Damaged) {
            addDamage(place, record.fault);
            return;
        }
        folder.numbers.insert(record.head.logNr);
        const RecordTime time{record.head.seconds, record.head.microseconds};
        if (report.records++ == 0) {
            report.first = record.head.logNr;
            report.firstTime = time;
        }
        report.last = record.head.logNr;
        report.lastTime = time;
    }

    void lost(const Place &place, Fault reason) override { addDamage(place, reason); }

    void endFile(const FileResult &result) override
    {
        if (result.isGone) {
            return;
        }
        report.file = result.file;
        report.readByDaemon = result.readByDaemon;
        report.error = result.error;
        for (Stretch &stretch : report.damaged) {
            stretch.wholeBehind = report.records - stretch.wholeBefore;
        }
        ++folder.files;
        folder.records += report.records;
        folder.readByDaemon += report.readByDaemon;
        folder.isDamaged = folder.isDamaged || !report.damaged.empty();
        folder.error = folder.error != 0 ? folder.error : report.error;
        perFile(report);
    }

    FolderReport folder;

private:
    void addDamage(const Place &place, Fault reason)
    {
        const bool touches = !report.damaged.empty() && report.damaged.back().to == place.offset;
        if (touches || report.damaged.size() >= FileReport::mostStretches) {
            report.damaged.back().to = place.end();
        } else {
            report.damaged.push_back({place.offset, place.end(), reason, report.records, 0});
        }
    }

    const std::function<void(const FileReport &)> &perFile;
    FileReport report;
};

} // namespace

FolderReport reportOn(const Folder &folder, const std::function<void(const FileReport &)> &perFile)
{
    Reporter reporter(perFile);
    (void)folder.visit(reporter); // what could not be read is in the reports
    return std::move(reporter.folder);
}

} // namespace Archive

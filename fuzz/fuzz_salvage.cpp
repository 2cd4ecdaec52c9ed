// SPDX-License-Identifier: Apache-2.0

// The input describes a folder of log files: raw bytes, sound records, records in records,
// runs of one byte, damaged or not. It is shown, reported on and repaired: every byte is
// shown once, nothing that the daemon finds is lost to it, no byte is lost at all, and a
// second repair has nothing to do.

#include "archive/folderreport.h"
#include "archive/repair.h"
#include "checks.h"
#include "input.h"
#include "logformat/bytesource.h"
#include "logformat/plausibility.h"
#include "memoryfolder.h"
#include "richcatalogue.h"
#include "support/literals.h"
#include "support/recordbytes.h"

#include <QFile>
#include <QMap>

#include <set>

namespace
{

constexpr int mostSteps = 64;
constexpr int mostBytes = 70000; //!< of all files; a record over 64 KiB has room
constexpr int fileCount = 4;
constexpr quint64 farthest = 1 << 20;

MemoryFolder &folder()
{
    static MemoryFolder onlyOne;
    return onlyOne;
}

//! No input needs to reach a disk.
class HastyDisk : public Archive::RepairDisk
{
public:
    int sync(int /*descriptor*/) override { return 0; }
};

using Files = QMap<int, QByteArray>;

Files inputFiles(Input &input)
{
    Files files;
    int index = 0;
    int total = 0;
    quint64 logNr = 0;
    for (int step = 0; step < mostSteps && !input.atEnd(); ++step) {
        QByteArray added;
        QByteArray &content = files[index];
        switch (input.below(8)) {
        case 0:
            added = input.longBytes();
            break;
        case 1:
        case 2:
        case 3: {
            const int form = input.byte();
            RecordBytes::Fields fields;
            logNr = (form & 1) != 0 ? input.number<quint64>() : logNr + 1;
            fields.logNr = logNr;
            fields.eventId = input.below(16);
            fields.values = (form & 2) != 0 ? input.shortBytes() : QByteArray();
            if ((form & 4) != 0) {
                fields.values += RecordBytes::record(logNr + quint64(input.below(3)));
            }
            if ((form & 8) != 0) {
                fields.path = input.shortBytes();
            }
            added = RecordBytes::record(fields);
            if ((form & 16) != 0) {
                added = added.repeated(input.byte());
            }
            break;
        }
        case 4: {
            const int size = input.number<uint16_t>();
            added = QByteArray(size, char(input.byte()));
            break;
        }
        case 5:
            index = input.below(fileCount);
            break;
        case 6:
            added = files.value(input.below(fileCount));
            break;
        default: {
            const int where = input.number<uint16_t>();
            const int what = input.byte();
            if (!content.isEmpty()) {
                const int at = int(content.size()) - 1 - where % int(content.size());
                what == 0 ? content.truncate(at) : void(content[at] = char(content[at] ^ what));
            }
        }
        }
        if (total + int(added.size()) <= mostBytes) {
            total += int(added.size());
            files[index] += added;
        }
    }
    return files;
}

//! Checks that all of a file is shown, piece by piece.
class Checker : public Archive::Visitor
{
public:
    explicit Checker(const Files &shown)
        : files(shown)
    {
    }

    void beginFile(int /*file*/, qint64 /*size*/) override
    {
        end = 0;
        isBehindLost = false;
    }
    void record(const Archive::Place &place, const Archive::Record &record) override
    {
        goOn(place);
        isBehindLost = false;
        const QByteArray bytes = files.value(place.file).mid(int(place.offset), int(place.length));
        require(record.bytes == std::string_view(bytes.constData(), size_t(bytes.size())),
                "a record's bytes are those of the file");
        const bool isPlausible = LogFormat::recordFlaw(record.bytes) == LogFormat::Flaw::None;
        require(isPlausible || record.state == Archive::State::Damaged,
                "a record that is not damaged is plausible");
        require((record.fault == Archive::Fault::None) == (record.state != Archive::State::Damaged),
                "a damaged record has a fault");
    }
    void lost(const Archive::Place &place, Archive::Fault /*reason*/) override
    {
        goOn(place);
        require(!isBehindLost, "what is lost is shown as one");
        isBehindLost = true;
    }
    void endFile(const Archive::FileResult &result) override
    {
        require(result.error == 0 && end == result.size && end == files.value(result.file).size(),
                "all of a file is shown");
    }

private:
    void goOn(const Archive::Place &place)
    {
        require(place.offset == end && place.length > 0, "pieces touch");
        end = place.end();
    }

    const Files &files;
    qint64 end = 0;
    bool isBehindLost = false;
};

quint64 logNrOf(std::string_view record)
{
    ByteSource in(record);
    return LogFormat::readNumber<quint64>(in);
}

bool isPlausible(std::string_view record)
{
    return LogFormat::recordFlaw(record) == LogFormat::Flaw::None;
}

//! Where the record of a trailer begins, without a look at anything else.
qint64 beginOf(std::string_view bytes)
{
    const qint64 trailer = qint64(bytes.size()) - LogFormat::trailerSize;
    ByteSource in(bytes);
    in.seek(trailer);
    return trailer - LogFormat::readNumber<quint16>(in);
}

bool holdsRecord(std::string_view record)
{
    for (size_t end = record.size() - 1; end >= size_t(LogFormat::minRecordSize); --end) {
        if (record[end - 3] != LogFormat::endMark) {
            continue;
        }
        // One over 64 KiB may be within one, too.
        for (qint64 begin = beginOf(record.substr(0, end)); begin >= 0;
             begin -= LogFormat::lengthModulus) {
            if (isPlausible(record.substr(size_t(begin), end - size_t(begin)))) {
                return true;
            }
        }
    }
    return false;
}

/*!
 * What the daemon finds in a file without a doubt: from its end, as long as all is well.
 * Where that ends before the start, the record there is not beyond doubt.
 */
std::set<QByteArray> soundEnd(const QByteArray &content)
{
    const std::string_view bytes(content.constData(), size_t(content.size()));
    std::set<QByteArray> found;
    quint64 following = 0;
    int count = 0;
    qint64 end = content.size();
    QByteArray last;
    while (end >= LogFormat::minRecordSize) {
        const qint64 begin = beginOf(bytes.substr(0, size_t(end)));
        if (begin < 0) {
            break;
        }
        const std::string_view record = bytes.substr(size_t(begin), size_t(end - begin));
        if (!isPlausible(record) || holdsRecord(record)) {
            break;
        }
        const quint64 logNr = logNrOf(record);
        const bool isWrong = count > 0 && (logNr >= following || following - logNr > farthest);
        if (isWrong && count > 1) {
            break;
        }
        if (isWrong) {
            found.clear(); // a last number that cannot be right is not gone on with
            count = 0;
        }
        last = content.mid(int(begin), int(end - begin));
        found.insert(last);
        following = logNr;
        ++count;
        end = begin;
    }
    if (end > 0) {
        found.erase(last);
    }
    return found;
}

std::set<QByteArray> walked(const QByteArray &content)
{
    std::set<QByteArray> found;
    for (qint64 end = content.size(); end >= LogFormat::trailerSize;) {
        const qint64 begin = beginOf({content.constData(), size_t(end)});
        if (begin >= 0) {
            found.insert(content.mid(int(begin), int(end - begin)));
        }
        end = begin;
    }
    return found;
}

QByteArray keptBytes(const Archive::RepairStep &step)
{
    QFile file(folder().dir().filePath(step.keptAs));
    require(file.open(QIODevice::ReadOnly), "what was taken out is kept");
    return file.readAll();
}

void checkStep(const Archive::RepairStep &step, const QByteArray &before, const QByteArray &after)
{
    switch (step.action) {
    case Archive::RepairAction::Leave:
        require(before == after, "a file that is left is as it was");
        break;
    case Archive::RepairAction::Rewrite:
        require(keptBytes(step) == before, "a file that was replaced is kept");
        break;
    case Archive::RepairAction::CutEnd:
        require(after + keptBytes(step) == before, "an end that was cut off is kept");
        break;
    }
    require(step.readAfter <= step.records, "a repair promises no more than there is");
}

Archive::RepairResult repair(const SystemeventCatalogue *catalogue, bool isDryRun)
{
    Archive::Folder archive(folder().dir().path(), catalogue);
    require(archive.open(Archive::Writers::None), "the folder is opened");
    HastyDisk disk;
    Archive::Repair repair(archive, disk);
    return isDryRun ? repair.plan() : repair.run();
}

void checkRepair(const SystemeventCatalogue *catalogue, const Files &files)
{
    const Archive::RepairResult planned = repair(catalogue, true);
    require(folder().logFiles() == files, "a plan changes nothing");
    const Archive::RepairResult done = repair(catalogue, false);
    require(planned.steps.size() == done.steps.size(), "a repair does what was planned");
    const Files mended = folder().logFiles();
    require(mended.keys() == files.keys(), "no file comes or goes");
    for (const Archive::RepairStep &step : done.steps) {
        require(step.obstacle != Archive::RepairObstacle::Failed, "no step fails");
        checkStep(step, files[step.file], mended[step.file]);
    }
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        const std::set<QByteArray> after = walked(mended[file.key()]);
        for (const QByteArray &record : soundEnd(file.value())) {
            require(after.count(record) != 0, "what the daemon found it finds");
        }
    }
    for (const Archive::RepairStep &step : repair(catalogue, false).steps) {
        require(step.action == Archive::RepairAction::Leave, "a second repair does nothing");
    }
    require(folder().logFiles() == mended, "a second repair changes nothing");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    prepare();
    Input input(data, size);
    const SystemeventCatalogue *const catalogue = input.flag() ? &richCatalogue() : nullptr;
    const Files files = inputFiles(input);
    folder().clear();
    (void)QDir(folder().dir().filePath("damaged"_s)).removeRecursively();
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        folder().write("zib%1.log"_s.arg(file.key()), file.value());
    }
    Archive::Folder archive(folder().dir().path(), catalogue);
    require(archive.open(Archive::Writers::None), "the folder is opened");
    Checker checker(files);
    require(archive.visit(checker), "the folder is read");
    const Archive::FolderReport report = Archive::reportOn(archive);
    require(report.files == files.size() && report.readByDaemon <= report.records,
            "a report counts all files");
    checkRepair(catalogue, files);
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
#include "reader/systemeventlogfilereader.h"

#include "logformat/logformat.h"
#include "reader/recordjson.h"
#include "rendering/utf8text.h"

#include <QFile>
#include <QSet>
#include <QtDebug>

#include <algorithm>
#include <numeric>
#include <string_view>
#include <tuple>
#include <utility>

#include <sys/stat.h>

namespace
{

//! The digits between "zib" and the first dot, 0 where they are no number.
int fileNumber(const QString &name)
{
    return name.section(QLatin1Char('.'), 0, 0).mid(3).toInt();
}

struct ListedFile {
    QString name;
    qint64 modified = 0; //!< milliseconds since 1970-01-01 UTC
    qint64 size = 0;     //!< in bytes
};

/*!
 * The files of a directory by its own filter, the one modified last first, equal ones
 * by name. QDir::Time is the same order, but asks for the time zone at every step of
 * the sorting.
 */
std::vector<ListedFile> filesByTime(const QDir &directory)
{
    std::vector<ListedFile> files;
    const QStringList names = directory.entryList(QDir::NoFilter, QDir::Unsorted);
    for (const QString &name : names) {
        struct stat status {
        };
        (void)stat(QFile::encodeName(directory.absoluteFilePath(name)).constData(), &status);
        const timespec &modified = status.st_mtim;
        files.push_back({name, qint64(modified.tv_sec) * 1000 + modified.tv_nsec / 1000000,
                         qint64(status.st_size)});
    }
    std::sort(files.begin(), files.end(), [](const ListedFile &left, const ListedFile &right) {
        return std::tie(right.modified, left.name) < std::tie(left.modified, right.name);
    });
    return files;
}

//! A guess at the number of records in files, so that the index need not grow in steps.
size_t expectedRecords(const std::vector<ListedFile> &files)
{
    constexpr qint64 usualRecordSize = 80;   // a path, and a few short values
    constexpr qint64 mostExpected = 1048576; // a wrong guess shall not cost much
    const qint64 size = std::accumulate(
        files.begin(), files.end(), qint64(0),
        [](qint64 sum, const ListedFile &file) { return sum + file.size / usualRecordSize; });
    return size_t(std::min(size, mostExpected));
}

/*!
 * Appends a text in UTF-8 to an answer. Nearly always it is plain ASCII, which is widened in
 * its place: QString would make a text of its own first, and with Qt 5 byte by byte.
 */
void appendConverted(QString &answer, std::string_view utf8)
{
    if (!Utf8Text::isAscii(utf8)) {
        answer += QString::fromUtf8(utf8.data(), QString::size_type(utf8.size()));
        return;
    }
    const auto begin = answer.size();
    answer.resize(begin + QString::size_type(utf8.size()));
    std::transform(utf8.begin(), utf8.end(), answer.begin() + begin,
                   [](char character) { return QLatin1Char(character); });
}

/*!
 * A guess at the size of an answer, in bytes, from its first records: growing in steps would
 * move it, and have it on small pages where the system has large ones. What is never filled
 * takes no memory.
 */
quint64 expectedSize(quint64 size, std::ptrdiff_t records, std::ptrdiff_t recordsLeft)
{
    constexpr quint64 mostExpected = 33554432; // a wrong guess shall not cost much
    const quint64 each = size / quint64(std::max<std::ptrdiff_t>(records, 1));
    const quint64 rest = each * quint64(recordsLeft);
    return std::min(size + rest + rest / 8, mostExpected); // later numbers have more digits
}

} // namespace

//! One question: the index is up to date when it begins, the cursor in no file once it ends.
class SystemeventLogfileReader::Query
{
public:
    explicit Query(SystemeventLogfileReader &asked)
        : reader(asked)
    {
        reader.refresh();
    }
    ~Query() { reader.cursor.forget(); }
    Q_DISABLE_COPY_MOVE(Query)

private:
    SystemeventLogfileReader &reader;
};

SystemeventLogfileReader::SystemeventLogfileReader(const QDir &directory,
                                                   const SystemeventCatalogue *systemevents)
    : logDir(directory)
    , catalogue(systemevents)
{
    if (!catalogue) {
        qFatal("SystemeventLogfileReader::SystemeventLogfileReader systemevents==NULL!");
    }
    logDir.setNameFilters({LogFormat::readerNamePattern()});
}

SystemeventLogfileReader::~SystemeventLogfileReader() = default;

quint64 SystemeventLogfileReader::getMinLogNr()
{
    const Query query(*this);
    return index.minLogNr();
}

quint64 SystemeventLogfileReader::getMaxLogNr()
{
    const Query query(*this);
    return index.maxLogNr();
}

void SystemeventLogfileReader::logfileChanged()
{
    indexDirty = true;
}

void SystemeventLogfileReader::logfilesRotated()
{
    filesDirty = true;
    // A deleted file takes its space as long as somebody has it open.
    fileTable.clear();
}

void SystemeventLogfileReader::refresh()
{
    if (filesDirty) {
        fullScan();
    }
    if (indexDirty) {
        updateIndex();
    }
}

void SystemeventLogfileReader::fullScan()
{
    fileTable.clear();
    std::vector<LogIndexEntry> found;

    const std::vector<ListedFile> files = filesByTime(logDir);
    found.reserve(expectedRecords(files));
    int leftOut = 0;
    for (const auto &[name, modified, size] : files) {
        const int fileNr = fileNumber(name);
        cursor.forget();
        fileTable.erase(fileNr); // a later one of the same number takes its place
        LogFile &file = fileTable.try_emplace(fileNr, logDir.absoluteFilePath(name)).first->second;
        qDebug() << "opening file: " << name;
        if (fileNr == 0) {
            file.openWhileUsed();
        }
        if (file.canBeRead() && file.size() > 0) {
            scanFile(fileNr, file, found);
        }
        leftOut += file.isLeftOut() ? 1 : 0;
    }
    reportLeftOut(leftOut);
    index.assign(std::move(found));
    filesDirty = false;
    indexDirty = false;
}

//! Once for all scans that leave files out, as every rotation leads to one.
void SystemeventLogfileReader::reportLeftOut(int files)
{
    if (files > 0 && !isLeavingOut) {
        qWarning("Too few file descriptors: %d log files cannot be kept open and are not read.",
                 files);
    }
    isLeavingOut = files > 0;
}

/*!
 * Walks a file backwards from trailer to trailer. Kept: nothing is checked, so
 * behind a damaged trailer the index holds whatever stands there, down to a
 * record whose trailer points before the start of the file.
 */
void SystemeventLogfileReader::scanFile(int fileNr, LogFile &file,
                                        std::vector<LogIndexEntry> &found)
{
    cursor.use(file);
    file.announceReading(); // nobody expects to be read backwards
    LogFormat::walkBack(cursor, file.size(), LogFormat::Walk::WholeFile,
                        [&found, fileNr](qint64 position, quint64 logNr) {
                            // In a file of zeros every other byte is a record 0: the last one
                            // holds, none piles up.
                            if (!found.empty() && found.back().logNr == logNr) {
                                found.pop_back();
                            }
                            found.push_back({logNr, position, fileNr});
                            return true;
                        });
}

void SystemeventLogfileReader::updateIndex()
{
    const auto current = fileTable.find(0);
    if (current != fileTable.end()) {
        index.add(newEntries(current->second));
    }
    indexDirty = false;
}

/*!
 * Finds what was appended, backwards down to a number that is known. Kept: where
 * every record is new it ends at the start of the file with the message about a
 * read error, although nothing is wrong.
 */
std::vector<LogIndexEntry> SystemeventLogfileReader::newEntries(LogFile &file)
{
    std::vector<LogIndexEntry> found;
    QSet<quint64> foundNumbers;
    cursor.use(file);
    const auto trailer = LogFormat::walkBack(
        cursor, file.size(), LogFormat::Walk::Tail, [&](qint64 position, quint64 logNr) {
            if (index.contains(logNr) || foundNumbers.contains(logNr)) {
                return false;
            }
            found.push_back({logNr, position, 0});
            foundNumbers.insert(logNr);
            return true;
        });
    if (trailer) {
        qDebug() << "read error:" << file.fileName() << " seekpos:" << *trailer;
    }
    return found;
}

QString SystemeventLogfileReader::jsonEntry(quint64 logNr, const QString &lang)
{
    const Query query(*this);
    const auto entry = index.from(logNr);
    if (entry == index.end() || entry->logNr != logNr) {
        return {};
    }
    RecordJson json(catalogue, lang);
    std::string object;
    appendRecord(object, *entry, json);
    return QString::fromStdString(object);
}

void SystemeventLogfileReader::appendRecord(std::string &out, const LogIndexEntry &entry,
                                            RecordJson &json)
{
    cursor.use(fileTable.at(entry.fileNr));
    json.append(out, cursor, entry.position);
}

/*!
 * Numbers still to come count with their separators: a gap that cannot fit, however
 * wide, ends the walk at once.
 */
std::optional<QString> SystemeventLogfileReader::jsonRange(quint64 start, quint64 end,
                                                           const QString &lang, quint64 sizeLimit)
{
    const Query query(*this);
    if (start > end) {
        return QStringLiteral("[]");
    }
    constexpr std::string_view separator = ",\n";
    constexpr size_t convertedAtOnce = 16384; // small enough to stay in the processor's cache
    RecordJson json(catalogue, lang);
    QString answer;
    std::string pending = "[";
    quint64 size = 2; // with both brackets
    const auto first = index.from(start);
    auto entry = first;
    for (quint64 number = start;; ++number) {
        const quint64 separators = end - number;
        if (size >= sizeLimit || separators > (sizeLimit - size - 1) / separator.size()) {
            return std::nullopt;
        }
        const size_t before = pending.size();
        if (entry != index.end() && entry->logNr == number) {
            appendRecord(pending, *entry++, json);
        }
        if (separators == 0) {
            size += pending.size() - before;
            break;
        }
        pending += separator;
        size += pending.size() - before;
        if (pending.size() >= convertedAtOnce) {
            if (answer.isEmpty()) {
                const quint64 expected = expectedSize(size, entry - first, index.from(end) - entry);
                answer.reserve(QString::size_type(std::min(expected, sizeLimit)));
            }
            appendConverted(answer, pending);
            pending.clear();
        }
    }
    if (size >= sizeLimit) {
        return std::nullopt;
    }
    pending += ']';
    appendConverted(answer, pending);
    return answer;
}

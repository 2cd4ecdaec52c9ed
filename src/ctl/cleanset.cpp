// SPDX-License-Identifier: Apache-2.0
#include "ctl/cleanset.h"

#include "ctl/messages.h"
#include "ctl/withinfolder.h"
#include "logformat/logformat.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <numeric>
#include <tuple>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

//! Past as many bundles, gaps in the numbers do not end one.
constexpr size_t mostSplit = 262144;
//! Numbers that began again more often than this come in some order.
constexpr size_t mostLanes = 32;

//! Whether the length that a record stores is not its own.
bool isLong(qint64 recordLength)
{
    return recordLength - LogFormat::trailerSize >= LogFormat::lengthModulus;
}

//! New files in a folder of their own, which are gone with it unless they were published.
class Workshop
{
public:
    explicit Workshop(const QString &folder)
        : path(QFile::encodeName(folder) + "/salvage.XXXXXX")
    {
        if (::mkdtemp(path.data()) != nullptr) {
            directory = Archive::openFolder(QFile::decodeName(path));
        }
    }
    ~Workshop()
    {
        for (int i = 0; i < count; ++i) {
            (void)::unlinkat(directory.get(), name(i).constData(), 0); // published ones are gone
        }
        if (directory.isOpen()) {
            (void)::rmdir(path.constData());
        }
    }
    Q_DISABLE_COPY_MOVE(Workshop)

    [[nodiscard]] bool isOpen() const { return directory.isOpen(); }
    [[nodiscard]] int fileCount() const { return count; }

    [[nodiscard]] bool isFileFull() const { return size >= CleanSet::fullFileSize; }

    //! Each gives false, with errno, when it fails.
    [[nodiscard]] bool nextFile()
    {
        if (!endFile()) {
            return false;
        }
        size = 0;
        file = Archive::Descriptor(::openat(directory.get(), name(count).constData(),
                                            O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        count += file.isOpen() ? 1 : 0;
        return file.isOpen();
    }
    [[nodiscard]] bool append(const QByteArray &bytes)
    {
        const char *next = bytes.constData();
        const char *const end = next + bytes.size();
        while (next < end) {
            const ssize_t written = ::write(file.get(), next, size_t(end - next));
            if (written < 0 && errno != EINTR) {
                return false;
            }
            next += std::max<ssize_t>(written, 0);
        }
        size += bytes.size();
        return true;
    }
    //! Gives all files their names, the last one being the newest.
    [[nodiscard]] bool publish(int folder)
    {
        if (!endFile()) {
            return false;
        }
        const std::time_t now = std::time(nullptr);
        for (int i = 0; i < count; ++i) {
            const int index = count - 1 - i;
            const struct timespec times[] = {{now - index, 0}, {now - index, 0}};
            const QByteArray published = QFile::encodeName(LogFormat::fileName(index));
            if (::utimensat(directory.get(), name(i).constData(), times, 0) != 0
                || ::renameat(directory.get(), name(i).constData(), folder, published.constData())
                    != 0) {
                return false;
            }
        }
        return ::fsync(folder) == 0;
    }

private:
    [[nodiscard]] static QByteArray name(int index) { return QByteArray::number(index); }
    [[nodiscard]] bool endFile() const { return !file.isOpen() || ::fsync(file.get()) == 0; }

    QByteArray path;
    Archive::Descriptor directory;
    Archive::Descriptor file;
    qint64 size = 0; //!< of the file
    int count = 0;
};

//! Reads pieces of a folder's files.
class Input
{
public:
    //! Both must outlive this.
    Input(const QString &path, const std::vector<Archive::ListedFile> &listedFiles)
        : folder(Archive::openFolder(path))
        , files(listedFiles)
        , current(listedFiles.size())
    {
    }

    //! Into bytes; false where they are not there any more.
    [[nodiscard]] bool read(size_t index, qint64 begin, qint64 end)
    {
        if (current != index) {
            int error = 0; // without a file nothing is read
            file = Archive::openListed(folder.get(), files[index], error);
            current = index;
        }
        return file && file->read(begin, end, bytes);
    }

    QByteArray bytes;

private:
    Archive::Descriptor folder;
    const std::vector<Archive::ListedFile> &files;
    std::shared_ptr<const Archive::FileBytes> file;
    size_t current; //!< index of the file; none at first
};

} // namespace

CleanSet::CleanSet(QString sourceFolder, QString targetFolderPath)
    : source(std::move(sourceFolder))
    , target(std::move(targetFolderPath))
{
}

CleanSet::Refusal CleanSet::prepare()
{
    targetFolder = Archive::openFolder(target);
    const bool isMissing = !targetFolder.isOpen() && errno == ENOENT;
    QString existing = target;
    while (isMissing && existing.size() > 1 && existing.endsWith(QLatin1Char('/'))) {
        existing.chop(1);
    }
    const Archive::Descriptor reach
        = Archive::openFolder(isMissing ? QFileInfo(existing).path() : target);
    if (!reach.isOpen()) {
        return {unwritable(), false};
    }
    if (isWithin(reach, Archive::openFolder(source))) {
        return {QStringLiteral("%1: lies in the folder that is read; name another one with -O")
                    .arg(target),
                true};
    }
    if (isMissing) {
        if (::mkdir(QFile::encodeName(existing).constData(), 0755) != 0) {
            return {unwritable(), false};
        }
        targetFolder = Archive::openFolder(target);
    }
    // Whatever bears such a name, the daemon would take it for a file of the set.
    const QStringList taken = QDir(target).entryList(
        {LogFormat::readerNamePattern()}, QDir::AllEntries | QDir::Hidden | QDir::System);
    if (!taken.isEmpty()) {
        return {QStringLiteral(
                    "%1: there are log files already, such as %2; name another folder with -O")
                    .arg(target, taken.first()),
                false};
    }
    return {};
}

bool CleanSet::Bundle::isLongRecord() const
{
    return records == 1 && isLong(end - begin);
}

void CleanSet::add(const Archive::Place &place, quint64 logNr)
{
    const size_t file = files.size() - 1;
    if (!bundles.empty()) {
        Bundle &bundle = bundles.back();
        const bool mayGap = bundles.size() >= mostSplit;
        if (bundle.file == file && bundle.end == place.offset && logNr > bundle.last
            && (mayGap || logNr == bundle.last + 1) && bundle.end - bundle.begin <= bundleSize
            && !isLong(place.length)) {
            bundle.end = place.end();
            bundle.last = logNr;
            ++bundle.records;
            return;
        }
    }
    bundles.push_back({file, place.offset, place.end(), logNr, logNr, 1});
}

//! Whether a bundle stood behind a lane's end already.
bool CleanSet::goesOn(const Lane &lane, const Bundle &bundle) const
{
    const Bundle &end = bundles[lane.back()];
    return end.file == bundle.file && end.end == bundle.begin;
}

CleanSet::Lane *CleanSet::bestLane(std::vector<Lane> &found, const Bundle &bundle) const
{
    Lane *best = nullptr;
    for (Lane &lane : found) {
        if (bundles[lane.back()].last >= bundle.first) {
            continue;
        }
        // Where numbers began again, the later run is the one that goes on.
        const auto rank = [&](const Lane &each) {
            const quint64 last = bundles[each.back()].last;
            return std::make_tuple(last + 1 == bundle.first, goesOn(each, bundle), last,
                                   each.back());
        };
        if (!best || rank(lane) > rank(*best)) {
            best = &lane;
        }
    }
    return best;
}

std::vector<CleanSet::Lane> CleanSet::lanes() const
{
    std::vector<size_t> order(bundles.size());
    std::iota(order.begin(), order.end(), size_t(0));
    std::stable_sort(order.begin(), order.end(), [this](size_t left, size_t right) {
        return bundles[left].first < bundles[right].first;
    });
    std::vector<Lane> found;
    for (const size_t index : order) {
        Lane *lane = bestLane(found, bundles[index]);
        if (!lane && found.size() < mostLanes) {
            found.emplace_back();
            lane = &found.back();
        }
        (lane ? *lane : found.back()).push_back(index);
    }
    std::sort(found.begin(), found.end(),
              [](const Lane &left, const Lane &right) { return left.back() < right.back(); });
    return found;
}

QString CleanSet::unwritable() const
{
    const int error = errno;
    const bool isFull = error == ENOSPC || error == EDQUOT;
    return QStringLiteral("%1: cannot be written to: %2; %3name another folder with -O")
        .arg(target, Messages::errorText(error),
             isFull ? QStringLiteral("make space, or ") : QString());
}

CleanSet::Result CleanSet::write(const Interruption &interruption)
{
    Result result;
    Workshop workshop(target);
    if (!workshop.isOpen()) {
        result.failure = unwritable();
        return result;
    }
    Input input(source, files);
    for (const Lane &lane : lanes()) {
        bool isNewFile = true;
        quint64 last = 0;
        for (const size_t index : lane) {
            interruption.check();
            const Bundle &bundle = bundles[index];
            if (!input.read(bundle.file, bundle.begin, bundle.end)) {
                result.failure = QStringLiteral("%1: has changed while it was read; run this again")
                                     .arg(Messages::filePath(source, files[bundle.file].index));
                return result;
            }
            isNewFile = isNewFile || workshop.isFileFull() || bundle.first <= last
                || bundle.isLongRecord();
            if ((isNewFile && !workshop.nextFile()) || !workshop.append(input.bytes)) {
                result.failure = unwritable();
                return result;
            }
            isNewFile = false;
            last = bundle.last;
            result.records += bundle.records;
        }
    }
    if (!workshop.publish(targetFolder.get())) {
        result.failure = unwritable();
    }
    result.files = workshop.fileCount();
    return result;
}

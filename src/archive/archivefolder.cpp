// SPDX-License-Identifier: Apache-2.0
#include "archive/archivefolder.h"

#include "archive/daemonwalk.h"
#include "archive/filescan.h"
#include "logformat/bytesource.h"
#include "logformat/storedvalue.h"

#include <QThread>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include <ctime>

namespace Archive
{
namespace
{

//! Shows pieces to a visitor: what is lost in several pieces as one.
class Presenter
{
public:
    Presenter(int fileIndex, Visitor &shown)
        : file(fileIndex)
        , visitor(shown)
    {
    }

    //! \a walked are the positions among them of the daemon's own walk; null: it finds all.
    void show(const Pieces &found, const std::vector<qint64> *walked)
    {
        auto position = walked ? walked->rbegin() : std::vector<qint64>::const_reverse_iterator();
        for (const Piece &piece : found.pieces) {
            if (!piece.isRecord) {
                addLost(piece);
                continue;
            }
            flush();
            Record record = recordIn(found.bytesOf(piece));
            record.state = piece.state;
            record.fault = piece.fault;
            if (walked) {
                while (position != walked->rend() && *position < piece.begin) {
                    ++position;
                }
                record.isReadByDaemon = position != walked->rend() && *position == piece.begin;
            }
            readByDaemon += record.isReadByDaemon && piece.state != State::Damaged ? 1 : 0;
            visitor.record({file, piece.begin, piece.end - piece.begin}, record);
        }
    }

    void flush()
    {
        if (lost.length > 0) {
            visitor.lost(lost, reason);
            lost.length = 0;
        }
    }

    [[nodiscard]] quint64 readCount() const { return readByDaemon; }

private:
    void addLost(const Piece &piece)
    {
        if (lost.length == 0) {
            lost = {file, piece.begin, 0};
            reason = piece.fault;
        } else if (reason != piece.fault) {
            reason = Fault::Unknown; // it begins as one thing and goes on as another
        }
        lost.length = piece.end - lost.offset;
    }

    int file;
    Visitor &visitor;
    Place lost;
    Fault reason = Fault::Unknown;
    quint64 readByDaemon = 0;
};

bool endsWithRecord(const FileBytes &file, qint64 size)
{
    QByteArray tail;
    const qint64 begin = std::max<qint64>(size - FileScan::windowSize, 0);
    return file.read(begin, size, tail) && lastRecord({tail.constData(), size_t(tail.size())}) >= 0;
}

//! Within the last seconds, or in the future, where the clock was set back.
bool isRecentlyModified(const FileBytes &file)
{
    constexpr time_t recently = 10; // seconds
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec - file.status().st_mtim.tv_sec <= recently;
}

/*!
 * The size of a file that a daemon may be appending to. Of a write in progress a part may
 * be seen already, some pages of it; it shows as a torn end that is gone a moment later.
 * One that stays is damage.
 */
qint64 settledSize(const FileBytes &file)
{
    constexpr int patience = 1000; // milliseconds; a write takes one, but a disk may be busy
    qint64 size = file.status().st_size;
    for (int waited = 0;
         waited < patience && size > 0 && isRecentlyModified(file) && !endsWithRecord(file, size);
         ++waited) {
        QThread::msleep(1);
        size = file.status().st_size;
    }
    return size;
}

} // namespace

Record recordIn(std::string_view bytes)
{
    Record record;
    record.bytes = bytes;
    ByteSource in(bytes);
    record.head = LogFormat::readHead(in, 0);
    const StoredValue path = LogFormat::readValue(in, ArgumentType::String);
    const qint64 end = qint64(bytes.size()) - LogFormat::trailerSize - 1;
    if (path.isWhole() && in.position() <= end) {
        record.path = path.bytes;
        record.values = bytes.substr(size_t(in.position()), size_t(end - in.position()));
    }
    return record;
}

Visitor::~Visitor() = default;

void Visitor::beginFile(int /*file*/, qint64 /*size*/)
{
}

void Visitor::endFile(const FileResult & /*result*/)
{
}

Folder::Folder(QString path, const SystemeventCatalogue *catalogue)
    : folderPath(std::move(path))
    , types(eventTypes(catalogue))
{
}

bool Folder::open(Writers writers)
{
    others = writers;
    const Descriptor folder = openFolder(folderPath);
    std::optional<Listing> found;
    if (folder.isOpen()) {
        found = listFolder(folder.get());
    }
    const bool isListed = found.has_value();
    listing = std::move(found).value_or(Listing());
    return isListed;
}

bool Folder::visit(Visitor &visitor) const
{
    bool isComplete = true;
    for (const ListedFile &file : listing.files) {
        isComplete = visit(file, visitor) && isComplete;
    }
    return isComplete;
}

OpenFile Folder::openFile(const ListedFile &file) const
{
    OpenFile opened;
    const Descriptor folder = openFolder(folderPath);
    if (folder.isOpen() || file.bytes) {
        opened.bytes = openListed(folder.get(), file, opened.error);
    } else {
        opened.error = errno;
    }
    if (opened.bytes) {
        const bool maySettle = file.index == 0 && others == Writers::Possible;
        opened.size
            = maySettle ? settledSize(*opened.bytes) : qint64(opened.bytes->status().st_size);
    }
    return opened;
}

bool Folder::visit(const ListedFile &file, Visitor &visitor) const
{
    const OpenFile opened = openFile(file);
    if (opened.bytes) {
        return visit(file.index, *opened.bytes, opened.size, visitor);
    }
    FileResult result;
    result.file = file.index;
    result.error = opened.error;
    result.isGone = result.error == 0;
    visitor.endFile(result);
    return result.isGone;
}

bool Folder::visit(int file, const FileBytes &bytes, qint64 size, Visitor &visitor) const
{
    FileResult result;
    result.file = file;
    result.size = size;
    visitor.beginFile(file, size);
    FileScan scan(bytes, result.size, types);
    Presenter presenter(file, visitor);
    std::optional<DaemonWalk> walk;
    const bool isRead = scan.run([&](const Pieces &found) {
        if (scan.isReadByDaemon() || found.pieces.empty()) {
            presenter.show(found, nullptr);
            return;
        }
        if (!walk) {
            walk.emplace(bytes, result.size);
        }
        const std::vector<qint64> positions
            = walk->positions(found.pieces.front().begin, found.pieces.back().end);
        presenter.show(found, &positions);
    });
    result.error = isRead ? 0 : errno;
    presenter.flush();
    result.readByDaemon = presenter.readCount();
    visitor.endFile(result);
    return isRead;
}

} // namespace Archive

// SPDX-License-Identifier: Apache-2.0
#include "ctl/emittedrecord.h"

#include "archive/archivefolder.h"
#include "logformat/encoding.h"

#include <chrono>
#include <thread>
#include <utility>

namespace
{

qint64 now()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

//! What is looked for, and whether it or anything before it has been seen.
class Search : public Archive::Visitor
{
public:
    Search(qint32 event, const QByteArray &emitter, const QByteArray &values)
        : eventId(event)
        , path(emitter)
        , bytes(values)
    {
    }

    void within(qint64 from, qint64 to)
    {
        begin = from;
        end = to;
    }
    void record(const Archive::Place & /*place*/, const Archive::Record &record) override
    {
        constexpr qint64 microsecondsPerSecond = 1000000;
        const LogFormat::RecordHead &head = record.head;
        const qint64 time = qint64(head.seconds) * microsecondsPerSecond + head.microseconds;
        hasOlder = hasOlder || time < begin;
        if (!number && head.eventId == eventId && time >= begin && time <= end
            && record.path == view(path) && record.values == view(bytes)) {
            number = head.logNr;
        }
    }
    void lost(const Archive::Place & /*place*/, Archive::Fault /*reason*/) override { }

    std::optional<quint64> number;
    bool hasOlder = false;

private:
    static std::string_view view(const QByteArray &content)
    {
        return {content.constData(), size_t(content.size())};
    }

    qint32 eventId;
    const QByteArray &path;
    const QByteArray &bytes;
    qint64 begin = 0;
    qint64 end = 0;
};

//! The newest file first, as far back as the record can be.
void searchFolder(Archive::Folder &folder, Search &search)
{
    if (!folder.open()) {
        return;
    }
    const auto &files = folder.files();
    for (auto file = files.rbegin(); file != files.rend() && !search.number && !search.hasOlder;
         ++file) {
        (void)folder.visit(*file, search);
    }
}

} // namespace

EmittedRecord::EmittedRecord(qint32 event, QByteArray emitter, const std::vector<BusValue> &values)
    : eventId(event)
    , path(std::move(emitter))
{
    for (const BusValue &value : values) {
        (void)LogFormat::appendValue(bytes, outputValue(value)); // some leave nothing
    }
}

qint64 EmittedRecord::size() const
{
    constexpr qint64 pathLength = 2;
    constexpr qint64 endMark = 1;
    return LogFormat::valuesOffset + pathLength + path.size() + bytes.size() + endMark;
}

void EmittedRecord::takeBegin()
{
    begin = now();
}

void EmittedRecord::takeEnd()
{
    end = now();
}

std::optional<quint64> EmittedRecord::waitFor(const QString &folder) const
{
    constexpr std::chrono::milliseconds pause(100);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(patience);
    Search search(eventId, path, bytes);
    search.within(begin, end);
    Archive::Folder log(folder);
    searchFolder(log, search);
    while (!search.number && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(pause);
        search.hasOlder = false;
        searchFolder(log, search);
    }
    return search.number;
}

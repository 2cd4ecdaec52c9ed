// SPDX-License-Identifier: Apache-2.0
#include "ctl/eventkinds.h"

#include "ctl/jsonobject.h"
#include "logformat/logformat.h"

#include <algorithm>
#include <utility>

namespace
{

//! Reads a record, and behind its end what follows it in its file.
class RecordSource
{
public:
    RecordSource(std::string_view record, qint64 recordOffset, const Archive::FileBytes &logFile)
        : bytes(record)
        , offset(recordOffset)
        , file(logFile)
    {
    }

    [[nodiscard]] qint64 position() const { return place; }
    void seek(qint64 position) { place = position; }
    //! The next bytes, up to \a count; valid until the next call.
    std::string_view take(qint64 count)
    {
        const qint64 begin = std::exchange(place, place + count);
        if (begin + count <= qint64(bytes.size())) {
            return bytes.substr(size_t(begin), size_t(count));
        }
        return takeFromFile(begin, count);
    }
    qint64 read(char *out, qint64 count)
    {
        const std::string_view found = take(count);
        std::copy(found.begin(), found.end(), out);
        return qint64(found.size());
    }

private:
    std::string_view takeFromFile(qint64 begin, qint64 count)
    {
        const qint64 size = qint64(file.status().st_size) - offset;
        const qint64 end = std::min(begin + count, size);
        place = std::max(begin, end);
        if (end <= begin || !file.read(offset + begin, offset + end, behind)) {
            return {};
        }
        return {behind.constData(), size_t(behind.size())};
    }

    std::string_view bytes;
    qint64 offset;
    const Archive::FileBytes &file;
    qint64 place = 0;
    QByteArray behind;
};

ArgumentKind kindOf(const SystemeventArgument &argument, const SystemeventCatalogue &catalogue)
{
    ArgumentKind kind;
    kind.type = argument.type;
    JsonObject members(kind.members);
    members.add("name", argument.name).add("type", typeName(argument.type));
    if (argument.type == ArgumentType::Enum) {
        const QHash<int, QString> items = catalogue.enums.value(argument.enumName);
        for (int value = 0; value < 256; ++value) { // what is stored has one byte
            const auto item = items.constFind(value);
            if (item != items.constEnd()) {
                kind.items.emplace(value, item->toStdString());
            }
        }
    }
    return kind;
}

std::string jsonMembers(const SystemeventDescription &event)
{
    std::string object;
    JsonObject members(object);
    members.add("name", event.name)
        .add("service", event.service)
        .add("level", event.logLevelName)
        .addNumber("levelNumber", event.logLevel);
    return object.substr(1); // without the brace
}

} // namespace

EventKinds::EventKinds(const SystemeventCatalogue *systemevents, QString language)
    : catalogue(systemevents)
    , lang(std::move(language))
{
}

const EventKind *EventKinds::find(qint32 eventId)
{
    const auto known = kinds.find(eventId);
    if (known != kinds.end()) {
        return &known->second;
    }
    if (!catalogue) {
        return nullptr;
    }
    const auto event = catalogue->events.constFind(uint(eventId));
    if (event == catalogue->events.constEnd()) {
        return nullptr;
    }
    EventKind kind{&*event,
                   StoredMessage(*event, *catalogue, lang),
                   event->name.toStdString(),
                   event->service.toStdString(),
                   event->logLevelName.toStdString(),
                   jsonMembers(*event),
                   {}};
    for (const SystemeventArgument &argument : event->arguments) {
        kind.arguments.push_back(kindOf(argument, *catalogue));
    }
    return &kinds.emplace(eventId, std::move(kind)).first->second;
}

void EventKinds::appendMessage(std::string &out, const EventKind &kind, const RecordView &record,
                               const Archive::FileBytes &file)
{
    RecordSource source(record.bytes, record.place.offset, file);
    source.seek(LogFormat::valuesOffset);
    (void)LogFormat::readValue(source, ArgumentType::String); // the path
    kind.message.append(out, source, values, workLeft);
}

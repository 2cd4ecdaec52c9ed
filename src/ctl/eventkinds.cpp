// SPDX-License-Identifier: Apache-2.0
#include "ctl/eventkinds.h"

#include "ctl/declaredevents.h"
#include "ctl/jsonobject.h"
#include "ctl/recordsource.h"
#include "logformat/logformat.h"

#include <utility>

namespace
{

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
    DeclaredEvents::addMembers(members, event);
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

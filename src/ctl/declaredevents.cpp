// SPDX-License-Identifier: Apache-2.0
#include "ctl/declaredevents.h"

#include "ctl/jsonobject.h"

#include <QStringList>

#include <algorithm>
#include <limits>

namespace DeclaredEvents
{

std::optional<qint32> idOf(const QString &typed)
{
    constexpr qint64 highest = std::numeric_limits<quint32>::max(); // a catalogue's for -1
    bool isNumber = false;
    const qint64 id = typed.toLongLong(&isNumber);
    return isNumber && id >= std::numeric_limits<qint32>::min() && id <= highest
        ? std::optional<qint32>(qint32(quint32(id)))
        : std::nullopt;
}

std::vector<const SystemeventDescription *> all(const SystemeventCatalogue &catalogue)
{
    std::vector<const SystemeventDescription *> sorted;
    for (const SystemeventDescription &event : catalogue.events) {
        sorted.push_back(&event);
    }
    std::sort(sorted.begin(), sorted.end(),
              [](const auto *one, const auto *other) { return one->id < other->id; });
    return sorted;
}

std::vector<const SystemeventDescription *> find(const SystemeventCatalogue &catalogue,
                                                 const QString &typed)
{
    if (const std::optional<qint32> id = idOf(typed)) {
        const auto known = catalogue.events.constFind(uint(*id));
        if (known != catalogue.events.constEnd()) {
            return {&*known};
        }
    }
    std::vector<const SystemeventDescription *> found = all(catalogue);
    found.erase(std::remove_if(found.begin(), found.end(),
                               [&typed](const auto *event) { return event->name != typed; }),
                found.end());
    return found;
}

QList<int> sortedValues(const QHash<int, QString> &items)
{
    QList<int> values = items.keys();
    std::sort(values.begin(), values.end());
    return values;
}

QString argumentsText(const SystemeventDescription &event, const SystemeventCatalogue *catalogue)
{
    QStringList arguments;
    for (const SystemeventArgument &argument : event.arguments) {
        const bool isEnum = argument.type == ArgumentType::Enum;
        QString text = typeName(argument.type)
            + (isEnum ? QLatin1Char(' ') + argument.enumName : QString()) + QLatin1Char(' ')
            + argument.name;
        if (isEnum && catalogue) {
            const QHash<int, QString> items = catalogue->enums.value(argument.enumName);
            QStringList shown;
            for (const int value : sortedValues(items)) {
                shown.append(QString::number(value) + QLatin1Char(' ') + items.value(value));
            }
            text += QLatin1String(" (") + shown.join(QLatin1String(", ")) + QLatin1Char(')');
        }
        arguments.append(text);
    }
    return arguments.join(QLatin1String(", "));
}

void addMembers(JsonObject &object, const SystemeventDescription &event)
{
    object.add("name", event.name)
        .add("service", event.service)
        .add("level", event.logLevelName)
        .addNumber("levelNumber", event.logLevel);
}

} // namespace DeclaredEvents

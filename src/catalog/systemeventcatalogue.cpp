// SPDX-License-Identifier: Apache-2.0
#include "catalog/systemeventcatalogue.h"

#include <QFile>
#include <QXmlStreamReader>

#include <optional>

namespace
{

constexpr QLatin1String levelsEnum("LogLevel");

/*!
 * Walks the start elements of a document in order, at any depth, and attaches
 * each to the service, event or enumeration that came last before it. Nesting
 * is not looked at.
 */
class CatalogueWalk
{
public:
    CatalogueWalk(QIODevice *device, SystemeventCatalogue &target)
        : xml(device)
        , catalogue(target)
    {
    }

    void run()
    {
        while (!xml.atEnd()) {
            if (xml.readNextStartElement()) {
                startElement();
            }
        }
    }

    //! The values of the enumeration of levels, in the order of its items.
    [[nodiscard]] const QList<int> &levelValues() const { return levels; }

private:
    void startElement()
    {
        const auto name = xml.name();
        if (name == QLatin1String("service")) {
            startService();
        } else if (name == QLatin1String("event")) {
            startEvent();
        } else if (name == QLatin1String("description")) {
            readDescription();
        } else if (name == QLatin1String("argument")) {
            readArgument();
        } else if (name == QLatin1String("enum")) {
            startEnum();
        } else if (name == QLatin1String("item")) {
            readItem();
        }
    }

    [[nodiscard]] QString attribute(const char *name) const
    {
        return xml.attributes().value(QLatin1String(name)).toString();
    }

    void startService()
    {
        if (xml.attributes().hasAttribute(QLatin1String("name"))) {
            service = attribute("name");
        }
    }

    void startEvent()
    {
        const uint id = eventIdFromText(attribute("id"));
        catalogue.events.insert(id, {id, attribute("name"), attribute("loglevel"), service});
        currentEvent = id;
    }

    void readDescription()
    {
        const QString lang = attribute("lang");
        const QString text = xml.readElementText(); // at an error: what was read before it
        if (currentEvent) {
            catalogue.events[*currentEvent].descriptions.insert(lang, text);
        }
    }

    void readArgument()
    {
        if (!currentEvent) {
            return;
        }
        SystemeventArgument argument(attribute("name"), typeFromName(attribute("type")));
        if (argument.type == ArgumentType::Enum) {
            argument.enumName = attribute("enum");
        }
        catalogue.events[*currentEvent].arguments.append(argument);
    }

    void startEnum()
    {
        currentEnum = attribute("name");
        catalogue.enums.insert(*currentEnum, {});
        if (*currentEnum == levelsEnum) {
            levels.clear();
        }
    }

    void readItem()
    {
        if (!currentEnum) {
            return;
        }
        const int value = attribute("value").toInt();
        catalogue.enums[*currentEnum].insert(value, attribute("name"));
        if (*currentEnum == levelsEnum) {
            levels.append(value);
        }
    }

    QXmlStreamReader xml;
    SystemeventCatalogue &catalogue;
    QString service;
    std::optional<uint> currentEvent;
    std::optional<QString> currentEnum;
    QList<int> levels;
};

} // namespace

uint eventIdFromText(const QString &text)
{
    uint id = 0;
    for (const QChar character : text) {
        const int digit = character.digitValue();
        if (digit < 0) {
            return 0;
        }
        id = id * 10 + uint(digit);
    }
    return id;
}

bool SystemeventCatalogue::load(const QString &fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    CatalogueWalk walk(&file, *this);
    walk.run();
    resolveLogLevels(walk.levelValues());
    return true;
}

//! Of items with one text the last counts: a table of items alone has lost their order.
void SystemeventCatalogue::resolveLogLevels(const QList<int> &values)
{
    const auto levels = enums.constFind(levelsEnum);
    if (levels == enums.constEnd()) {
        return;
    }
    for (const int value : values) {
        logLevels.insert(levels->value(value), value);
    }
    for (SystemeventDescription &event : events) {
        event.logLevel = logLevelForName(event.logLevelName);
    }
}

int SystemeventCatalogue::logLevelForName(const QString &name) const
{
    return logLevels.value(name, unknownLogLevel);
}

QString SystemeventCatalogue::enumText(const QString &enumName, int value) const
{
    return enums.value(enumName).value(value);
}

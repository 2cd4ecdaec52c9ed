// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "ctl/cataloguedocument.h"
#include "support/literals.h"

//! Compares what the tool reads of a catalogue with what the daemon loads of it.
namespace DocumentCompare
{

//! What a loader has of a document in the end: of what comes again the last.
inline SystemeventCatalogue loadedOf(const CatalogueDocument &document)
{
    SystemeventCatalogue catalogue;
    for (const CatalogueDocument::Enum &each : document.enums) {
        QHash<int, QString> items;
        for (const CatalogueDocument::Item &item : each.items) {
            items.insert(item.value, item.name);
        }
        catalogue.enums.insert(each.name, items);
    }
    catalogue.logLevels = document.levels();
    for (const CatalogueDocument::Event &each : document.events) {
        SystemeventDescription event(each.id, each.name, each.level, each.service);
        event.logLevel = catalogue.logLevels.value(each.level, unknownLogLevel);
        for (const CatalogueDocument::Argument &argument : each.arguments) {
            event.arguments.append({argument.name, argument.type});
            if (argument.type == ArgumentType::Enum) {
                event.arguments.last().enumName = argument.enumName;
            }
        }
        for (const CatalogueDocument::Text &text : each.texts) {
            event.descriptions.insert(text.lang, text.text);
        }
        catalogue.events.insert(each.id, event);
    }
    return catalogue;
}

inline bool isSame(const SystemeventArgument &one, const SystemeventArgument &other)
{
    return one.name == other.name && one.type == other.type && one.enumName == other.enumName;
}

inline bool isSame(const SystemeventDescription &one, const SystemeventDescription &other)
{
    bool isSameSoFar = one.id == other.id && one.name == other.name
        && one.logLevelName == other.logLevelName && one.logLevel == other.logLevel
        && one.service == other.service && one.descriptions == other.descriptions
        && one.arguments.size() == other.arguments.size();
    for (int i = 0; isSameSoFar && i < int(one.arguments.size()); ++i) {
        isSameSoFar = isSame(one.arguments.at(i), other.arguments.at(i));
    }
    return isSameSoFar;
}

//! The first difference; empty where there is none.
inline QString difference(const CatalogueDocument &document, const SystemeventCatalogue &loaded)
{
    const SystemeventCatalogue read = loadedOf(document);
    if (read.enums != loaded.enums || read.logLevels != loaded.logLevels) {
        return "the enumerations differ"_s;
    }
    if (read.events.size() != loaded.events.size()) {
        return "%1 events are read and %2 loaded"_s.arg(read.events.size())
            .arg(loaded.events.size());
    }
    for (const SystemeventDescription &event : loaded.events) {
        if (!isSame(read.events.value(event.id), event)) {
            return "event %1 differs"_s.arg(event.id);
        }
    }
    return {};
}

} // namespace DocumentCompare

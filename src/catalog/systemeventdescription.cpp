// SPDX-License-Identifier: Apache-2.0
#include "catalog/systemeventdescription.h"

#include <utility>

SystemeventDescription::SystemeventDescription(uint eventId, QString eventName, QString levelName,
                                               QString serviceName)
    : id(eventId)
    , name(std::move(eventName))
    , logLevelName(std::move(levelName))
    , service(std::move(serviceName))
{
}

QString SystemeventDescription::description(const QString &lang) const
{
    const QString fallback = QStringLiteral("en");
    for (const QString &candidate : {lang, fallback}) {
        const auto found = descriptions.constFind(candidate);
        if (found != descriptions.constEnd()) {
            return *found;
        }
    }
    return QStringLiteral("Meta-Error: Id:%1 No log description found, this should not happen!")
        .arg(id);
}

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventargument.h"

#include <QHash>
#include <QList>
#include <QString>

//! Level of an event whose level name the catalogue does not define.
constexpr int unknownLogLevel = 7;

//! One event kind of the catalogue.
struct SystemeventDescription {
    SystemeventDescription() = default;
    SystemeventDescription(uint eventId, QString eventName, QString levelName, QString serviceName);

    /*!
     * The text template in a language (an exact, case-sensitive code such as
     * "en"); without one the English template; without that a text that says
     * so and names the event id.
     */
    [[nodiscard]] QString description(const QString &lang) const;

    uint id = 0;
    QString name;
    QString logLevelName; //!< as written in the catalogue
    int logLevel = unknownLogLevel;
    QString service;                      //!< the service whose element last stood before the event
    QList<SystemeventArgument> arguments; //!< in the order of placeholders: the first fills "%1"
    QHash<QString, QString> descriptions; //!< text templates by language code
};

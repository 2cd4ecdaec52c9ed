// SPDX-License-Identifier: Apache-2.0
#include "configservice.h"

#include <algorithm>

namespace
{

bool hasName(const QString &key)
{
    const auto isSlash = [](QChar character) { return character == QLatin1Char('/'); };
    return !std::all_of(key.cbegin(), key.cend(), isSlash);
}

} // namespace

ConfigService::ConfigService(const QString &fileName, QObject *parent)
    : QObject(parent)
    , settings(fileName, QSettings::IniFormat)
{
}

QString ConfigService::getTrimmed(const QString &key) const
{
    return hasName(key) ? settings.value(key).toString().trimmed() : QString();
}

void ConfigService::set(const QString &key, const QString &value)
{
    if (hasName(key)) {
        settings.setValue(key, value);
    }
}

void ConfigService::save()
{
    settings.sync();
    if (settings.status() != QSettings::NoError) {
        qWarning("the settings could not be written to %s", qPrintable(settings.fileName()));
    }
}

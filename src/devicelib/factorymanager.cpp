// SPDX-License-Identifier: Apache-2.0
#include "devicelib/factorymanager.h"

#include <QList>

#include <algorithm>
#include <utility>

namespace zib
{
namespace
{

QList<const FactoryManager *> &managers()
{
    static QList<const FactoryManager *> all;
    return all;
}

} // namespace

FactoryManager::FactoryManager(QString domain, const QString &pathPattern, QObject *parent)
    : QObject(parent)
    , domainName(std::move(domain))
    , pattern(pathPattern)
{
    managers().append(this);
}

FactoryManager::~FactoryManager()
{
    managers().removeOne(this);
}

void FactoryManager::takeIntoService()
{
    inService = true;
}

bool FactoryManager::isClaimed(const QString &objectPath)
{
    const auto claims = [&objectPath](const FactoryManager *manager) {
        return manager->inService && manager->pattern.isValid()
            && manager->pattern.match(objectPath).hasMatch();
    };
    return std::any_of(managers().cbegin(), managers().cend(), claims);
}

} // namespace zib

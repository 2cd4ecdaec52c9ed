// SPDX-License-Identifier: Apache-2.0
#include "devicelib/factorymanager.h"

#include <QList>

#include <algorithm>

namespace zib
{
namespace
{

QList<QRegularExpression> &claims()
{
    static QList<QRegularExpression> all;
    return all;
}

} // namespace

FactoryManager::FactoryManager(const QString &domain, const QString &pathPattern, QObject *parent)
    : QObject(parent)
    , pattern(pathPattern)
{
    Q_UNUSED(domain);
}

void FactoryManager::takeIntoService()
{
    claims().append(pattern);
}

bool FactoryManager::isClaimed(const QString &objectPath)
{
    return std::any_of(claims().cbegin(), claims().cend(),
                       [&objectPath](const QRegularExpression &claim) {
                           return claim.match(objectPath).hasMatch();
                       });
}

} // namespace zib

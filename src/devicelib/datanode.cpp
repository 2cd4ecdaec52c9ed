// SPDX-License-Identifier: Apache-2.0
#include "devicelib/datanode.h"

#include "devicelib/factorymanager.h"

#include <QDBusConnection>
#include <QtDebug>

namespace zib
{

DataNode::DataNode(const QString &parentPath, const QString &nodeName, QObject *parent)
    : QObject(parent)
    , path(parentPath + QLatin1Char('/') + nodeName)
{
}

DataNode::~DataNode() = default; // QtDBus drops an object that dies

bool DataNode::dbusRegister()
{
    if (!FactoryManager::isClaimed(path)) {
        qWarning("DataNode: nobody claims the object path %s", qPrintable(path));
    }
    return QDBusConnection::systemBus().registerObject(
        path, this, QDBusConnection::ExportAllSlots | QDBusConnection::ExportScriptableProperties);
}

void DataNode::dbusUnregister()
{
    QDBusConnection::systemBus().unregisterObject(path, QDBusConnection::UnregisterNode);
}

void DataNode::dbusUnregisterTree()
{
    QDBusConnection::systemBus().unregisterObject(path, QDBusConnection::UnregisterTree);
}

} // namespace zib

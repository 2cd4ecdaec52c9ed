// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QString>

namespace zib
{

/*!
 * One node of the process's D-Bus object tree on the system bus. A subclass's
 * public slots and scriptable properties become the node's methods and properties.
 *
 * The node leaves the bus when it is destroyed.
 */
class DataNode : public QObject
{
    Q_OBJECT
    // Every QObject has it. Declared anew, as not scriptable, it is none of the node's own.
    Q_PROPERTY(QString objectName READ objectName WRITE setObjectName SCRIPTABLE false)

public:
    //! The object path is made of \a parentPath, a slash and \a nodeName.
    DataNode(const QString &parentPath, const QString &nodeName, QObject *parent = nullptr);
    ~DataNode() override;
    Q_DISABLE_COPY_MOVE(DataNode)

    /*!
     * Exports the node; false when the bus refuses, for instance because the
     * path is taken. A path that no FactoryManager claims is exported all the
     * same, with a warning.
     */
    virtual bool dbusRegister();
    //! Takes the node off the bus; its children stay.
    virtual void dbusUnregister();
    //! Takes the node and everything below it off the bus.
    virtual void dbusUnregisterTree();

private:
    QString path;
};

} // namespace zib

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusAbstractInterface>
#include <QDBusPendingReply>
#include <QString>

namespace zib
{

/*!
 * The device's configuration service: a persistent store of texts by key.
 *
 * Every call returns at once; a reply is waited for only by whoever looks at
 * it. A missing service shows as an error in the pending reply.
 */
class BareboxConfigProxy : public QDBusAbstractInterface
{
    Q_OBJECT

public:
    BareboxConfigProxy(const QString &service, const QString &path,
                       const QDBusConnection &connection, QObject *parent = nullptr);

    //! Asks for the stored text without surrounding blanks; empty when nothing is stored.
    QDBusPendingReply<QString> getTrimmed(const QString &key);
    //! Stores a text in the service's memory.
    QDBusPendingReply<> set(const QString &key, const QString &value);
    //! Makes everything stored so far persistent.
    QDBusPendingReply<> save();
};

} // namespace zib

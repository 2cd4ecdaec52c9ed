// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "intake/outcome.h"
#include "reliability/wirebus.h"

#include <QDBusContext>
#include <QDBusServer>
#include <QDBusVariant>
#include <QObject>
#include <QSocketNotifier>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>

/*!
 * Messages on their way through libdbus and QtDBus, from bytes on a socket to a slot that
 * gets status changes.
 */
class QtRoad : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    QtRoad();
    ~QtRoad() override;
    Q_DISABLE_COPY_MOVE(QtRoad)

    //! A message, and how many descriptors travel with it.
    struct Message {
        QByteArray bytes;
        int descriptors = 0;
    };

    //! Sends whole messages, all but the last well-formed. Ends the program where that hangs.
    Outcome take(const QList<Message> &messages);

    //! Has the next messages come over a connection of their own.
    void startAnew();

public Q_SLOTS: // called by QtDBus
    void hear(int id, const QDBusVariant &payload);
    void hearMark(uint number);

private:
    void admit(QDBusConnection connection);
    void begin();

    QTemporaryDir folder;
    QDBusServer server;
    std::unique_ptr<WireBus> wire;
    std::unique_ptr<QSocketNotifier> notifier;
    QTimer patience;
    int passed; //!< a descriptor to pass
    QString connectionName;
    uint lastMark = 0;
    uint heardMark = 0;
    QStringList changes;
};

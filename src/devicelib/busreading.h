// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QTimer>

class QDBusConnection;

namespace zib
{

/*!
 * Keeps a connection to the bus reading after a flood of messages.
 *
 * libdbus keeps what it has received until it is processed, and stops reading the socket
 * while that is more than some 60 MiB. When there is room again it asks QtDBus to watch the
 * socket. QtDBus then switches its socket notifier on from the event loop's thread, although
 * the notifier belongs to QtDBus's own thread. That has no effect: the notifier says it is
 * on, and never tells of anything. The process would be deaf from then on.
 *
 * So, at most a second after the event loop has processed a message, this switches the
 * notifier off and on again in its own thread. An idle process is not woken.
 *
 * To be made on the event loop's thread, for a connection that is up and lives as long as
 * the process. Where QtDBus keeps its notifiers elsewhere than it does today, a warning says
 * that there is nothing to look after.
 */
class BusReading : public QObject
{
    Q_OBJECT

public:
    explicit BusReading(const QDBusConnection &connection);

Q_SIGNALS:
    //! Messages were processed within the last second.
    void processed();

protected:
    bool eventFilter(QObject *receiver, QEvent *event) override;

private:
    QTimer soon;
};

} // namespace zib

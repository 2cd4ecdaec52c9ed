// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QTimer>

class QDBusConnection;

namespace zib
{

/*!
 * Keeps a connection reading after a flood.
 *
 * The bus library stops reading once received messages of some 60 MiB wait to be
 * processed, so that memory stays bounded, and starts again when they have been. That
 * happens on the event loop's thread, where the binding cannot switch its socket
 * notifier on, as it belongs to another thread; the notifier then even claims to be on.
 * Without help the process would be deaf from then on. So at most a second after the
 * event loop has processed anything from another thread, the notifier is switched off
 * and on again where it lives. An idle process is not woken.
 *
 * To be made on the event loop's thread, for a connection that is up and lives as long
 * as the process.
 */
class BusReading : public QObject
{
    Q_OBJECT

public:
    explicit BusReading(const QDBusConnection &connection);

Q_SIGNALS:
    //! Comes along with it: within the last second messages were processed.
    void processed();

protected:
    bool eventFilter(QObject *receiver, QEvent *event) override;

private:
    QTimer soon;
};

} // namespace zib

// SPDX-License-Identifier: Apache-2.0
#include "app/busloss.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QSocketNotifier>
#include <QtDebug>

#include <cstdlib>

namespace
{

constexpr char message[] = "The connection to the bus is lost.";

} // namespace

BusLoss::BusLoss(QDBusConnection bus)
{
    // libdbus sends this signal to its own process.
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                SLOT(endApplication()));

    QMetaObject::invokeMethod(
        this, [this] { state->starting = false; }, Qt::QueuedConnection);
    if (const auto *const interface = bus.interface()) {
        // The connection's core and its notifiers live in QtDBus's thread.
        QMetaObject::invokeMethod(
            interface->parent(), [bus, known = state] { watch(bus, known); }, Qt::QueuedConnection);
    }
}

//! Runs in QtDBus's thread.
void BusLoss::watch(const QDBusConnection &bus, const std::shared_ptr<State> &state)
{
    const auto notifiers = bus.interface()->parent()->findChildren<QSocketNotifier *>();
    for (const QSocketNotifier *const notifier : notifiers) {
        connect(notifier, &QObject::destroyed, [state] { endProcess(*state); });
    }
    if (!bus.isConnected()) {
        endProcess(*state);
    }
}

//! Runs in QtDBus's thread.
void BusLoss::endProcess(State &state)
{
    if (state.starting && !state.reported.exchange(true)) {
        qWarning("%s", message);
        std::_Exit(EXIT_FAILURE);
    }
}

void BusLoss::endApplication()
{
    if (!state->reported.exchange(true)) {
        qWarning("%s", message);
        QCoreApplication::exit(EXIT_FAILURE);
    }
}

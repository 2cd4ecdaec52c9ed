// SPDX-License-Identifier: Apache-2.0
#include "app/busloss.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QtDebug>

#include <cstdlib>

BusLoss::BusLoss(QDBusConnection bus)
{
    // The bus library sends this signal to its own process.
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                SLOT(endApplication()));
}

void BusLoss::endApplication()
{
    qWarning("The connection to the bus is lost.");
    QCoreApplication::exit(EXIT_FAILURE);
}

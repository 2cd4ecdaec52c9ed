// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

class QDBusConnection;

/*!
 * Ends the application with status 1 when a connection to the bus is lost. The binding
 * does not connect again, so the process would go on, deaf and mute, for good; a service
 * manager starts a new one.
 */
class BusLoss : public QObject
{
    Q_OBJECT

public:
    explicit BusLoss(QDBusConnection bus);

private Q_SLOTS:
    void endApplication();
};

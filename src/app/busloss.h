// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

#include <atomic>
#include <memory>

class QDBusConnection;

/*!
 * Ends the application with status 1 when a connection to the bus is lost. QtDBus
 * does not connect again, so the process would go on, deaf and mute, for good; a service
 * manager starts a new one.
 *
 * Before the event loop runs, the process ends at once instead. Whatever waits for an
 * answer then would wait for ever: QtDBus neither passes the loss on nor ends the
 * calls that have not been answered.
 */
class BusLoss : public QObject
{
    Q_OBJECT

public:
    explicit BusLoss(QDBusConnection bus);

public Q_SLOTS:
    //! Another connection to the same bus is lost.
    void endApplication();

private:
    //! Known to QtDBus's thread too, and there as long as the connection.
    struct State {
        std::atomic<bool> starting = true;
        std::atomic<bool> reported = false;
    };

    static void watch(const QDBusConnection &bus, const std::shared_ptr<State> &state);
    static void endProcess(State &state);

    std::shared_ptr<State> state = std::make_shared<State>();
};

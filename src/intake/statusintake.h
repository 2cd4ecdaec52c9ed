// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "intake/busconnection.h"
#include "intake/callwatch.h"
#include "intake/senders.h"
#include "intake/statuschange.h"
#include "intake/waitingchanges.h"

#include <QDBusConnection>
#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

class QSocketNotifier;

/*!
 * Hears the status changes that services announce to everybody, on a connection of its own to
 * the system bus, and hands them on one by one.
 *
 * What one sender announces and calls takes effect in the order in which it was sent, although
 * calls come over QtDBus's connection (ARCHITECTURE.md says how). Changes are read ahead
 * up to WaitingChanges::limit; what comes then waits in the bus.
 *
 * Everything runs on the thread that made it, which needs an event loop.
 */
class StatusIntake : public QObject
{
    Q_OBJECT

public:
    //! Where changes go. Both are called for each, in the order of arrival.
    struct Outlet {
        //! Whether an event is of interest; else its values are not looked at.
        std::function<bool(int id)> isWanted;
        std::function<void(const StatusChange &change)> take;
    };

    //! \a callBus is the connection over which calls come, to the name that it owns.
    StatusIntake(const QDBusConnection &callBus, const QString &busName, Outlet where);
    ~StatusIntake() override;
    Q_DISABLE_COPY_MOVE(StatusIntake)

    /*!
     * Takes over, from the event loop, what is announced to everybody: the connection for calls has
     * to hear it already, and stops when this has begun, so that each change is handled once and in
     * its order. Where the bus lets no second connection in, a warning says so, and the first one
     * goes on. Whether the bus grants the subscription is not asked: one that refuses leaves
     * this deaf.
     *
     * The connection stands second in the queue for the name, by which the bus applies the
     * access rules for it to what is announced to everybody, too.
     */
    void start();
    //! Ends it. What has been read and not handed on is dropped.
    void stop();
    //! Hands on everything that has been received, for an end of the process.
    void finish();

Q_SIGNALS:
    /*!
     * The connection is lost, or brought what is no message. Everything received is handed on, and
     * what was called before it is handled. Not if the connection for calls is lost as well.
     */
    void lost();
    //! Changes or calls were handled within the last second.
    void handled();

private:
    void takeOver();
    [[nodiscard]] bool askToListen();
    void withdraw();
    void endTakeOver();
    void removeWhatWasHeard();
    [[nodiscard]] bool isListening() const { return connection.isOpen() || isLost; }
    void readSome();
    [[nodiscard]] bool mayRead() const;
    void readWhatFits();
    BusConnection::Reading readOnce();
    BusConnection::Reading readMessages();
    void take(const Wire::Head &message);
    void handOnSome();
    void handOnFirst();
    [[nodiscard]] bool mayHandOnFirst();
    [[nodiscard]] bool isBehindCall(const WaitingChanges::Change &change) const;
    void beforeCall(const MessageMark &mark);
    void afterCall(const MessageMark &mark);
    void readUpToCall();
    void askForCalls();
    void askAgain();
    void answered(const BusAnswer &answer);
    void rest();
    void lookAfterwards();
    void lose();

    std::string name;
    Outlet outlet;
    BusConnection connection;
    std::unique_ptr<QSocketNotifier> notifier;
    WaitingChanges waiting;
    Senders senders;
    std::optional<MessageMark> call; //!< that is about to be handled
    quint64 settled = 0;             //!< so many of those added may be handed on in any case
    bool isLost = false;             //!< but not told so yet

    // The first one asked over the own connection for what is waited for.
    quint32 question = 0;
    bool isAnswered = false;

    // Numbers of questions over the connection for calls, 0 where there is none.
    quint32 withdrawal = 0; //!< until it is answered, that one hears what is for everybody, too
    std::optional<MessageMark> lastHeard; //!< of that
    quint32 asked = 0;                    //!< for what has been called
    quint64 askedUpTo = 0;                //!< so many of those added are settled by the answer
    quint32 refused = 0;                  //!< where no second connection was to be had

    quint64 brought = 0;     //!< changes by the last reading
    qint64 lastTurn = 0;     //!< milliseconds that handing on took
    bool bringsMore = false; //!< than there was time for, while it took long
    QTimer again;
    QTimer begin;
    QTimer pause;
    QTimer goOn;
    QTimer soon;
    CallWatch watch; // last: gone before anything that it calls
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QObject>

#include <functional>
#include <string>

class QDBusConnection;

//! What tells messages of one sender apart.
struct MessageMark {
    QByteArray sender;
    quint32 serial = 0;          //!< as the sender counts
    bool isForEverybody = false; //!< a status change that has no destination
};

//! What the bus answers to a question.
struct BusAnswer {
    quint32 question = 0;   //!< as ask() numbered it
    bool isRefusal = false; //!< access is denied
};

/*!
 * Tells of every call and status change that comes over QtDBus's connection before and after
 * it is handled. QtDBus says neither who sent a message as which of his nor when a property
 * is written.
 *
 * QtDBus reads and hands on messages when its notifier tells of them, in its own thread, and
 * posts each to the thread of the object that it is for. Here that is done in its place,
 * message by message, through the same library, with a notice posted before and behind: so
 * the notices reach the thread of this program's objects just around the message.
 */
class CallWatch
{
public:
    //! Who is told, in the thread of \a context.
    struct Listener {
        QObject *context = nullptr;
        std::function<void(const MessageMark &)> before;
        std::function<void(const MessageMark &)> after;
        //! Of the bus's answers, in their order among the others.
        std::function<void(const BusAnswer &)> answered;
    };

    /*!
     * Tells until this is destroyed. Where QtDBus keeps its notifiers elsewhere than it does today,
     * a warning says so, and nothing is told.
     */
    CallWatch(const QDBusConnection &bus, Listener toTell);
    ~CallWatch();

    //! False where nothing is told.
    [[nodiscard]] bool isWatching() const { return pump != nullptr; }
    /*!
     * Calls a method of the bus over QtDBus's connection, with a text or without any. The
     * question's number, never 0; there may be no answer. QtDBus passes some answers on later
     * than what comes behind them.
     */
    quint32 ask(const char *method, const std::string &text = {});

    /*!
     * Has QtDBus's connection read on after a flood; to be called now and then, at the latest
     * a second after messages were handled. What was received keeps room in libdbus until then,
     * and it stops reading the socket while that is more than some 60 MiB. When there is room
     * again it asks QtDBus to watch the socket, which then switches its notifier on from the
     * thread that gave the room back, although it lives in another. That has no effect: the
     * notifier says it is on and never tells of anything, and no call would ever be heard again.
     */
    void keepReading();

    Q_DISABLE_COPY_MOVE(CallWatch)

private:
    class Pump;
    Pump *pump = nullptr; //!< lives in QtDBus's thread
    quint32 lastQuestion = 0;
};

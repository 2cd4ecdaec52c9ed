// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLatin1String>
#include <QTimer>
#include <QtGlobal>

/*!
 * As long as it lives, Qt's messages are bounded by MessageBound before they
 * go where they went. When a minute is over in which some were left out, one line for
 * each kind says how many; it comes by itself where an event loop runs, and otherwise with
 * the next message or the end of this object. A process that leaves nothing out is not woken.
 *
 * To be made after every other handler has been installed, on the thread of the event loop;
 * messages may come from any thread. One at a time.
 */
class BoundedMessages
{
public:
    BoundedMessages();
    ~BoundedMessages();
    Q_DISABLE_COPY_MOVE(BoundedMessages)

    /*!
     * Whether a message that begins so need not even be made, because it would not be
     * written now; it is counted. For messages that cost more to make than to ask for.
     */
    [[nodiscard]] static bool leaveOut(QtMsgType type, QLatin1String beginning);

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message);
    void reportWhenOver();

    QTimer reporting;
};

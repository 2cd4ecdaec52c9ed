// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QList>
#include <QObject>
#include <QVariant>

class QIODevice;

/*!
 * An output of events. The manager calls logEvent() for every status change
 * that the output is to have.
 */
class LogInterface : public QObject
{
    Q_OBJECT

public:
    LogInterface() = default;
    ~LogInterface() override;
    Q_DISABLE_COPY_MOVE(LogInterface)

    /*!
     * Logs one event. \a id is a key of the event catalogue; \a args holds the
     * D-Bus path of the emitting object as a string, then the event's values
     * with the types that the bus gave them. Nothing is reported back: an output
     * that cannot write returns silently.
     */
    virtual void logEvent(int id, const QList<QVariant> &args) = 0;

protected:
    QIODevice *device = nullptr; //!< where events go; null until a subclass opens one, not owned
    quint64 logNr = 1;           //!< number of the next event
};

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
     * D-Bus path of the emitting object as a QString, then the event's values in
     * their order, of these types:
     *
     *   bool, int, uint, qlonglong, double, QString
     *                  what a record can hold
     *   qulonglong, uchar, short, ushort, QByteArray, QStringList
     *                  what it cannot
     *   WrappedValue   a variant that the sender put in place of a value; its content is
     *                  of any type of this list
     *   other registered types
     *                  object paths, signatures, structures and further lists; of no
     *                  output's concern
     *
     * What becomes of each in a record says LogFormat::appendValue(), and in a text
     * liveValueText(). Nothing is reported back: an output that cannot write returns
     * silently.
     */
    virtual void logEvent(int id, const QList<QVariant> &args) = 0;

protected:
    QIODevice *device = nullptr; //!< where events go; null until a subclass opens one, not owned
    quint64 logNr = 1;           //!< number of the next event
};

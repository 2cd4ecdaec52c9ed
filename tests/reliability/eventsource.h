// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/device.h"

#include <QList>
#include <QString>

/*!
 * Sends events that can be told apart to a daemon whose storage is in trouble, and
 * looks at what has become of them. Event i carries i as its text, and so, as long as
 * the daemon runs, its log number.
 */
class EventSource
{
public:
    explicit EventSource(Device &target)
        : device(target)
    {
    }

    //! Sends events, and has the daemon answer again and again meanwhile.
    void send(quint64 events);
    //! Sends events and waits for nothing.
    void sendAtOnce(quint64 events);
    //! Sends events until the daemon says once more that storage has failed or recovered.
    [[nodiscard]] bool sendUntilReported();
    //! Sends events until a bundle has been written: the last one is in the file then.
    [[nodiscard]] bool sendUntilStored();

    [[nodiscard]] quint64 sent() const { return count; }
    //! After a restart, for which the daemon gives numbers of its own.
    void continueAt(quint64 next) { count = next - 1; }

private:
    void sendOne();

    Device &device;
    quint64 count = 0;
};

//! What a look at all log files found.
struct StoredEvents {
    QList<quint64> numbers; //!< the oldest first
    QString damage;         //!< what is not as it must be, empty where all is well
};

/*!
 * Reads every log file from both ends. Damage is a file with anything but whole records
 * that carry their own number as text, and numbers that do not rise.
 */
StoredEvents storedEvents();

//! How many numbers from 1 to the last are missing.
quint64 lostBefore(quint64 last, const StoredEvents &stored);

//! What was said of the storage since the start, without the rest of the line.
QStringList storageReports(const Device &device);
QString failureReport(int reason);
QString recoveryReport(quint64 lost);

//! Whether the log node answers all three reading calls, with whatever.
bool answersReaders(Device &device);

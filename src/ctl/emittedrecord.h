// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/busvalue.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

//! The record that the daemon makes of a status change.
class EmittedRecord
{
public:
    EmittedRecord(qint32 event, QByteArray emitter, const std::vector<BusValue> &values);

    //! In bytes, without its trailer. One of more than largest makes its file unreadable.
    [[nodiscard]] qint64 size() const;
    static constexpr qint64 largest = 65535;

    //! The clock as the daemon reads it: to be called before the status change is sent.
    void takeBegin();
    //! Once the daemon has it for sure.
    void takeEnd();
    /*!
     * Waits for the record in a folder of log files, for longer than the daemon keeps one to
     * itself; its number, or nothing. Another one with the same values from the same path
     * within the moment that sending took cannot be told from it.
     */
    [[nodiscard]] std::optional<quint64> waitFor(const QString &folder) const;
    static constexpr int patience = 40; //!< in seconds

private:
    qint32 eventId;
    QByteArray path;
    QByteArray bytes; //!< of the values
    qint64 begin = 0; //!< in microseconds since 1970-01-01 UTC
    qint64 end = 0;   //!< the same
};

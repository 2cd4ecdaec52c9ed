// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

//! What becomes of messages.
struct Outcome {
    bool isMalformed = false; //!< one of them is; nothing behind it is looked at
    QStringList changes;      //!< the status changes among them, each as described() has it

    bool operator==(const Outcome &other) const
    {
        return isMalformed == other.isMalformed && changes == other.changes;
    }
};

//! As long as it lives, debug messages go into what described() returns.
class MessageCollector
{
public:
    MessageCollector();
    ~MessageCollector();
    Q_DISABLE_COPY_MOVE(MessageCollector)
};

/*!
 * All that can be seen of a status change, the path of its emitter, and its values: their
 * types, what is stored of them, what a text shows of them, and what the messages do.
 */
QString described(int id, const QString &path, const QList<QVariant> &values);

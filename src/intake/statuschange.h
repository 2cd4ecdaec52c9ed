// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QList>
#include <QVariant>

//! A status change that a service has announced.
struct StatusChange {
    int id = 0; //!< the event's
    //! The path of the emitting object, then the values, as LogInterface::logEvent() takes them.
    QList<QVariant> args;
};

// SPDX-License-Identifier: Apache-2.0
#include "devicelib/busreading.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QEvent>
#include <QSocketNotifier>
#include <QtDebug>

#include <algorithm>
#include <chrono>
#include <iterator>

namespace zib
{
namespace
{

void switchOffAndOn(QSocketNotifier *notifier)
{
    notifier->setEnabled(false);
    notifier->setEnabled(true);
}

//! They are children of the connection's core, as its interface object is.
QList<QSocketNotifier *> readNotifiers(const QDBusConnection &connection)
{
    QList<QSocketNotifier *> found;
    if (const auto *const interface = connection.interface()) {
        const auto all = interface->parent()->findChildren<QSocketNotifier *>();
        std::copy_if(all.begin(), all.end(), std::back_inserter(found), [](const auto *notifier) {
            return notifier->type() == QSocketNotifier::Read;
        });
    }
    return found;
}

} // namespace

BusReading::BusReading(const QDBusConnection &connection)
{
    soon.setSingleShot(true);
    soon.setInterval(std::chrono::seconds(1));
    const auto notifiers = readNotifiers(connection);
    for (QSocketNotifier *const notifier : notifiers) {
        connect(&soon, &QTimer::timeout, notifier,
                [notifier] { switchOffAndOn(notifier); }); // runs in its thread
    }
    if (notifiers.isEmpty()) {
        qWarning("The connection to the bus has no notifier to look after.");
    }
    connect(&soon, &QTimer::timeout, this, &BusReading::processed);
    soon.start();
    QCoreApplication::instance()->installEventFilter(this);
}

bool BusReading::eventFilter(QObject *receiver, QEvent *event)
{
    // QtDBus delivers messages as calls across threads.
    if (event->type() == QEvent::MetaCall && !soon.isActive()) {
        soon.start();
    }
    return QObject::eventFilter(receiver, event);
}

} // namespace zib

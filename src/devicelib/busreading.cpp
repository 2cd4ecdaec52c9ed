// SPDX-License-Identifier: Apache-2.0
#include "devicelib/busreading.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QEvent>
#include <QSocketNotifier>

#include <chrono>

namespace zib
{
namespace
{

void switchOffAndOn(QSocketNotifier *notifier)
{
    notifier->setEnabled(false);
    notifier->setEnabled(true);
}

} // namespace

BusReading::BusReading(const QDBusConnection &connection)
{
    soon.setSingleShot(true);
    soon.setInterval(std::chrono::seconds(1));
    // The notifiers are children of the connection's core, as its interface object is.
    const QObject *const core = connection.interface()->parent();
    const auto notifiers = core->findChildren<QSocketNotifier *>();
    for (QSocketNotifier *const notifier : notifiers) {
        if (notifier->type() == QSocketNotifier::Read) {
            connect(&soon, &QTimer::timeout, notifier,
                    [notifier] { switchOffAndOn(notifier); }); // runs in its thread
        }
    }
    connect(&soon, &QTimer::timeout, this, &BusReading::processed);
    soon.start();
    QCoreApplication::instance()->installEventFilter(this);
}

bool BusReading::eventFilter(QObject *receiver, QEvent *event)
{
    // The binding delivers messages as calls across threads.
    if (event->type() == QEvent::MetaCall && !soon.isActive()) {
        soon.start();
    }
    return QObject::eventFilter(receiver, event);
}

} // namespace zib

// SPDX-License-Identifier: Apache-2.0
#include "devicelib/busreading.h"

#include <QAbstractEventDispatcher>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QSocketNotifier>

namespace zib
{
namespace
{

void switchOn(QSocketNotifier *notifier)
{
    // A look from this thread may be late by a moment; the next idle moment repeats it.
    if (!notifier->isEnabled()) {
        QMetaObject::invokeMethod(
            notifier, [notifier] { notifier->setEnabled(true); }, Qt::QueuedConnection);
    }
}

} // namespace

void keepReading(const QDBusConnection &connection)
{
    // The notifiers are children of the connection's core, as its interface object is.
    const QObject *const core = connection.interface()->parent();
    const auto notifiers = core->findChildren<QSocketNotifier *>();
    for (QSocketNotifier *const notifier : notifiers) {
        if (notifier->type() == QSocketNotifier::Read) {
            QObject::connect(QAbstractEventDispatcher::instance(),
                             &QAbstractEventDispatcher::aboutToBlock,
                             [notifier] { switchOn(notifier); });
        }
    }
}

} // namespace zib

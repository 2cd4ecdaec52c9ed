// SPDX-License-Identifier: Apache-2.0
#include "configservice.h"
#include "devicelib/constants.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QStringList>

//! demo-configservice FILE: serves the settings in FILE until it is stopped.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2) {
        qCritical("usage: demo-configservice FILE");
        return 2;
    }
    ConfigService service(arguments.at(1));

    // The object first: whoever sees the name may call at once. Its interface is
    // named here since it is a build option, which class information cannot be.
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.registerObject(zib::FwConfigGlobals::SYSTEMVARIABLES_PATH,
                            zib::FwConfigGlobals::SYSTEMVARIABLES_INTERFACE, &service,
                            QDBusConnection::ExportAllSlots)
        || !bus.registerService(zib::FwConfigGlobals::SERVICE_PATH_NAME)) {
        qCritical("cannot serve on the system bus");
        return 1;
    }
    return QCoreApplication::exec();
}

// SPDX-License-Identifier: Apache-2.0
#include "app/daemon.h"

#include "app/busloss.h"
#include "app/version.h"
#include "devicelib/constants.h"
#include "devicelib/factorymanager.h"
#include "devicelib/ziblog.h"
#include "intake/statusintake.h"
#include "manager/logmanager.h"
#include "messages/boundedmessages.h"

#include <QCoreApplication>
#include <QDBusConnection>

#include <cstdlib>
#include <memory>

#include <malloc.h>
#include <sys/resource.h>

namespace
{

//! All log files stay open while they are indexed, and logtail sets no bound to them.
void raiseOpenFilesLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        (void)setrlimit(RLIMIT_NOFILE, &limit);
    }
}

/*!
 * Has the memory that a burst of messages or a large answer took returned to the
 * system. By itself the allocator would keep blocks as large as the largest one ever
 * freed, and whatever lies between blocks still in use.
 */
void returnMemoryAfterUse(const StatusIntake &intake)
{
    constexpr int ownMapping = 128 * 1024; // the allocator's initial value, now fixed
    mallopt(M_MMAP_THRESHOLD, ownMapping);
    QObject::connect(&intake, &StatusIntake::handled, [] { malloc_trim(0); });
}

//! Answers for the paths of the daemon's nodes as long as the process lives; never deleted.
void claimObjectPaths()
{
    static auto *const factory = new zib::FactoryManager(
        zib::ConstParameter::domainForIdx(zib::ConstParameter::IDX_SYSTEM),
        QStringLiteral("^\\/system($|\\/eventlog.*)"));
    factory->takeIntoService();
}

} // namespace

int runDaemon(QCoreApplication &application)
{
    raiseOpenFilesLimit();

    const QString serviceName = zib::SystemeventloggerGlobals::SERVICE_NAME;
    QDBusConnection bus = QDBusConnection::systemBus();
    BusLoss busLoss(bus); // before anything is waited for from the bus
    const bool hadBus = bus.isConnected();
    if (!bus.registerService(serviceName)) {
        if (hadBus && !bus.isConnected()) {
            return QCoreApplication::exec(); // which hears of the loss
        }
        qFatal("Registering dbus connection failed.");
    }
    claimObjectPaths();

    auto version = std::make_unique<Version>();
    bus.registerObject(QStringLiteral("/version"), version.get(),
                       QDBusConnection::ExportScriptableProperties);

    zib::ziblog.open(serviceName, zib::Ziblog::Local5, zib::Ziblog::NoOption);
    zib::ziblog.setSyslogLevelWarning();
    const BoundedMessages boundedMessages; // in front of standard error and syslog

    LogManager logManager(QStringLiteral("/system"), QStringLiteral("eventlog"), &application);
    QObject::connect(&logManager.statusIntake(), &StatusIntake::lost, &busLoss,
                     &BusLoss::endApplication);
    returnMemoryAfterUse(logManager.statusIntake());
    logManager.DataNode::dbusRegister();

    const int result = QCoreApplication::exec();
    if (result == EXIT_FAILURE) { // by BusLoss; all that was received before it is handled
        logManager.writeReceived();
    }
    version.reset();
    return result;
}

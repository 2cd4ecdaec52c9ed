// SPDX-License-Identifier: Apache-2.0
#include "support/testbus.h"

#include "support/literals.h"

#include <QDBusPendingCallWatcher>
#include <QEventLoop>
#include <QFile>

namespace
{

constexpr int startLimit = 10000; // milliseconds

const char configuration[] = R"(<busconfig>
  <type>system</type>
  <listen>unix:path=%1/socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

} // namespace

TestBus::TestBus()
{
    QFile file(folder.filePath("bus.conf"_s));
    if (!file.open(QIODevice::WriteOnly)) {
        qFatal("cannot write the configuration of the bus");
    }
    file.write(QString::fromLatin1(configuration).arg(folder.path()).toUtf8());
    file.close();

    daemon.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    daemon.start(
        "dbus-daemon"_s,
        {"--nofork"_s, "--nosyslog"_s, "--print-address"_s, "--config-file="_s + file.fileName()});
    if (!daemon.waitForReadyRead(startLimit)) {
        qFatal("dbus-daemon does not start");
    }
    busAddress = QString::fromLatin1(daemon.readLine().trimmed());
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", busAddress.toLatin1());
}

TestBus::~TestBus()
{
    daemon.kill();
    daemon.waitForFinished();
}

QDBusMessage callAndServe(const QDBusConnection &connection, const QDBusMessage &message)
{
    const QDBusPendingCallWatcher watcher(connection.asyncCall(message, busPatience));
    QEventLoop loop;
    QObject::connect(&watcher, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
    loop.exec();
    return watcher.reply();
}

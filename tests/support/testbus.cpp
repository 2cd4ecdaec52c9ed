// SPDX-License-Identifier: Apache-2.0
#include "support/testbus.h"

#include "support/literals.h"

#include <QDBusPendingCallWatcher>
#include <QEventLoop>
#include <QSaveFile>

namespace
{

constexpr int startLimit = 10000; // milliseconds

const QString fileName = "bus.conf"_s;

const char configuration[] = R"(<busconfig>
  <type>system</type>
  <listen>unix:path=%1/socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
    %2
  </policy>
</busconfig>
)";

} // namespace

TestBus::TestBus()
{
    writeConfiguration(QString());
    daemon.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    daemon.start("dbus-daemon"_s,
                 {"--nofork"_s, "--nosyslog"_s, "--print-address"_s,
                  "--config-file="_s + folder.filePath(fileName)});
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

void TestBus::writeConfiguration(const QString &rule)
{
    // At once: the bus may read it again whenever it changes.
    QSaveFile file(folder.filePath(fileName));
    if (!file.open(QIODevice::WriteOnly)
        || file.write(QString::fromLatin1(configuration).arg(folder.path(), rule).toUtf8()) < 0
        || !file.commit()) {
        qFatal("cannot write the configuration of the bus");
    }
}

void TestBus::refuse(const QString &method)
{
    const QString theBus = "org.freedesktop.DBus"_s;
    writeConfiguration(
        method.isEmpty() ? QString()
                         : R"(<deny send_interface="%1" send_member="%2"/>)"_s.arg(theBus, method));
    const QDBusMessage reply
        = callAndServe(QDBusConnection::systemBus(),
                       QDBusMessage::createMethodCall(theBus, "/org/freedesktop/DBus"_s, theBus,
                                                      "ReloadConfig"_s));
    if (reply.type() != QDBusMessage::ReplyMessage) {
        qFatal("the bus does not take its new rules: %s", qPrintable(reply.errorMessage()));
    }
}

QDBusMessage callAndServe(const QDBusConnection &connection, const QDBusMessage &message)
{
    const QDBusPendingCallWatcher watcher(connection.asyncCall(message, busPatience));
    QEventLoop loop;
    QObject::connect(&watcher, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
    loop.exec();
    return watcher.reply();
}

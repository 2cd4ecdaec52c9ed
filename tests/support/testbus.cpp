// SPDX-License-Identifier: Apache-2.0
#include "support/testbus.h"

#include "support/literals.h"

#include <QDBusPendingCallWatcher>
#include <QEventLoop>
#include <QSaveFile>

#include <csignal>

namespace
{

constexpr int startLimit = 10000; // milliseconds

const QString fileName = "bus.conf"_s;

const QString theBus = "org.freedesktop.DBus"_s;

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
  %3
</busconfig>
)";

} // namespace

TestBus::TestBus()
{
    daemon.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    const QString broker = qEnvironmentVariable("SEL_DBUS_BROKER");
    if (broker.isEmpty()) {
        writeConfiguration();
        daemon.start("dbus-daemon"_s,
                     {"--nofork"_s, "--nosyslog"_s, "--print-address"_s,
                      "--config-file="_s + folder.filePath(fileName)});
    } else {
        daemon.start("python3"_s,
                     {qEnvironmentVariable("SEL_SOURCE_DIR") + "/tests/support/busbroker.py"_s,
                      broker, folder.filePath("socket"_s)});
    }
    if (!daemon.waitForReadyRead(startLimit)) {
        qFatal("the bus does not start");
    }
    busAddress = QString::fromLatin1(daemon.readLine().trimmed());
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", busAddress.toLatin1());
}

TestBus::~TestBus()
{
    daemon.kill();
    daemon.waitForFinished();
}

void TestBus::writeConfiguration()
{
    // At once: the bus may read it again whenever it changes.
    QSaveFile file(folder.filePath(fileName));
    if (!file.open(QIODevice::WriteOnly)
        || file.write(QString::fromLatin1(configuration).arg(folder.path(), rule, limits).toUtf8())
            < 0
        || !file.commit()) {
        qFatal("cannot write the configuration of the bus");
    }
}

void TestBus::reload()
{
    writeConfiguration();
    const QDBusMessage reply
        = callAndServe(QDBusConnection::systemBus(),
                       QDBusMessage::createMethodCall(theBus, "/org/freedesktop/DBus"_s, theBus,
                                                      "ReloadConfig"_s));
    if (reply.type() != QDBusMessage::ReplyMessage) {
        qFatal("the bus does not take its new rules: %s", qPrintable(reply.errorMessage()));
    }
}

void TestBus::refuse(const QString &method)
{
    rule = method.isEmpty()
        ? QString()
        : R"(<deny send_interface="%1" send_member="%2"/>)"_s.arg(theBus, method);
    reload();
}

void TestBus::limit(const QString &name, int most)
{
    limits = name.isEmpty() ? QString() : R"(<limit name="%1">%2</limit>)"_s.arg(name).arg(most);
    reload();
}

void TestBus::end(int signal)
{
    if (kill(pid_t(daemon.processId()), signal) != 0 || !daemon.waitForFinished()) {
        qFatal("the bus does not end");
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

// SPDX-License-Identifier: Apache-2.0
#include "support/device.h"

#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

namespace
{

constexpr int patience = busPatience;

QDBusConnection bus()
{
    return QDBusConnection::systemBus();
}

QDBusMessage methodCall(const QString &interface, const QString &method)
{
    return QDBusMessage::createMethodCall("com.tovel.systemeventlogger"_s, "/system/eventlog"_s,
                                          interface, method);
}

QVariant wrap(const QVariant &value)
{
    return QVariant::fromValue(QDBusVariant(value));
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

} // namespace

Device::Device()
{
    QDir("/srv/public"_s).removeRecursively();
    QDir("/srv"_s).mkdir("public"_s);
    writeCatalogue(catalogue());
}

Device::~Device()
{
    if (daemon) {
        stop();
    }
}

void Device::launch()
{
    run(QString::fromLocal8Bit(qgetenv("SEL_DAEMON")), {});
}

void Device::launch(const QString &redirections)
{
    run("sh"_s, {"-c"_s, "exec \"$SEL_DAEMON\" "_s + redirections});
}

void Device::run(const QString &program, const QStringList &arguments)
{
    daemon = std::make_unique<QProcess>();
    errors.open();
    errors.resize(0);
    daemon->setStandardErrorFile(errors.fileName());
    daemon->setStandardOutputFile(QProcess::nullDevice());
    daemon->start(program, arguments);
    // One that has ended already counts as started.
    if (!daemon->waitForStarted() && daemon->error() == QProcess::FailedToStart) {
        qFatal("the daemon cannot be started (is SEL_DAEMON set?): %s",
               qPrintable(daemon->errorString()));
    }
}

bool Device::start()
{
    launch();
    return QTest::qWaitFor([this] { return isServing() || !isRunning(); }, patience) && isRunning();
}

bool Device::isServing()
{
    return call("getMinLogNr"_s).type() == QDBusMessage::ReplyMessage;
}

void Device::stop()
{
    daemon->terminate();
    if (isRunning() && !daemon->waitForFinished()) {
        qFatal("the daemon does not end");
    }
}

QString Device::waitForEnd()
{
    // The configuration service must go on answering.
    if (!QTest::qWaitFor([this] { return !isRunning(); }, patience)) {
        return "still running"_s;
    }
    return daemon->exitStatus() == QProcess::CrashExit ? "abort"_s
                                                       : QString::number(daemon->exitCode());
}

QString Device::output() const
{
    // An emulator, where there is one, remarks on an abort.
    static const QRegularExpression remark("^qemu: uncaught target signal .*\n"_s,
                                           QRegularExpression::MultilineOption);
    QFile file(errors.fileName());
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).remove(remark)
                                          : QString();
}

QStringList Device::outputLines(const QString &part) const
{
    return output().split(QLatin1Char('\n')).filter(part);
}

QDBusMessage Device::call(const QString &method, const QVariantList &arguments)
{
    QDBusMessage message = methodCall("local.LogManager"_s, method);
    message.setArguments(arguments);
    return callAndServe(bus(), message);
}

void Device::callNoReply(const QString &method, const QVariantList &arguments)
{
    QDBusMessage message = methodCall("local.LogManager"_s, method);
    message.setArguments(arguments);
    bus().send(message);
}

QVariant Device::result(const QString &method, const QVariantList &arguments)
{
    const QDBusMessage reply = call(method, arguments);
    return reply.type() == QDBusMessage::ReplyMessage ? reply.arguments().value(0) : QVariant();
}

QVariant Device::property(const QString &name)
{
    QDBusMessage message = methodCall("org.freedesktop.DBus.Properties"_s, "Get"_s);
    message << "local.LogManager"_s << name;
    const QDBusMessage reply = callAndServe(bus(), message);
    return reply.arguments().value(0).value<QDBusVariant>().variant();
}

bool Device::setProperty(const QString &name, const QVariant &value)
{
    QDBusMessage message = methodCall("org.freedesktop.DBus.Properties"_s, "Set"_s);
    message << "local.LogManager"_s << name << wrap(value);
    return callAndServe(bus(), message).type() == QDBusMessage::ReplyMessage;
}

QString Device::json(const QString &lang)
{
    const QVariant all = QVariant::fromValue(~quint64(0));
    return result("jsonLogfile"_s, {quint64(0), all, lang}).toString();
}

void Device::change(const QString &path, int id, const QVariantList &values)
{
    changeRaw(path, id, values);
}

void Device::changeRaw(const QString &path, int id, const QVariant &payload)
{
    QDBusMessage signal = QDBusMessage::createSignal(path, "com.tovel.status"_s, "change"_s);
    signal << id << wrap(payload);
    bus().send(signal);
}

void Device::settle()
{
    // The bus keeps the order of one sender's messages.
    if (!isServing()) {
        qFatal("the daemon does not answer");
    }
}

bool Device::fillBundle()
{
    const auto before = logFile(0).size();
    constexpr int enough = 100; // records of 33 bytes and more in a bundle of 2560
    for (int i = 0; i < enough; ++i) {
        change("/x"_s, fillerId, {});
        settle();
        if (logFile(0).size() != before) {
            return true;
        }
    }
    return false;
}

QString Device::logPath(int index)
{
    return "/srv/public/log/zib%1.log"_s.arg(index);
}

QByteArray Device::logFile(int index)
{
    QFile file(logPath(index));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void Device::writeLogFile(int index, const QByteArray &content)
{
    if (!QDir("/"_s).mkpath("/srv/public/log"_s) || !writeFile(logPath(index), content)) {
        qFatal("cannot write a log file");
    }
}

void Device::writeCatalogue(const QByteArray &xml)
{
    if (!writeFile("/var/www/data/systemevent.xml"_s, xml)) {
        qFatal("cannot write the catalogue");
    }
}

QByteArray Device::catalogue()
{
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<systemevents>
  <enum name="LogLevel">
    <item value="3" name="error"/>
    <item value="4" name="warning"/>
    <item value="6" name="info"/>
  </enum>
  <service name="power">
    <event id="1001" name="supplyChanged" loglevel="warning">
      <argument type="bool" name="mains"/>
      <argument type="int32" name="load"/>
      <description lang="en">Supply mains %1 at %2 percent</description>
      <description lang="de">Versorgung Netz %1 bei %2 Prozent</description>
    </event>
    <event id="1002" name="message" loglevel="info">
      <argument type="string" name="text"/>
      <description lang="en">Message %1</description>
    </event>
    <event id="1003" name="failure" loglevel="error">
      <description lang="en">Failure</description>
    </event>
    <event id="1004" name="nested" loglevel="info">
      <argument type="variant" name="value"/>
      <description lang="en">Value %1 rejected</description>
    </event>
    <event id="1005" name="big" loglevel="info">
      <argument type="uint64" name="value"/>
      <description lang="en">No placeholder</description>
    </event>
    <event id="9999" name="filler">
      <description lang="en">Filler</description>
    </event>
  </service>
</systemevents>
)";
}

QByteArray runClient(const QString &program, const QStringList &arguments)
{
    QProcess client;
    client.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    client.start(program, arguments);
    const auto ended = [&client] { return client.state() == QProcess::NotRunning; };
    if (!client.waitForStarted() || !QTest::qWaitFor(ended, patience) || client.exitCode() != 0) {
        client.kill();
        client.waitForFinished();
        return {};
    }
    const QByteArray printed = client.readAllStandardOutput();
    return printed.isNull() ? QByteArray("") : printed;
}

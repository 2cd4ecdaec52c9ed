// SPDX-License-Identifier: Apache-2.0
#include "devicelib/ziblog.h"

#include <QDateTime>
#include <QLocale>

#include <cstring>
#include <ctime>

#include <paths.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace zib
{
namespace
{

//! Qt's message types as severities of syslog(3), where smaller is graver.
int severityOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return LOG_DEBUG;
    case QtInfoMsg:
        return LOG_INFO;
    case QtWarningMsg:
        return LOG_WARNING;
    case QtCriticalMsg:
        return LOG_CRIT;
    case QtFatalMsg:
        return LOG_ALERT;
    }
    return LOG_WARNING;
}

//! The process's way to the system's logger, open for as long as it lives.
int channel()
{
    static const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return descriptor;
}

/*!
 * One line to the system's logger. Not by syslog(3), which waits for a logger that has
 * stopped reading, and whoever sends bad values would thereby stop this process.
 * Sending to the path each time reaches a logger that was started anew as well.
 */
void send(const QByteArray &line)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, _PATH_LOG, sizeof(_PATH_LOG));
    (void)sendto(channel(), line.constData(), size_t(line.size()), MSG_DONTWAIT | MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr *>(&address), sizeof(address));
}

//! A time as syslog(3) writes it, local, the day padded with a blank: "Jan  2 03:04:05".
QByteArray textOf(time_t seconds)
{
    const QDateTime now = QDateTime::fromSecsSinceEpoch(seconds);
    return QStringLiteral("%1 %2 %3")
        .arg(QLocale::c().toString(now.date(), QStringLiteral("MMM")))
        .arg(now.date().day(), 2)
        .arg(now.time().toString(QStringLiteral("hh:mm:ss")))
        .toLatin1();
}

//! The present time, made into text once a second: that takes longer than all the rest.
const QByteArray &timestamp()
{
    thread_local time_t second = 0;
    thread_local QByteArray text;
    const time_t now = time(nullptr);
    if (now != second || text.isNull()) {
        second = now;
        text = textOf(now);
    }
    return text;
}

} // namespace

Ziblog ziblog;

void Ziblog::open(const QString &identity, facility code, option /*options*/)
{
    ident = identity.toLocal8Bit();
    facilityCode = code;
    (void)channel(); // now, while there are descriptors to be had
    otherDestinations = qInstallMessageHandler(handleMessage);
}

void Ziblog::setSyslogLevelWarning()
{
    leastSeverity = LOG_WARNING;
}

void Ziblog::handleMessage(QtMsgType type, const QMessageLogContext &context,
                           const QString &message)
{
    const int severity = severityOf(type);
    if (severity <= ziblog.leastSeverity) {
        send('<' + QByteArray::number(ziblog.facilityCode | severity) + '>' + timestamp() + ' '
             + ziblog.ident + ": " + message.toLocal8Bit().constData());
    }
    ziblog.otherDestinations(type, context, message);
}

} // namespace zib

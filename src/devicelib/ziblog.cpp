// SPDX-License-Identifier: Apache-2.0
#include "devicelib/ziblog.h"

namespace zib
{
namespace
{

//! The framework's message types as severities of syslog(3), where smaller is graver.
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

} // namespace

Ziblog ziblog;

void Ziblog::open(const QString &identity, facility code, option options)
{
    ident = identity.toLocal8Bit();
    openlog(ident.constData(), options, code);
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
        syslog(severity, "%s", message.toLocal8Bit().constData());
    }
    ziblog.otherDestinations(type, context, message);
}

} // namespace zib

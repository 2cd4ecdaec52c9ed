// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <syslog.h>

namespace zib
{

/*!
 * The process's way into syslog. Once opened, Qt's messages of the set
 * level and above go to the system's logger, in the layout of syslog(3), as well as
 * wherever they went before.
 * Failure: never waits. A message is lost to a logger that is absent or does not read.
 */
class Ziblog
{
public:
    //! A facility as syslog(3) takes it: its number in RFC 5424 times 8.
    enum facility { Local5 = LOG_LOCAL5 };
    //! Option bits of openlog(3); none is supported.
    enum option { NoOption = 0 };

    //! Opens the channel. \a identity stands in front of every message. To be called once.
    void open(const QString &identity, facility code, option options);
    //! Passes warnings and above; until then every message is passed.
    void setSyslogLevelWarning();

private:
    static void handleMessage(QtMsgType type, const QMessageLogContext &context,
                              const QString &message);

    QByteArray ident;
    int facilityCode = LOG_USER;
    int leastSeverity = LOG_DEBUG;
    QtMessageHandler otherDestinations = nullptr;
};

//! The one instance of the process.
extern Ziblog ziblog;

} // namespace zib

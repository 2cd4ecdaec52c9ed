// SPDX-License-Identifier: Apache-2.0
#include "intake/qtroad.h"

#include "intake/statussignal.h"
#include "manager/statusvalues.h"
#include "support/literals.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr int longest = 120000; // milliseconds; against what hangs
const auto markInterface = "com.tovel.test"_s;
const auto markMember = "mark"_s;

QByteArray markMessage(uint number)
{
    WireMessage mark;
    mark.path = "/";
    mark.interface = markInterface.toLatin1();
    mark.member = markMember.toLatin1();
    mark.signature = "u";
    WireWriter out;
    out.fixed(number, 4);
    mark.body = out.bytes;
    return mark.toBytes(1);
}

} // namespace

QtRoad::QtRoad()
    : server("unix:path="_s + folder.filePath("peer"_s))
    , passed(open("/dev/null", O_RDONLY | O_CLOEXEC))
{
    qRegisterMetaType<QDBusVariant>();
    QObject::connect(&server, &QDBusServer::newConnection, this, &QtRoad::admit);
    patience.setSingleShot(true);
    QObject::connect(&patience, &QTimer::timeout, this,
                     [] { qFatal("QtDBus neither takes a message nor refuses it"); });
}

QtRoad::~QtRoad()
{
    QDBusConnection::disconnectFromPeer(connectionName);
    close(passed);
}

//! Before anything that comes over the connection is handed on.
void QtRoad::admit(QDBusConnection connection)
{
    connectionName = connection.name();
    const bool isHeard
        = connection.connect(QString(), QString(), QLatin1String(StatusSignal::interface),
                             QLatin1String(StatusSignal::member),
                             QLatin1String(StatusSignal::signature), this,
                             SLOT(hear(int, QDBusVariant)))
        && connection.connect(QString(), QString(), markInterface, markMember, "u"_s, this,
                              SLOT(hearMark(uint)));
    if (!isHeard) {
        qFatal("QtDBus does not connect");
    }
}

void QtRoad::begin()
{
    QDBusConnection::disconnectFromPeer(connectionName);
    wire = std::make_unique<WireBus>(server.address(), WireBus::Other::Program);
    notifier = std::make_unique<QSocketNotifier>(wire->descriptor(), QSocketNotifier::Read);
    (void)take({}); // what comes at once is read along with the login, and loses descriptors
}

Outcome QtRoad::take(const QList<Message> &messages)
{
    if (!wire) {
        begin();
    }
    changes.clear();
    for (const Message &message : messages) {
        (void)wire->sendBytes(message.bytes, passed, message.descriptors);
    }
    (void)wire->sendBytes(markMessage(++lastMark));
    patience.start(longest);
    Outcome outcome;
    while (heardMark != lastMark && !outcome.isMalformed) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        outcome.isMalformed = !wire->readSome();
        while (wire->take()) { } // answers to what a message became
    }
    patience.stop();
    if (outcome.isMalformed) {
        startAnew();
    }
    outcome.changes = changes;
    return outcome;
}

void QtRoad::startAnew()
{
    notifier.reset();
    wire.reset();
}

void QtRoad::hear(int id, const QDBusVariant &payload)
{
    changes.append(described(id, message().path(), statusValues(payload)));
}

void QtRoad::hearMark(uint number)
{
    heardMark = number;
}

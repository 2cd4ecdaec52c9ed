// SPDX-License-Identifier: Apache-2.0
#include "udp/udploginterface.h"

#include "catalog/systemeventcatalogue.h"
#include "rendering/utf8text.h"

#include <QDateTime>
#include <QFile>
#include <QUdpSocket>

namespace
{

constexpr quint16 syslogPort = 514;
constexpr qint64 facilityDaemon = 24; // "system daemons" times 8, RFC 5424

// Kept: RFC 5424 has no blank after the priority; receivers in the field expect it.
constexpr const char *afterPriority = "> 1 ";

constexpr size_t largestDatagram = 65507; // in bytes, over IPv4

constexpr const char *byteOrderMark = "\xEF\xBB\xBF"; // announces a message in UTF-8

} // namespace

UdpLogInterface::UdpLogInterface(const SystemeventCatalogue *systemevents)
    : catalogue(systemevents)
    , port(syslogPort)
{
    renewSocket();
}

UdpLogInterface::~UdpLogInterface() = default;

void UdpLogInterface::renewSocket()
{
    delete socket;
    socket = new QUdpSocket(this);
    device = socket;
}

bool UdpLogInterface::setAddress(const QString &text)
{
    return address.setAddress(text);
}

bool UdpLogInterface::setTarget(const QString &text, quint16 udpPort)
{
    renewSocket();
    port = udpPort;
    return setAddress(text);
}

void UdpLogInterface::logEvent(int id, const QList<QVariant> &args)
{
    const auto event = catalogue->events.constFind(uint(id));
    if (event == catalogue->events.constEnd() || address.isNull()) {
        return;
    }
    writeHeader(id, *event, args.first());
    appendLiveEvent(datagram, message(*event), args);
    socket->writeDatagram(datagram.data(), qint64(datagram.size()), address, port);
    datagram.clear();
    if (datagram.capacity() > largestDatagram) {
        datagram.shrink_to_fit(); // what was too large to be sent would stay for good
    }
}

//! An event's text is taken apart when it is sent for the first time.
const EventTemplate &UdpLogInterface::message(const SystemeventDescription &event)
{
    const auto known = messages.find(event.id);
    return known != messages.end()
        ? known->second
        : messages.emplace(event.id, EventTemplate(event.description(language))).first->second;
}

void UdpLogInterface::setLanguage(const QString &lang)
{
    language = lang;
    messages.clear();
}

void UdpLogInterface::writeHeader(int id, const SystemeventDescription &event, const QVariant &path)
{
    // Kept: the level is not bounded; from 8 on it counts into the next facility.
    datagram += '<';
    Utf8Text::append(datagram, facilityDaemon + event.logLevel);
    datagram += afterPriority;
    datagram += timestamp();
    datagram += ' ';
    datagram += hostName;
    datagram += " zib - ";
    Utf8Text::append(datagram, id);
    datagram += " - ";
    datagram += byteOrderMark;
    datagram += '[';
    datagram += path.toString().toLatin1().toStdString();
    datagram += "] ";
}

//! Formats each second once: with its time zone it costs as much as all the rest.
const std::string &UdpLogInterface::timestamp()
{
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    if (now != stampedSecond || stamp.empty()) {
        stampedSecond = now;
        stamp = QDateTime::fromSecsSinceEpoch(now).toString(Qt::ISODate).toStdString();
    }
    return stamp;
}

void UdpLogInterface::readHostName()
{
    QFile file(QStringLiteral("/proc/sys/kernel/hostname"));
    if (!file.open(QIODevice::ReadOnly)) {
        hostName = "zib";
        return;
    }
    // Kept: an empty name stays empty.
    hostName = file.readAll().trimmed().toStdString();
}

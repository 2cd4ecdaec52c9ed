// SPDX-License-Identifier: Apache-2.0
#include "udp/udploginterface.h"

#include "catalog/systemeventcatalogue.h"
#include "rendering/utf8text.h"

#include <QDateTime>
#include <QFile>
#include <QUdpSocket>
#include <QtEndian>

#include <cerrno>
#include <cstring>

#include <netinet/in.h>
#include <sys/socket.h>

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
    target = {};
    socket = new QUdpSocket(this);
    device = socket;
}

bool UdpLogInterface::setAddress(const QString &text)
{
    target = {};
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
    send();
    datagram.clear();
    if (datagram.capacity() > largestDatagram) {
        datagram.shrink_to_fit(); // what was too large to be sent would stay for good
    }
}

/*!
 * The socket's own way costs a twelfth more; it is left the first datagram, which binds the
 * socket, and what only it can say to the kernel: an address within a zone.
 */
void UdpLogInterface::send()
{
    if (target.size == 0) {
        socket->writeDatagram(datagram.data(), qint64(datagram.size()), address, port);
        target = receiverName(int(socket->socketDescriptor()));
        return;
    }
    ssize_t sent = -1;
    do {
        sent = ::sendto(
            int(socket->socketDescriptor()), datagram.data(), datagram.size(), MSG_NOSIGNAL,
            static_cast<const sockaddr *>(static_cast<const void *>(target.bytes.data())),
            socklen_t(target.size));
    } while (sent < 0 && errno == EINTR);
}

//! None where the socket is not there, or has to send by itself.
UdpLogInterface::SocketName UdpLogInterface::receiverName(int descriptor) const
{
    int domain = AF_UNSPEC;
    socklen_t size = sizeof domain;
    SocketName found;
    if (getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0
        || !address.scopeId().isEmpty()) {
        return found;
    }
    if (domain == AF_INET6) {
        sockaddr_in6 name{};
        name.sin6_family = AF_INET6;
        name.sin6_port = qToBigEndian(port);
        const Q_IPV6ADDR bytes = address.toIPv6Address(); // an IPv4 address mapped into it
        std::memcpy(&name.sin6_addr, &bytes, sizeof bytes);
        std::memcpy(found.bytes.data(), &name, sizeof name);
        found.size = sizeof name;
    } else if (domain == AF_INET && address.protocol() == QAbstractSocket::IPv4Protocol) {
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_port = qToBigEndian(port);
        name.sin_addr.s_addr = qToBigEndian(address.toIPv4Address());
        std::memcpy(found.bytes.data(), &name, sizeof name);
        found.size = sizeof name;
    }
    return found;
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

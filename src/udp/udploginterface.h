// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "output/loginterface.h"
#include "rendering/eventtemplate.h"

#include <QHostAddress>
#include <QString>

#include <array>
#include <string>
#include <unordered_map>

class QUdpSocket;
class SystemeventCatalogue;
struct SystemeventDescription;

/*!
 * Sends every event as one UDP datagram in the layout of a syslog message of
 * protocol version 1 (RFC 5424); docs/datagram.md describes it for receivers.
 *
 * An event that the catalogue does not know is not sent. Nothing is sent without
 * a receiver, and a failed sending goes unnoticed.
 */
class UdpLogInterface : public LogInterface
{
public:
    //! The catalogue is not owned and must outlive the sender.
    explicit UdpLogInterface(const SystemeventCatalogue *systemevents);
    ~UdpLogInterface() override;
    Q_DISABLE_COPY_MOVE(UdpLogInterface)

    //! \a args must hold at least the emitter's path.
    void logEvent(int id, const QList<QVariant> &args) override;

    //! The receiver's address as text, empty when there is none.
    [[nodiscard]] QString getAddress() const { return address.toString(); }
    //! Sets the receiver's address; a text that is no IP address leaves none and gives false.
    bool setAddress(const QString &text);

    //! Language code of the texts.
    [[nodiscard]] QString getLanguage() const { return language; }
    void setLanguage(const QString &lang);

    //! Sets the receiver's address and port, on a fresh socket. The result is that of setAddress().
    virtual bool setTarget(const QString &text, quint16 udpPort);

    /*!
     * Fills the host field from the kernel, with "zib" where the kernel does not
     * tell. Nothing calls it on a device: there the host field stays empty, and
     * the receiver takes the host from the datagram's source address.
     */
    void readHostName();

private:
    void renewSocket();
    void send();
    void writeHeader(int id, const SystemeventDescription &event, const QVariant &path);
    const EventTemplate &message(const SystemeventDescription &event);
    const std::string &timestamp();

    //! The receiver as the kernel takes it.
    struct SocketName {
        alignas(8) std::array<char, 28> bytes{}; //!< of a sockaddr_in6 at most
        size_t size = 0;                         //!< 0 while it is not known
    };

    [[nodiscard]] SocketName receiverName(int descriptor) const;

    QUdpSocket *socket = nullptr; //!< what device points to; a child
    SocketName target;            //!< of all datagrams but the first on a socket
    QHostAddress address;
    std::string datagram; //!< under construction
    const SystemeventCatalogue *catalogue;
    quint16 port;
    std::string hostName;
    QString language = QStringLiteral("en");
    std::unordered_map<uint, EventTemplate> messages; //!< those sent so far, in the language
    qint64 stampedSecond = 0;                         //!< since 1970-01-01 UTC
    std::string stamp;                                //!< that second in local time
};

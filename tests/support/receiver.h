// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QString>
#include <QUdpSocket>

//! Listens at the syslog port of an address.
class Receiver
{
public:
    explicit Receiver(const QString &address)
    {
        if (!socket.bind(QHostAddress(address), 514)) {
            qFatal("cannot bind port 514 of %s", qPrintable(address));
        }
    }

    //! The datagrams that have arrived; on loopback they are there once sent.
    QList<QByteArray> received()
    {
        QList<QByteArray> all;
        while (socket.hasPendingDatagrams()) {
            QByteArray datagram(int(socket.pendingDatagramSize()), '\0');
            socket.readDatagram(datagram.data(), datagram.size());
            all.append(datagram);
        }
        return all;
    }

private:
    QUdpSocket socket;
};

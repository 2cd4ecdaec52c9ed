// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QList>
#include <QtGlobal>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

//! The receiving end of syslog(3): a datagram socket at /dev/log.
class SyslogSocket
{
public:
    SyslogSocket()
        : descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path, sizeof address.sun_path);
        unlink(path);
        if (bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            qFatal("cannot listen at /dev/log");
        }
    }
    ~SyslogSocket()
    {
        close(descriptor);
        unlink(path);
    }
    Q_DISABLE_COPY_MOVE(SyslogSocket)

    //! What has arrived since the last call.
    [[nodiscard]] QList<QByteArray> received() const
    {
        QList<QByteArray> messages;
        char buffer[4096];
        ssize_t size = 0;
        while ((size = recv(descriptor, buffer, sizeof buffer, 0)) >= 0) {
            messages.append(QByteArray(buffer, int(size)));
        }
        return messages;
    }

private:
    static constexpr const char *path = "/dev/log";
    int descriptor;
};

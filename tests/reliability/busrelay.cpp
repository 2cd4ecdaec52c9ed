// SPDX-License-Identifier: Apache-2.0
#include "reliability/busrelay.h"

#include "support/literals.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int room = 65536; // bytes

sockaddr_un socketName(const QString &path)
{
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    qstrncpy(name.sun_path, path.toLocal8Bit().constData(), sizeof name.sun_path);
    return name;
}

int newSocket()
{
    return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

//! Empty when the other has hung up.
QByteArray receive(int socket)
{
    QByteArray bytes(room, '\0');
    const ssize_t size = recv(socket, bytes.data(), size_t(room), 0);
    bytes.truncate(size > 0 ? int(size) : 0);
    return bytes;
}

bool sendAll(int socket, const QByteArray &bytes)
{
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t sent
            = send(socket, bytes.constData() + done, size_t(bytes.size() - done), MSG_NOSIGNAL);
        if (sent < 0) {
            return false;
        }
        done += qsizetype(sent);
    }
    return true;
}

} // namespace

BusRelay::BusRelay(const QString &busAddress)
    : busPath(busAddress.section("path="_s, 1).section(QLatin1Char(','), 0, 0))
    , listening(newSocket())
{
    constexpr int backlog = 8;
    const sockaddr_un name = socketName(folder.filePath("relay"_s));
    if (bind(listening, reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0
        || listen(listening, backlog) != 0) {
        qFatal("cannot listen: %s", std::strerror(errno));
    }
    accepting = std::thread([this] { accept(); });
}

BusRelay::~BusRelay()
{
    shutdown(listening, SHUT_RDWR); // whoever waits for a connection
    accepting.join();
    for (const auto &each : all) {
        shutdown(each->bus, SHUT_RDWR);
        shutdown(each->program, SHUT_RDWR);
        each->toBus.join();
        each->toProgram.join();
        close(each->bus);
        close(each->program);
    }
    close(listening);
}

QByteArray BusRelay::address() const
{
    return "unix:path=" + folder.filePath("relay"_s).toLocal8Bit();
}

int BusRelay::connections() const
{
    const std::lock_guard<std::mutex> lock(adding);
    return int(all.size());
}

bool BusRelay::insert(int connection, const QByteArray &bytes)
{
    const std::lock_guard<std::mutex> lock(adding);
    Connection &chosen = *all.at(size_t(connection));
    const std::lock_guard<std::mutex> turn(chosen.sending);
    return sendAll(chosen.program, bytes);
}

void BusRelay::hangUpBehind(int connection, const QByteArray &text)
{
    const std::lock_guard<std::mutex> lock(adding);
    Connection &chosen = *all.at(size_t(connection));
    const std::lock_guard<std::mutex> turn(chosen.sending);
    chosen.last = text;
}

void BusRelay::accept()
{
    int accepted = -1;
    while ((accepted = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
        auto added = std::make_unique<Connection>();
        added->program = accepted;
        added->bus = newSocket();
        const sockaddr_un name = socketName(busPath);
        if (connect(added->bus, reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0) {
            qFatal("cannot reach the bus: %s", std::strerror(errno));
        }
        Connection &connection = *added;
        connection.toBus = std::thread([this, &connection] { passToBus(connection); });
        connection.toProgram = std::thread([this, &connection] { passToProgram(connection); });
        const std::lock_guard<std::mutex> lock(adding);
        all.push_back(std::move(added));
    }
}

void BusRelay::passToBus(const Connection &connection) const
{
    QByteArray bytes;
    do {
        bytes = receive(connection.program);
    } while (!bytes.isEmpty() && sendAll(connection.bus, bytes));
    shutdown(connection.bus, SHUT_RDWR);
}

void BusRelay::passToProgram(Connection &connection) const
{
    QByteArray before; // as much as may be the begin of the text
    bool goesOn = true;
    while (goesOn) {
        const QByteArray bytes = receive(connection.bus);
        const std::lock_guard<std::mutex> turn(connection.sending);
        goesOn = !bytes.isEmpty() && sendAll(connection.program, bytes);
        if (!connection.last.isEmpty()) {
            before += bytes;
            goesOn = goesOn && !before.contains(connection.last);
            before = before.right(connection.last.size() - 1);
        }
    }
    shutdown(connection.program, SHUT_RDWR);
    shutdown(connection.bus, SHUT_RDWR);
}

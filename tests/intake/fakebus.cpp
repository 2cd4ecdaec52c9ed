// SPDX-License-Identifier: Apache-2.0
#include "intake/fakebus.h"

#include "reliability/wirebus.h"
#include "support/literals.h"

#include <QDeadlineTimer>
#include <QtEndian>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <utility>

#include <linux/sockios.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int patience = 60; // seconds; against what hangs

} // namespace

BusSide::BusSide(int acceptedSocket)
    : socket(acceptedSocket)
{
    const timeval limit{patience, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

BusSide::~BusSide()
{
    close(socket);
}

QByteArray BusSide::readLine() const
{
    QByteArray line;
    while (!line.endsWith("\r\n")) {
        const QByteArray next = readBytes(1);
        if (next.isEmpty()) {
            return {};
        }
        line += next;
    }
    line.chop(2);
    return line;
}

QByteArray BusSide::readBytes(int count) const
{
    QByteArray bytes(count, '\0');
    const ssize_t size = recv(socket, bytes.data(), size_t(count), MSG_WAITALL);
    bytes.truncate(int(std::max(size, ssize_t(0))));
    return bytes;
}

quint32 BusSide::readMessage() const
{
    const QByteArray fixed = readBytes(16);
    if (fixed.size() < 16) {
        return 0;
    }
    const auto number = [&](int at) { return qFromLittleEndian<quint32>(fixed.constData() + at); };
    (void)readBytes(int((number(12) + 7) / 8 * 8 + number(4)));
    return number(8);
}

quint32 BusSide::admit(const QByteArray &answerAboutDescriptors) const
{
    if (readBytes(1) != QByteArray(1, '\0') || !readLine().startsWith("AUTH EXTERNAL ")
        || !send("OK 0123456789abcdef0123456789abcdef\r\n") || readLine() != "NEGOTIATE_UNIX_FD"
        || !send(answerAboutDescriptors) || readLine() != "BEGIN") {
        return 0;
    }
    return readMessage();
}

void BusSide::welcome() const
{
    (void)send(answerTo(admit()));
}

bool BusSide::send(const QByteArray &bytes, int descriptor, int times) const
{
    return sendAll(socket, bytes, descriptor, times);
}

bool BusSide::waitUntilRead() const
{
    const QDeadlineTimer end(std::chrono::seconds{patience});
    int unread = 0;
    while (ioctl(socket, SIOCOUTQ, &unread) == 0 && unread > 0 && !end.hasExpired()) {
        sched_yield();
    }
    return unread == 0;
}

void BusSide::waitForEnd() const
{
    while (!readBytes(1).isEmpty()) { }
}

bool BusSide::isHeard(int milliseconds) const
{
    pollfd readable{socket, POLLIN, 0};
    return poll(&readable, 1, milliseconds) > 0;
}

FakeBus::FakeBus(std::function<void(BusSide &)> behaviour, bool isAbstract)
    : listening(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const QByteArray path = folder.filePath("bus"_s).toLocal8Bit();
    const QByteArray key = isAbstract ? "abstract" : "path";
    // The first one is not there.
    list = "unix:path=/nowhere;unix:" + key + '=' + path + ",guid=01";
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", list);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const int begin = isAbstract ? 1 : 0;
    std::copy(path.begin(), path.end(), name.sun_path + begin);
    const auto size = socklen_t(offsetof(sockaddr_un, sun_path) + size_t(path.size()) + 1);
    if (bind(listening, reinterpret_cast<const sockaddr *>(&name), size) != 0
        || listen(listening, 1) != 0) {
        qFatal("cannot listen: %s", std::strerror(errno));
    }
    thread = std::thread([this, behaviour = std::move(behaviour)] {
        const int accepted = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted >= 0) {
            BusSide side(accepted);
            behaviour(side);
        }
    });
}

FakeBus::~FakeBus()
{
    shutdown(listening, SHUT_RDWR); // whoever waits for a connection
    thread.join();
    close(listening);
}

QByteArray answerTo(quint32 call, bool isError)
{
    WireMessage answer;
    answer.type = isError ? WireMessage::Error : WireMessage::Reply;
    answer.replyTo = call;
    answer.sender = "org.freedesktop.DBus";
    answer.errorName = isError ? "org.freedesktop.DBus.Error.LimitsExceeded" : "";
    answer.signature = "s";
    WireWriter out;
    out.text(":1.5");
    answer.body = out.bytes;
    return answer.toBytes(1);
}

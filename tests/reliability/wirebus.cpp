// SPDX-License-Identifier: Apache-2.0
#include "reliability/wirebus.h"

#include "support/literals.h"

#include <QElapsedTimer>
#include <QtEndian>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int mostDescriptors = 253; // in one message of the kernel

constexpr int fixedHead = 16; // up to and including the length of the header fields

qsizetype aligned(qsizetype position, int boundary)
{
    return (position + boundary - 1) / boundary * boundary;
}

quint32 numberAt(const QByteArray &bytes, qsizetype position)
{
    return position >= 0 && position + 4 <= bytes.size()
        ? qFromLittleEndian<quint32>(bytes.constData() + position)
        : 0;
}

enum Field { Path = 1, Interface, Member, ErrorName, ReplySerial, Destination, Sender, Signature };

void appendTextField(WireWriter &out, int field, const char *type, const QByteArray &value)
{
    if (value.isEmpty()) {
        return;
    }
    out.align(8);
    out.fixed(quint64(field), 1);
    out.signature(type);
    if (*type == 'g') {
        out.signature(value);
    } else {
        out.text(value);
    }
}

void appendNumberField(WireWriter &out, int field, quint32 value)
{
    out.align(8);
    out.fixed(quint64(field), 1);
    out.signature("u");
    out.fixed(value, 4);
}

//! The serial number that a message answers, 0 when it answers none.
quint32 replySerialOf(const QByteArray &message, qsizetype fieldsEnd)
{
    qsizetype at = fixedHead;
    while ((at = aligned(at, 8)) + 4 < fieldsEnd) {
        const int field = uchar(message[int(at)]);
        const char type = message[int(at) + 2]; // behind the length of the type's name
        const qsizetype value = at + 4;
        if (field == ReplySerial) {
            return numberAt(message, value);
        }
        at = type == 'g'  ? value + uchar(message[int(value)]) + 2
            : type == 'u' ? value + 4
                          : value + 4 + qsizetype(numberAt(message, value)) + 1;
    }
    return 0;
}

} // namespace

void WireWriter::align(int boundary)
{
    bytes.append(int(aligned(bytes.size(), boundary) - bytes.size()), '\0');
}

void WireWriter::fixed(quint64 value, int size)
{
    align(size);
    for (int i = 0; i < size; ++i) {
        bytes.append(char((value >> (8 * (isBigEndian ? size - 1 - i : i))) & 0xFF));
    }
}

void WireWriter::text(const QByteArray &utf8)
{
    fixed(quint64(utf8.size()), 4);
    bytes.append(utf8).append('\0');
}

void WireWriter::signature(const QByteArray &types)
{
    bytes.append(char(types.size())).append(types).append('\0');
}

WireWriter::Array WireWriter::beginArray(int elementAlignment)
{
    fixed(0, 4);
    const int length = int(bytes.size()) - 4;
    align(elementAlignment); // not counted in the length, and there in an empty array too
    return {length, int(bytes.size())};
}

void WireWriter::endArray(Array array)
{
    const auto size = quint32(bytes.size() - array.begin);
    char *const length = bytes.data() + array.length;
    isBigEndian ? qToBigEndian(size, length) : qToLittleEndian(size, length);
}

QByteArray WireMessage::toBytes(quint32 serial) const
{
    WireWriter out;
    out.isBigEndian = isBigEndian;
    out.bytes.append(isBigEndian ? 'B' : 'l').append(char(type)).append(char(flags)).append('\1');
    out.fixed(quint64(body.size()), 4);
    out.fixed(serial, 4);
    const WireWriter::Array fields = out.beginArray(8);
    appendTextField(out, Path, "o", path);
    appendTextField(out, Interface, "s", interface);
    appendTextField(out, Member, "s", member);
    appendTextField(out, ErrorName, "s", errorName);
    if (replyTo != 0) {
        appendNumberField(out, ReplySerial, replyTo);
    }
    appendTextField(out, Destination, "s", destination);
    appendTextField(out, Sender, "s", sender);
    appendTextField(out, Signature, "g", signature);
    if (descriptors > 0) {
        appendNumberField(out, Signature + 1, quint32(descriptors));
    }
    out.endArray(fields);
    out.align(8);
    return out.bytes + body;
}

WireMessage callOfLogNode(const QByteArray &member, const QByteArray &interface)
{
    WireMessage message;
    message.type = WireMessage::Call;
    message.path = "/system/eventlog";
    message.interface = interface;
    message.member = member;
    message.destination = "com.tovel.systemeventlogger";
    return message;
}

WireMessage callOfBus(const QByteArray &member)
{
    WireMessage message;
    message.type = WireMessage::Call;
    message.path = "/org/freedesktop/DBus";
    message.interface = "org.freedesktop.DBus";
    message.member = member;
    message.destination = message.interface;
    return message;
}

WireMessage questionForAll()
{
    WireMessage message = callOfLogNode("jsonLogfile");
    message.signature = "tt";
    WireWriter out;
    out.fixed(0, 8);
    out.fixed(~quint64(0), 8);
    message.body = out.bytes;
    return message;
}

WireMessage questionForMinimum()
{
    return callOfLogNode("getMinLogNr");
}

WireMessage unknownSignal(bool isBigEndian)
{
    WireMessage message;
    message.isBigEndian = isBigEndian;
    message.path = "/";
    message.interface = "org.example.unknown";
    message.member = "member";
    return message;
}

WireMessage statusSignal()
{
    WireMessage message;
    message.path = "/x";
    message.interface = "com.tovel.status";
    message.member = "change";
    message.signature = "iv";
    return message;
}

WireMessage statusChange(int eventId, const QByteArray &type, const QByteArray &element,
                         int alignment, int count)
{
    WireMessage message = statusSignal();
    WireWriter out;
    out.fixed(quint64(eventId), 4);
    out.signature(type);
    const WireWriter::Array array = out.beginArray(alignment);
    out.bytes += element.repeated(count);
    out.endArray(array);
    message.body = out.bytes;
    return message;
}

QByteArray WireAnswer::text() const
{
    const quint32 size = numberAt(body, 0);
    return body.size() >= 4 && qsizetype(size) <= body.size() - 4 ? body.mid(4, int(size))
                                                                  : QByteArray();
}

int connectTo(const QString &address)
{
    const QByteArray path
        = address.section("path="_s, 1).section(QLatin1Char(','), 0, 0).toLocal8Bit();
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    qstrncpy(name.sun_path, path.constData(), sizeof name.sun_path);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(descriptor, reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0) {
        qFatal("cannot reach the bus: %s", std::strerror(errno));
    }
    return descriptor;
}

bool sendAll(int socket, const QByteArray &bytes, int passed, int times)
{
    alignas(cmsghdr) char control[CMSG_SPACE(mostDescriptors * sizeof(int))] = {};
    iovec content{const_cast<char *>(bytes.constData()), size_t(bytes.size())};
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    if (times > 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(size_t(times) * sizeof(int));
        cmsghdr *const head = CMSG_FIRSTHDR(&message);
        head->cmsg_level = SOL_SOCKET;
        head->cmsg_type = SCM_RIGHTS;
        head->cmsg_len = CMSG_LEN(size_t(times) * sizeof(int));
        for (int i = 0; i < times; ++i) {
            std::memcpy(CMSG_DATA(head) + size_t(i) * sizeof(int), &passed, sizeof(int));
        }
    }
    while (content.iov_len > 0) {
        const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL);
        if (sent < 0) {
            return false;
        }
        content.iov_base = static_cast<char *>(content.iov_base) + sent;
        content.iov_len -= size_t(sent);
        message.msg_control = nullptr; // they went with the first bytes
        message.msg_controllen = 0;
    }
    return true;
}

WireBus::WireBus(const QString &address, Other other)
    : socket(connectTo(address))
{
    authenticate();
    if (other == Other::Bus) {
        greet();
    }
}

WireBus::~WireBus()
{
    close(socket);
}

void WireBus::greet()
{
    constexpr int patience = 60000;
    if (!send(callOfBus("Hello")) || !waitFor(serial, patience)) {
        qFatal("the bus does not greet");
    }
}

void WireBus::authenticate()
{
    const QByteArray user = QByteArray::number(getuid()).toHex();
    if (!sendBytes(QByteArray(1, '\0') + "AUTH EXTERNAL " + user + "\r\n")
        || !readLine().startsWith("OK ") || !sendBytes("NEGOTIATE_UNIX_FD\r\n")
        || readLine() != "AGREE_UNIX_FD\r\n" || !sendBytes("BEGIN\r\n")) {
        qFatal("the bus refuses this user");
    }
}

QByteArray WireBus::readLine() const
{
    QByteArray line;
    char next = 0;
    while (!line.endsWith('\n') && recv(socket, &next, 1, 0) == 1) {
        line.append(next);
    }
    return line;
}

bool WireBus::sendBytes(const QByteArray &bytes, int passed, int times) const
{
    return sendAll(socket, bytes, passed, times);
}

bool WireBus::send(const WireMessage &message, int passed)
{
    return sendBytes(message.toBytes(nextSerial()), passed, message.descriptors);
}

bool WireBus::readSome()
{
    char buffer[65536];
    ssize_t size = 0;
    while ((size = recv(socket, buffer, sizeof buffer, MSG_DONTWAIT)) > 0) {
        received.append(buffer, int(size));
    }
    return size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
}

std::optional<WireAnswer> WireBus::take()
{
    if (received.size() < fixedHead) {
        return std::nullopt;
    }
    const qsizetype fieldsEnd = fixedHead + qsizetype(numberAt(received, 12));
    const qsizetype bodyBegin = aligned(fieldsEnd, 8);
    const qsizetype size = bodyBegin + qsizetype(numberAt(received, 4));
    if (received.size() < size) {
        return std::nullopt;
    }
    WireAnswer answer;
    answer.type = uchar(received[1]);
    answer.replyTo = replySerialOf(received, fieldsEnd);
    answer.body = received.mid(int(bodyBegin), int(size - bodyBegin));
    received.remove(0, int(size));
    return answer;
}

std::optional<WireAnswer> WireBus::waitFor(quint32 call, int milliseconds)
{
    QElapsedTimer timer;
    timer.start();
    while (true) {
        while (std::optional<WireAnswer> answer = take()) {
            if (answer->replyTo == call) {
                return answer;
            }
        }
        const int left = milliseconds - int(timer.elapsed());
        pollfd readable{socket, POLLIN, 0};
        if (left <= 0 || poll(&readable, 1, left) <= 0 || !readSome()) {
            return std::nullopt;
        }
    }
}

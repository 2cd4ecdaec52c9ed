// SPDX-License-Identifier: Apache-2.0
#include "reliability/floodsender.h"

#include "support/literals.h"

#include <QtEndian>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ratio>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int blockSize = 64; // events
constexpr int digits = 8;

// Offsets in every message.
constexpr int typeOffset = 1;
constexpr int bodySizeOffset = 4;
constexpr int serialOffset = 8;
constexpr int fieldsSizeOffset = 12;
constexpr int headSize = 16;

enum MessageType : char { Call = 1, Reply = 2, Error = 3, Signal = 4 };
enum HeaderField : char { Path = 1, Interface = 2, Member = 3, Destination = 6, Signature = 8 };

void align(QByteArray &bytes, int to)
{
    while (bytes.size() % to != 0) {
        bytes.append('\0');
    }
}

void appendNumber(QByteArray &bytes, quint32 value)
{
    char number[sizeof(value)];
    qToLittleEndian(value, number);
    bytes.append(number, sizeof(number));
}

void setNumber(QByteArray &bytes, int offset, quint32 value)
{
    qToLittleEndian(value, bytes.data() + offset);
}

quint32 numberAt(const char *bytes, int offset)
{
    return qFromLittleEndian<quint32>(bytes + offset);
}

void appendText(QByteArray &bytes, const QByteArray &text)
{
    appendNumber(bytes, quint32(text.size()));
    bytes.append(text).append('\0');
}

void appendSignature(QByteArray &bytes, const QByteArray &signature)
{
    bytes.append(char(signature.size())).append(signature).append('\0');
}

void appendField(QByteArray &bytes, HeaderField field, char type, const QByteArray &value)
{
    align(bytes, 8);
    bytes.append(field);
    appendSignature(bytes, QByteArray(1, type));
    if (type == 'g') {
        appendSignature(bytes, value);
    } else {
        appendText(bytes, value);
    }
}

QByteArray head(MessageType type, char flags)
{
    QByteArray bytes("l");
    bytes.append(type).append(flags).append('\1');
    bytes.resize(headSize);
    std::fill(bytes.begin() + bodySizeOffset, bytes.end(), '\0');
    return bytes;
}

void endFields(QByteArray &bytes)
{
    setNumber(bytes, fieldsSizeOffset, quint32(bytes.size() - headSize));
    align(bytes, 8);
}

QByteArray callMessage(const char *member)
{
    QByteArray bytes = head(Call, 0);
    appendField(bytes, Path, 'o', "/org/freedesktop/DBus");
    appendField(bytes, Interface, 's', "org.freedesktop.DBus");
    appendField(bytes, Member, 's', member);
    appendField(bytes, Destination, 's', "org.freedesktop.DBus");
    endFields(bytes);
    setNumber(bytes, serialOffset, 1);
    return bytes;
}

//! A change with one text, which is the last thing in it.
QByteArray changeMessage(const QByteArray &path, const QByteArray &text)
{
    constexpr quint32 eventId = 1002;
    constexpr char noReply = 1;
    QByteArray bytes = head(Signal, noReply);
    appendField(bytes, Path, 'o', path);
    appendField(bytes, Interface, 's', "com.tovel.status");
    appendField(bytes, Member, 's', "change");
    appendField(bytes, Signature, 'g', "iv");
    endFields(bytes);

    const auto body = bytes.size();
    appendNumber(bytes, eventId);
    appendSignature(bytes, "av");
    align(bytes, 4);
    const auto arraySize = int(bytes.size());
    appendNumber(bytes, 0);
    const auto array = bytes.size();
    appendSignature(bytes, "s");
    align(bytes, 4);
    appendText(bytes, text);
    setNumber(bytes, arraySize, quint32(bytes.size() - array));
    setNumber(bytes, bodySizeOffset, quint32(bytes.size() - body));
    return bytes;
}

} // namespace

FloodSender::FloodSender(QString busAddress, Flood what)
    : address(std::move(busAddress))
    , flood(std::move(what))
    , thread([this] { run(); })
{
}

FloodSender::~FloodSender()
{
    stopping = true;
    if (!finished) {
        (void)shutdown(handle, SHUT_RDWR); // it may be waiting for the bus
    }
    thread.join();
    (void)close(handle);
}

QByteArray FloodSender::textOf(int n, int size)
{
    return QByteArray::number(n).rightJustified(digits, '0').leftJustified(size, '-');
}

int FloodSender::messageSize(const Flood &what)
{
    return int(changeMessage(what.path, textOf(0, what.textSize)).size());
}

void FloodSender::run()
{
    if (!connectToBus() || !sendAll()) {
        failure = "the bus does not take events: "_s + QString::fromLocal8Bit(std::strerror(errno));
    }
    finished = true;
}

bool FloodSender::connectToBus()
{
    const QByteArray path = address.section("path="_s, 1).section(QLatin1Char(','), 0, 0).toUtf8();
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::copy_n(path.constData(), std::min(size_t(path.size()), sizeof(name.sun_path) - 1),
                name.sun_path);
    handle = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(handle, reinterpret_cast<const sockaddr *>(&name), sizeof(name)) != 0) {
        return false;
    }
    const QByteArray user = QByteArray::number(getuid()).toHex();
    return write(QByteArray(1, '\0') + "AUTH EXTERNAL " + user + "\r\n") && readLine()
        && write("BEGIN\r\n") && callBus("Hello");
}

bool FloodSender::sendAll()
{
    QByteArray change = changeMessage(flood.path, textOf(0, flood.textSize));
    const auto text = change.size() - flood.textSize - 1;
    const auto start = std::chrono::steady_clock::now();
    QByteArray block;
    for (int n = 0; n < flood.events && !stopping; n += blockSize) {
        const int end = std::min(n + blockSize, flood.events);
        block.clear();
        for (int i = n; i < end; ++i) {
            setNumber(change, serialOffset, quint32(i) + 2);
            change.replace(text, digits, textOf(i, digits));
            block += change;
        }
        if (flood.rate > 0) {
            std::this_thread::sleep_until(
                start + std::chrono::nanoseconds(std::nano::den) * n / flood.rate);
        }
        if (!write(block)) {
            return false;
        }
        handedOver = end;
    }
    return callBus("GetId"); // answered after everything before it
}

bool FloodSender::write(const QByteArray &bytes)
{
    QByteArray::size_type done = 0;
    while (done < bytes.size()) {
        const ssize_t written
            = send(handle, bytes.constData() + done, size_t(bytes.size() - done), MSG_NOSIGNAL);
        if (written <= 0) {
            return false;
        }
        done += QByteArray::size_type(written);
    }
    return true;
}

bool FloodSender::readLine()
{
    char letter = 0;
    while (letter != '\n') {
        if (!readExactly(&letter, 1)) {
            return false;
        }
    }
    return true;
}

bool FloodSender::readExactly(char *bytes, int size)
{
    return recv(handle, bytes, size_t(size), MSG_WAITALL) == size;
}

//! Calls a method of the bus itself and passes over everything up to the answer.
bool FloodSender::callBus(const char *member)
{
    if (!write(callMessage(member))) {
        return false;
    }
    char start[headSize];
    while (readExactly(start, headSize)) {
        const quint32 fields = (numberAt(start, fieldsSizeOffset) + 7) / 8 * 8;
        QByteArray rest(int(fields + numberAt(start, bodySizeOffset)), '\0');
        if (!readExactly(rest.data(), int(rest.size()))) {
            return false;
        }
        if (start[typeOffset] == Reply || start[typeOffset] == Error) {
            return start[typeOffset] == Reply;
        }
    }
    return false;
}

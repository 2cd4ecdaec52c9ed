// SPDX-License-Identifier: Apache-2.0
#include "intake/busconnection.h"

#include "intake/busaddress.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr size_t usualBuffer = 65536;
constexpr size_t mostLine = 16384;   // as libdbus has it
constexpr int mostDescriptors = 253; // in one message of the kernel: SCM_MAX_FD

std::string inHex(const std::string &text)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    for (const char c : text) {
        hex += digits[static_cast<unsigned char>(c) >> 4];
        hex += digits[static_cast<unsigned char>(c) & 15];
    }
    return hex;
}

//! They came with a message and nobody wants them; their number.
size_t closeDescriptors(msghdr &message)
{
    size_t all = 0;
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        const size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int passed = -1;
            std::memcpy(&passed, CMSG_DATA(part) + i * sizeof passed, sizeof passed);
            ::close(passed);
        }
        all += count;
    }
    return all;
}

} // namespace

BusConnection::~BusConnection()
{
    close();
}

bool BusConnection::open()
{
    for (const std::string &name : BusAddress::socketNames(BusAddress::ofSystemBus())) {
        const QDeadlineTimer end(patience);
        if (connectTo(name) && authenticate(end) && greet(end)) {
            return true;
        }
        close();
    }
    return false;
}

void BusConnection::close()
{
    if (isOpen()) {
        ::close(socket);
    }
    socket = -1;
    filled = 0;
    descriptors = 0;
    buffer = {};
}

bool BusConnection::connectTo(const std::string &name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const bool isAbstract = !name.empty() && name.front() == '\0';
    if (name.empty() || name.size() + (isAbstract ? 0 : 1) > sizeof address.sun_path) {
        return false;
    }
    std::copy(name.begin(), name.end(), address.sun_path);
    const size_t size = offsetof(sockaddr_un, sun_path) + name.size() + (isAbstract ? 0 : 1);
    socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    lastSerial = 0;
    buffer.resize(usualBuffer);
    const timeval longest{patience / 1000, 0}; // also for connecting: others may wait in front
    return isOpen() && setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &longest, sizeof longest) == 0
        && connect(socket, reinterpret_cast<const sockaddr *>(&address), socklen_t(size)) == 0;
}

//! By the credentials of the socket. Without descriptors the bus would keep back what has some.
bool BusConnection::authenticate(QDeadlineTimer end)
{
    const std::string user = std::to_string(geteuid());
    if (!send(std::string(1, '\0') + "AUTH EXTERNAL " + inHex(user) + "\r\n")
        || readLine(end).compare(0, 3, "OK ") != 0 || !send("NEGOTIATE_UNIX_FD\r\n")) {
        return false;
    }
    const std::string answer = readLine(end); // a bus may know no descriptors
    return !answer.empty() && send("BEGIN\r\n");
}

bool BusConnection::greet(QDeadlineTimer end)
{
    const quint32 hello = call("Hello");
    bool isGreeted = false;
    bool isRefused = false;
    const auto handle = [&](const Wire::Head &head) {
        if (head.answerTo == hello) {
            isGreeted = head.type == Wire::Type::Answer;
            isRefused = !isGreeted;
        }
    };
    while (!isGreeted && !isRefused) {
        if (end.hasExpired() || !wait(int(end.remainingTime())) || read(handle) == Reading::Lost) {
            return false;
        }
    }
    return isGreeted;
}

std::string BusConnection::readLine(QDeadlineTimer end) const
{
    std::string line;
    char next = 0;
    while (line.size() < mostLine && wait(int(end.remainingTime()))
           && recv(socket, &next, 1, 0) == 1) {
        line += next;
        if (next == '\n') {
            return line;
        }
    }
    return {};
}

bool BusConnection::wait(int milliseconds) const
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
    int result = -1;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd readable{socket, POLLIN, 0};
        result = poll(&readable, 1, int(std::max<std::chrono::milliseconds::rep>(left, 0)));
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

bool BusConnection::send(std::string_view bytes) const
{
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes.remove_prefix(size_t(sent));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

quint32 BusConnection::call(const char *member, std::string_view text,
                            std::optional<quint32> number)
{
    return send(Wire::callOfBus(member, ++lastSerial, text, number)) ? lastSerial : 0;
}

ssize_t BusConnection::receive()
{
    alignas(cmsghdr) std::array<char, CMSG_SPACE(mostDescriptors * sizeof(int))> control{};
    iovec room{buffer.data() + filled, buffer.size() - filled};
    msghdr message{};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t size = -1;
    do {
        size = recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    } while (size < 0 && errno == EINTR);
    if (size > 0) {
        descriptors += closeDescriptors(message);
    }
    return size;
}

BusConnection::Reading BusConnection::read(const Handler &handle)
{
    const size_t asked = buffer.size() - filled;
    const ssize_t size = receive();
    if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        return Reading::Empty;
    }
    if (size <= 0) {
        return Reading::Lost;
    }
    filled += size_t(size);
    if (!handOver(handle)) {
        return Reading::Lost;
    }
    return size_t(size) == asked ? Reading::More : Reading::Empty;
}

//! False where the bytes are no messages.
bool BusConnection::handOver(const Handler &handle)
{
    size_t done = 0;
    size_t wanted = usualBuffer;
    while (filled - done >= Wire::fixedSize) {
        const std::string_view rest(buffer.data() + done, filled - done);
        const auto size = Wire::messageSize(rest);
        if (!size) {
            return false;
        }
        if (*size > rest.size()) {
            // As its bytes come: an announcement alone costs nothing.
            const size_t room = rest.size() < buffer.size() ? buffer.size() : 2 * buffer.size();
            wanted = std::max(usualBuffer, std::min(*size, room));
            break;
        }
        const auto head = Wire::readHead(rest.substr(0, *size));
        if (!head || head->descriptors > descriptors) {
            return false;
        }
        descriptors -= head->descriptors;
        handle(*head);
        done += *size;
    }
    if (done > 0) { // not for each part of a large one
        std::copy(buffer.begin() + std::ptrdiff_t(done), buffer.begin() + std::ptrdiff_t(filled),
                  buffer.begin());
    }
    filled -= done;
    if (wanted != buffer.size()) {
        buffer.resize(wanted);
        buffer.shrink_to_fit();
    }
    return true;
}

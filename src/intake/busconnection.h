// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "intake/wiremessage.h"

#include <QDeadlineTimer>

#include <functional>
#include <optional>
#include <string>
#include <vector>

/*!
 * A connection to the system bus that reads messages as bytes, and asks nothing but the bus
 * itself. Descriptors that travel along are closed.
 */
class BusConnection
{
public:
    //! Gets a whole message; its bytes are there as long as it runs.
    using Handler = std::function<void(const Wire::Head &)>;

    BusConnection() = default;
    ~BusConnection();
    Q_DISABLE_COPY_MOVE(BusConnection)

    /*!
     * Connects to the system bus and is greeted by it; false where that cannot be had.
     * Waits no longer than for patience at each of its addresses.
     */
    [[nodiscard]] bool open();
    void close();
    [[nodiscard]] bool isOpen() const { return socket >= 0; }
    //! The socket, -1 while it is not open.
    [[nodiscard]] int descriptor() const { return socket; }

    //! Calls a method of the bus; the call's serial number, 0 where the bus does not take it.
    quint32 call(const char *member, std::string_view text = {},
                 std::optional<quint32> number = std::nullopt);
    enum class Reading { Empty, More, Lost };
    /*!
     * Reads once what has come, waiting for nothing, and hands over each whole message:
     * More where there may be more, Lost where the bus has hung up or sends no messages.
     */
    Reading read(const Handler &handle);
    //! Waits until there is something to read; false when nothing comes in time.
    [[nodiscard]] bool wait(int milliseconds) const;

    //! How long the bus may take for an answer, in milliseconds; nobody else is answered meanwhile.
    static constexpr int patience = 3000;

private:
    [[nodiscard]] bool connectTo(const std::string &name);
    [[nodiscard]] bool authenticate(QDeadlineTimer end);
    [[nodiscard]] bool greet(QDeadlineTimer end);
    [[nodiscard]] bool send(std::string_view bytes) const;
    [[nodiscard]] std::string readLine(QDeadlineTimer end) const;
    ssize_t receive();
    bool handOver(const Handler &handle);

    int socket = -1;
    quint32 lastSerial = 0;
    std::vector<char> buffer; //!< grows for a message that is larger, and shrinks again
    size_t filled = 0;
    size_t descriptors = 0; //!< that have come for messages yet to be handed over
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <thread>

/*!
 * Sends status changes faster than QtDBus or libdbus can: ready bytes, in blocks, over a raw
 * connection to the bus, from a thread of its own. Waits only where the bus takes no
 * more. Every change is event 1002 with one text, which textOf() gives.
 */
class FloodSender
{
public:
    struct Flood {
        QByteArray path;
        int events = 0;
        int textSize = 20;
        int rate = 0; //!< events a second; 0: as fast as the bus takes them
    };

    FloodSender(QString busAddress, Flood what);
    //! Ends the sending.
    ~FloodSender();
    Q_DISABLE_COPY_MOVE(FloodSender)

    //! What the bus has been given so far.
    [[nodiscard]] int sent() const { return handedOver; }
    //! Whether the bus has dealt with everything, or an error has ended the sending.
    [[nodiscard]] bool isFinished() const { return finished; }
    //! Why the sending ended early; empty where it did not. To be read when finished.
    [[nodiscard]] QString error() const { return failure; }

    //! The text of a sender's n-th event, counted from 0: eight digits and a filling.
    static QByteArray textOf(int n, int size);
    //! The bytes of each of its messages, without those by which the bus says who sent it.
    static int messageSize(const Flood &what);

private:
    void run();
    [[nodiscard]] bool connectToBus();
    [[nodiscard]] bool sendAll();
    [[nodiscard]] bool write(const QByteArray &bytes);
    [[nodiscard]] bool readLine();
    [[nodiscard]] bool readExactly(char *bytes, int size);
    [[nodiscard]] bool callBus(const char *member);

    QString address;
    Flood flood;
    std::atomic<int> handle{-1};
    QString failure;
    std::atomic<int> handedOver{0};
    std::atomic<bool> finished{false};
    std::atomic<bool> stopping{false};
    std::thread thread; // last: it uses all the others
};

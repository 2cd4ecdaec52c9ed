// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QList>
#include <QTemporaryDir>

#include <functional>
#include <thread>

//! The bus's side of a connection: bytes as they are, in blocking calls that end at some time.
class BusSide
{
public:
    explicit BusSide(int acceptedSocket);
    ~BusSide();
    Q_DISABLE_COPY_MOVE(BusSide)

    //! Everything up to a greeting, whose serial number it returns; 0 where the other is gone.
    quint32 admit(const QByteArray &answerAboutDescriptors = "AGREE_UNIX_FD\r\n") const;
    //! admit() and the answer to the greeting.
    void welcome() const;
    //! A line without its end; empty once the other is gone.
    [[nodiscard]] QByteArray readLine() const;
    //! Up to a number of bytes; fewer once the other is gone.
    [[nodiscard]] QByteArray readBytes(int count) const;
    //! A message, of which the serial number is returned.
    [[nodiscard]] quint32 readMessage() const;
    //! Sends bytes, with an open descriptor so many times; false once the other is gone.
    bool send(const QByteArray &bytes, int descriptor = -1, int times = 0) const;
    //! Waits until the other has read everything; false where he does not.
    [[nodiscard]] bool waitUntilRead() const;
    //! Waits until the other is gone.
    void waitForEnd() const;
    //! Whether the other is gone, or sends something, within that time.
    [[nodiscard]] bool isHeard(int milliseconds) const;

private:
    int socket;
};

//! A socket under DBUS_SYSTEM_BUS_ADDRESS that does as it is told with one connection.
class FakeBus
{
public:
    //! \a behaviour runs in a thread of its own, which the destructor waits for.
    explicit FakeBus(std::function<void(BusSide &)> behaviour, bool isAbstract = false);
    ~FakeBus();
    Q_DISABLE_COPY_MOVE(FakeBus)

    //! What the environment variable was set to.
    [[nodiscard]] QByteArray addresses() const { return list; }

private:
    QTemporaryDir folder;
    QByteArray list;
    int listening;
    std::thread thread;
};

//! An answer of the bus.
QByteArray answerTo(quint32 call, bool isError = false);

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtGlobal>

#include <optional>

/*!
 * The bytes of values on the bus, aligned. Neither QtDBus nor libdbus is asked: both refuse
 * what they take for wrong, and the daemon must bear what the bus lets through.
 */
class WireWriter
{
public:
    QByteArray bytes;
    bool isBigEndian = false; //!< the order of the bytes of numbers

    void align(int boundary);
    void fixed(quint64 value, int size); //!< aligned by its size
    void text(const QByteArray &utf8);   //!< also an object path
    void signature(const QByteArray &types);
    //! Begins an array; endArray() takes what this returns.
    struct Array {
        int length;
        int begin;
    };
    [[nodiscard]] Array beginArray(int elementAlignment);
    void endArray(Array array);
};

struct WireMessage {
    enum Type { Call = 1, Reply = 2, Error = 3, Signal = 4 };
    enum Flag { NoReply = 1, NoAutoStart = 2 };

    int type = Signal;
    int flags = 0;
    QByteArray path;
    QByteArray interface;
    QByteArray member;
    QByteArray errorName;
    QByteArray destination;
    QByteArray sender; //!< a bus puts its own in place of it
    QByteArray signature;
    QByteArray body;
    quint32 replyTo = 0;
    int descriptors = 0;      //!< how many travel along
    bool isBigEndian = false; //!< its numbers, those of the body among them

    [[nodiscard]] QByteArray toBytes(quint32 serial) const;
};

//! A call of a method of the daemon's log node.
WireMessage callOfLogNode(const QByteArray &member,
                          const QByteArray &interface = "local.LogManager");
//! A call of a method of the bus that takes nothing.
WireMessage callOfBus(const QByteArray &member);
//! A call that asks for the whole log.
WireMessage questionForAll();
//! A call with a small answer.
WireMessage questionForMinimum();
//! A signal that the daemon does not know.
WireMessage unknownSignal(bool isBigEndian);
//! A status change without its body.
WireMessage statusSignal();
//! A status change whose one value is an array of the given type, of \a count like elements.
WireMessage statusChange(int eventId, const QByteArray &type, const QByteArray &element,
                         int alignment, int count);

//! A socket at \a address, as TestBus gives it. Ends the test program when nobody is there.
[[nodiscard]] int connectTo(const QString &address);
//! Sends all bytes, with an open descriptor so many times; false once the other has hung up.
[[nodiscard]] bool sendAll(int socket, const QByteArray &bytes, int passed = -1, int times = 0);

//! What a test wants to know of a message that came.
struct WireAnswer {
    int type = 0;
    quint32 replyTo = 0;
    QByteArray body;

    //! The first value where it is a string.
    [[nodiscard]] QByteArray text() const;
};

//! A connection to a bus that writes bytes as they are, and reads only when told to.
class WireBus
{
public:
    enum class Other { Bus, Program };

    /*!
     * Ends the test program when the bus at \a address cannot be reached. A program on the
     * other side is not greeted as a bus is.
     */
    explicit WireBus(const QString &address, Other other = Other::Bus);
    ~WireBus();
    Q_DISABLE_COPY_MOVE(WireBus)

    [[nodiscard]] int descriptor() const { return socket; }
    quint32 nextSerial() { return ++serial; }
    //! Sends bytes, with an open descriptor so many times; false once the bus has hung up.
    [[nodiscard]] bool sendBytes(const QByteArray &bytes, int passed = -1, int times = 0) const;
    //! Sends a message under the next serial number.
    [[nodiscard]] bool send(const WireMessage &message, int passed = -1);
    //! Reads what has come, waiting for nothing; false once the bus has hung up.
    [[nodiscard]] bool readSome();
    //! Takes the next message out of what has been read.
    std::optional<WireAnswer> take();
    //! Waits for the answer to a call and drops all other messages; none in time, or ever.
    std::optional<WireAnswer> waitFor(quint32 call, int milliseconds);

private:
    void authenticate();
    void greet();
    [[nodiscard]] QByteArray readLine() const;

    int socket = -1;
    quint32 serial = 0;
    QByteArray received;
};

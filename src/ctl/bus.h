// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/buslibrary.h"
#include "ctl/busvalue.h"

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>
#include <vector>

//! A method and where it is.
struct BusCall {
    const char *to;
    const char *path;
    const char *interface;
    const char *method;
    std::vector<BusValue> arguments;
};

//! What came of a call.
struct BusAnswer {
    std::optional<BusValue> value; //!< the first one of the answer
    QByteArray error;              //!< its name; empty: the call was answered
    QString text;                  //!< of the error

    [[nodiscard]] bool isDone() const { return error.isEmpty(); }
    //! Whether whoever was called is not there.
    [[nodiscard]] bool isMissing() const;
};

/*!
 * Tells why a call has failed, behind what it was for. Where the bus refuses it the members
 * of \a group may do it, which is null where there is none.
 */
void tellFailure(const BusAnswer &failed, const QString &what, const char *group);

/*!
 * A message that has come; it keeps the bytes as they came, and a value is made of them when
 * it is asked for.
 */
class BusMessage
{
public:
    BusMessage(const BusLibrary &functions, DBusMessage *taken);
    ~BusMessage();
    Q_DISABLE_COPY_MOVE(BusMessage)

    [[nodiscard]] bool isSignal(const char *interface, const char *member) const;
    [[nodiscard]] const char *path() const; //!< null where it has none
    [[nodiscard]] const char *signature() const;
    //! A connection's unique name.
    [[nodiscard]] const char *sender() const;

    /*!
     * A text of more than this many bytes is cut. So long a text is left out of every
     * message (EventText::maxLength), cut or not.
     */
    static constexpr int mostText = 3 * 1048576 + 4;

    //! The first value; none where there is none.
    [[nodiscard]] std::optional<BusValue> first() const;
    /*!
     * Of a signal with the signature "iv": the number, and of the array in the variant the
     * values, as the daemon takes them (docs/dbus.md), but no more than so many.
     */
    [[nodiscard]] int statusValues(std::vector<BusValue> &values, size_t most) const;

private:
    const BusLibrary &library;
    DBusMessage *message;
};

/*!
 * A connection to the system bus of this command's own. Every call waits for its answer, at
 * most patience milliseconds, and starts nobody who is not there.
 */
class Bus
{
public:
    Bus() = default;
    ~Bus();
    Q_DISABLE_COPY_MOVE(Bus)

    static constexpr int patience = 10000; //!< milliseconds

    //! False where the bus cannot be reached; nothing is told.
    [[nodiscard]] bool open();
    //! The same, and a message is told.
    [[nodiscard]] bool openOrTell();
    //! The same where the daemon must be there, too.
    [[nodiscard]] bool openToDaemon();

    [[nodiscard]] bool hasOwner(const char *name);
    [[nodiscard]] BusAnswer call(const BusCall &call);
    /*!
     * Announces a status change to everybody; it is on its way when this returns. False where
     * the bus does not pass it on, also to the sender itself, as it is not allowed.
     */
    [[nodiscard]] bool announce(const QByteArray &path, int eventId,
                                const std::vector<BusValue> &values);

    //! Asks for the status changes of everybody from now on.
    [[nodiscard]] BusAnswer listen();
    //! The descriptor to wait at for messages, together with read().
    [[nodiscard]] int descriptor() const;
    //! Reads what has come, waiting for nothing; false once the bus has gone.
    [[nodiscard]] bool read();
    //! Takes the next message out of what has been read; null where there is none.
    [[nodiscard]] std::unique_ptr<BusMessage> take();

private:
    [[nodiscard]] bool authenticate();
    BusAnswer callBus(const char *method, std::vector<BusValue> arguments);
    [[nodiscard]] BusAnswer addMatch(const QByteArray &rule);
    [[nodiscard]] std::unique_ptr<BusMessage> waitFor(DBusMessage *call, BusAnswer &answer);

    const BusLibrary *library = nullptr;
    DBusConnection *connection = nullptr;
    QByteArray ownName;
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

/*!
 * A message bus of the test's own that stands in for the system bus: of this
 * process, from its first use of QDBusConnection::systemBus() on, and of every
 * process started later. Limits are the defaults of a system bus; everybody may
 * do everything. It is dbus-daemon, or the dbus-broker that the environment variable
 * SEL_DBUS_BROKER names.
 */
class TestBus
{
public:
    TestBus();
    ~TestBus();
    Q_DISABLE_COPY_MOVE(TestBus)

    [[nodiscard]] QString address() const { return busAddress; }
    /*!
     * From now on the bus answers a method of its own, such as AddMatch, with an error,
     * whoever calls it. An empty name: none. Not for dbus-broker.
     */
    void refuse(const QString &method);
    /*!
     * From now on the bus has one limit that is not the default, such as
     * max_connections_per_user. An empty name: none.
     */
    void limit(const QString &name, int most);
    //! Ends the bus by a signal, before its time.
    void end(int signal);

private:
    void writeConfiguration();
    void reload();

    QTemporaryDir folder;
    QProcess daemon;
    QString busAddress;
    QString rule;
    QString limits;
};

//! How long to wait for a peer, in milliseconds; a sanitized or emulated one on a busy machine
//! is slow.
constexpr int busPatience = 120000;

/*!
 * Calls a method and keeps the event loop alive meanwhile, for services of the test's
 * own. (Qt's way, BlockWithGui, now and then misses a reply that comes at
 * once.)
 */
QDBusMessage callAndServe(const QDBusConnection &connection, const QDBusMessage &message);

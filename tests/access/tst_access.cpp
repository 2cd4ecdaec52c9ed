// SPDX-License-Identifier: Apache-2.0

// Who may do what on the system bus: every kind of user tries every kind of message, and
// the effect is looked at. The bus is the distribution's own with the installed policy,
// and the daemon runs as its user. Needs root and to run under system-bus-device.

#include "ctl/ctlprocess.h"
#include "support/device.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QTest>
#include <QUdpSocket>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace
{

const QString service = "com.tovel.systemeventlogger"_s;
const QString configService = "com.tovel.fwconfig"_s;
const QString logNode = "/system/eventlog"_s;
const QString logInterface = "local.LogManager"_s;
const QString propertiesInterface = "org.freedesktop.DBus.Properties"_s;
const QString noInterface;

const QString done = "done"_s;
const QString refused = "refused"_s;

QString socketAddress()
{
    return QString::fromLocal8Bit(qgetenv("DBUS_SYSTEM_BUS_ADDRESS"));
}

//! The system bus as the distribution sets it up.
class SystemBus
{
public:
    SystemBus()
    {
        process.start(
            "dbus-daemon"_s,
            {"--system"_s, "--nofork"_s, "--nopidfile"_s, "--nosyslog"_s, "--print-address"_s});
        if (!process.waitForReadyRead(busPatience)) {
            qFatal("dbus-daemon does not start: %s", process.readAllStandardError().constData());
        }
    }
    ~SystemBus()
    {
        process.kill();
        process.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(SystemBus)

    //! What it has complained of: among others, what it cannot use of its configuration.
    QString complaints() { return QString::fromLocal8Bit(process.readAllStandardError()); }

private:
    QProcess process;
};

const passwd &account(const QByteArray &user)
{
    const passwd *const entry = getpwnam(user.constData());
    if (!entry) {
        qFatal("no user %s", user.constData());
    }
    return *entry;
}

std::vector<gid_t> groupsOf(const QByteArray &user)
{
    int count = 100;
    std::vector<gid_t> groups(std::size_t(count), 0);
    if (getgrouplist(user.constData(), account(user).pw_gid, groups.data(), &count) < 0) {
        qFatal("too many groups");
    }
    groups.resize(std::size_t(count));
    return groups;
}

void become(uid_t uid, gid_t gid, const std::vector<gid_t> &groups)
{
    // Root again first: only root may change the rest.
    if (seteuid(0) != 0 || setgroups(groups.size(), groups.data()) != 0 || setegid(gid) != 0
        || seteuid(uid) != 0) {
        qFatal("cannot become user %u", uid);
    }
}

/*!
 * A connection of another user. The bus goes by what the kernel notes about a socket when
 * it is connected, so one process can hold connections of several users.
 */
QDBusConnection connectAs(const QByteArray &user, const QString &name)
{
    const passwd &entry = account(user);
    become(entry.pw_uid, entry.pw_gid, groupsOf(user));
    QDBusConnection connection = QDBusConnection::connectToBus(socketAddress(), name);
    become(0, 0, {});
    if (!connection.isConnected()) {
        qFatal("%s cannot connect to the bus", user.constData());
    }
    return connection;
}

QDBusMessage busCall(const QString &method, const QVariantList &arguments = {})
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        "org.freedesktop.DBus"_s, "/org/freedesktop/DBus"_s, "org.freedesktop.DBus"_s, method);
    message.setArguments(arguments);
    return message;
}

//! Has the bus deal with everything a connection has sent so far.
void settle(const QDBusConnection &connection)
{
    if (callAndServe(connection, busCall("GetId"_s)).type() != QDBusMessage::ReplyMessage) {
        qFatal("the bus does not answer");
    }
}

//! What somebody does on a connection; returns what came of it.
using Action = std::function<QString(const QDBusConnection &)>;

//! Whether a call was answered, refused by the bus, or else the name of the error.
QString outcome(const QDBusConnection &who, const QDBusMessage &message)
{
    const QDBusMessage reply = callAndServe(who, message);
    if (reply.type() == QDBusMessage::ReplyMessage) {
        return done;
    }
    const bool byTheBus = reply.service() == "org.freedesktop.DBus"_s;
    const bool denied = reply.errorName() == "org.freedesktop.DBus.Error.AccessDenied"_s;
    return byTheBus && denied ? refused : reply.errorName() + ": "_s + reply.errorMessage();
}

Action calling(const QString &name, const QString &path, const QString &interface,
               const QString &member, const QVariantList &arguments)
{
    return [=](const QDBusConnection &who) {
        QDBusMessage message = QDBusMessage::createMethodCall(name, path, interface, member);
        message.setArguments(arguments);
        return outcome(who, message);
    };
}

//! Such an answer with the effect looked at: the two must agree.
QString confirmed(const QString &answer, bool hadEffect)
{
    if (answer == (hadEffect ? done : refused)) {
        return answer;
    }
    return answer + (hadEffect ? ", but with effect"_s : ", but without effect"_s);
}

enum class Right { Read, Change, Emit, Own, Store, None };

struct Who {
    const char *name;
    QByteArray user;
    QList<Right> rights;
};

//! The table of the documents.
QList<Who> everybody()
{
    return {
        {"root", "root", {Right::Read, Right::Change, Right::Emit}},
        {"an administrator", "admin", {Right::Read, Right::Change}},
        {"a status service", "status", {Right::Read, Right::Emit}},
        {"a status service by its primary group",
         "status-by-primary-group",
         {Right::Read, Right::Emit}},
        {"an ordinary user", "ordinary", {Right::Read}},
        {"the service user", qgetenv("SEL_USER"), {Right::Read, Right::Own, Right::Store}},
    };
}

//! Notes the status changes that reach somebody else on the bus.
class Listener : public QObject
{
    Q_OBJECT

public:
    QList<int> ids;

public Q_SLOTS:
    void hear(int id, const QDBusVariant & /*values*/) { ids.append(id); }
};

} // namespace

Q_DECLARE_METATYPE(Action)

class AccessTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void busAcceptsThePolicy();
    void busSeesEachUser();
    void daemonRunsAsItsUserWithItsSettings();
    void matrix_data();
    void matrix();
    void toolNamesTheGroup_data();
    void toolNamesTheGroup();
    void rulesHoldForTheDaemonAlone_data();
    void rulesHoldForTheDaemonAlone();
    void anotherInterfaceDoesNotHelp();
    void documentedLoosening_data();
    void documentedLoosening();
    void rulesByDestination_data();
    void rulesByDestination();
    void rootCannotRunTheDaemon();

private:
    struct What {
        const char *name;
        Right right;
        Action action;
    };

    [[nodiscard]] QList<What> everything();
    [[nodiscard]] QList<What> readings() const;
    [[nodiscard]] QList<What> changes();
    [[nodiscard]] QList<What> emissions();
    [[nodiscard]] static QList<What> ownings();
    [[nodiscard]] static QList<What> storings();

    //! How a message is addressed.
    enum class To { Name, UniqueName, Everybody };
    enum class Reply { Wanted, Unwanted };

    [[nodiscard]] QString address(To to) const { return to == To::UniqueName ? unique : service; }
    [[nodiscard]] Action reading(const QString &path, const QString &interface,
                                 const QString &member, const QVariantList &arguments = {},
                                 To to = To::Name) const;
    QString change(const QDBusConnection &who, const QDBusMessage &message, Reply reply,
                   const std::function<bool()> &hadEffect);
    QString set(const QDBusConnection &who, const QString &interface, Reply reply, To to);
    QString clear(const QDBusConnection &who, const QString &interface, Reply reply, To to);
    QString emitOther(const QDBusConnection &who, const QString &interface, const QString &member);
    QByteArray datagrams();
    [[nodiscard]] static bool addRules(const QByteArray &rules);
    QString emitToLog(const QDBusConnection &who, const QString &path, To to);
    QString emitChange(const QDBusConnection &who, const QString &path, To to);

    std::unique_ptr<SystemBus> bus;
    std::unique_ptr<Device> device;
    QHash<QByteArray, QDBusConnection> connections;
    Listener listener;
    QUdpSocket receiver;
    QString unique;
    int emissionsSoFar = 0;
};

void AccessTest::initTestCase()
{
    bus = std::make_unique<SystemBus>();
    device = std::make_unique<Device>();
    const passwd &user = account(qgetenv("SEL_USER"));
    QCOMPARE(chown("/srv/public", user.pw_uid, user.pw_gid), 0);
    QVERIFY(receiver.bind(QHostAddress("127.0.0.1"_s), 514));

    device->config.values = {{"SystemeventLogLocal"_s, "true"_s},
                             {"SystemeventLogNetwork"_s, "true"_s},
                             {"SystemeventLogNetworkaddress"_s, "127.0.0.1"_s},
                             {"SystemeventLogtail"_s, "5"_s}};
    QVERIFY2(device->start(), qPrintable(device->output()));

    for (const Who &who : everybody()) {
        connections.insert(who.user, connectAs(who.user, QString::fromLatin1(who.user)));
    }
    qRegisterMetaType<QDBusVariant>(); // or Qt 6 does not connect
    QDBusConnection other = connectAs("ordinary", "listener"_s);
    const QList<QPair<QString, QString>> signalNames{{"com.tovel.status"_s, "change"_s},
                                                     {"com.tovel.status"_s, "other"_s},
                                                     {"com.tovel.other"_s, "change"_s}};
    for (const auto &[interface, member] : signalNames) {
        QVERIFY(other.connect(QString(), QString(), interface, member, "iv"_s, &listener,
                              SLOT(hear(int, QDBusVariant))));
    }
    settle(other);
    const QDBusMessage owner
        = callAndServe(QDBusConnection::systemBus(), busCall("GetNameOwner"_s, {service}));
    unique = owner.arguments().value(0).toString();
    QVERIFY(unique.startsWith(QLatin1Char(':')));
}

void AccessTest::cleanupTestCase()
{
    device.reset();
}

void AccessTest::busAcceptsThePolicy()
{
    const QString complaints = bus->complaints();
    QVERIFY2(!complaints.contains("system.d"_s), qPrintable(complaints));
    QVERIFY2(!complaints.contains("Unknown"_s), qPrintable(complaints)); // a user or a group
}

void AccessTest::busSeesEachUser()
{
    for (const Who &who : everybody()) {
        const QDBusConnection connection = connections.value(who.user, QDBusConnection(QString()));
        const QDBusMessage reply = callAndServe(
            connection, busCall("GetConnectionCredentials"_s, {connection.baseService()}));
        const auto credentials = qdbus_cast<QVariantMap>(reply.arguments().value(0));
        QCOMPARE(credentials.value("UnixUserID"_s).toUInt(), account(who.user).pw_uid);
        auto groups = qdbus_cast<QList<uint>>(credentials.value("UnixGroupIDs"_s));
        auto expected = groupsOf(who.user);
        std::sort(groups.begin(), groups.end());
        std::sort(expected.begin(), expected.end());
        QCOMPARE(groups, QList<uint>(expected.begin(), expected.end()));
    }
}

void AccessTest::daemonRunsAsItsUserWithItsSettings()
{
    const QDBusMessage reply
        = callAndServe(QDBusConnection::systemBus(), busCall("GetConnectionUnixUser"_s, {service}));
    QCOMPARE(reply.arguments().value(0).toUInt(), account(qgetenv("SEL_USER")).pw_uid);
    QCOMPARE(device->property("logtail"_s).toInt(), 5);

    device->config.calls.clear();
    QVERIFY(device->setProperty("logtail"_s, 6));
    const QStringList stored{"set SystemeventLogtail=6"_s, "save"_s};
    QTRY_COMPARE_WITH_TIMEOUT(device->config.calls, stored, busPatience);
}

void AccessTest::matrix_data()
{
    QTest::addColumn<QByteArray>("user");
    QTest::addColumn<Action>("action");
    QTest::addColumn<QString>("expected");
    for (const What &what : everything()) {
        for (const Who &who : everybody()) {
            const bool may = who.rights.contains(what.right);
            QTest::addRow("%s may%s %s", who.name, may ? "" : " not", what.name)
                << who.user << what.action << (may ? done : refused);
        }
    }
}

void AccessTest::matrix()
{
    QFETCH(const QByteArray, user);
    QFETCH(const Action, action);
    QFETCH(const QString, expected);
    QCOMPARE(action(connections.value(user, QDBusConnection(QString()))), expected);
}

QList<AccessTest::What> AccessTest::everything()
{
    return readings() + changes() + emissions() + ownings() + storings();
}

QList<AccessTest::What> AccessTest::readings() const
{
    const QString introspectable = "org.freedesktop.DBus.Introspectable"_s;
    const QString peer = "org.freedesktop.DBus.Peer"_s;
    const QString introspect = "Introspect"_s;
    const QVariantList all{quint64(0), QVariant::fromValue(~quint64(0))};
    const QVariantList allInEnglish = all + QVariantList{"en"_s};
    const QVariantList logtail{logInterface, "logtail"_s};
    const QVariantList githash{"local.Version"_s, "githash"_s};
    const Right read = Right::Read;
    return {
        {"introspect the root", read, reading("/"_s, introspectable, introspect)},
        {"introspect the log", read, reading(logNode, introspectable, introspect)},
        {"introspect the version", read, reading("/version"_s, introspectable, introspect)},
        // Nobody's client does; the rule for everyone names the interface.
        {"introspect without interface", Right::Change, reading(logNode, noInterface, introspect)},
        {"ping", read, reading(logNode, peer, "Ping"_s)},
        {"ask for the machine id", read, reading(logNode, peer, "GetMachineId"_s)},
        {"Get a setting", read, reading(logNode, propertiesInterface, "Get"_s, logtail)},
        {"Get a setting without interface", read, reading(logNode, noInterface, "Get"_s, logtail)},
        {"Get a setting by the unique name", read,
         reading(logNode, propertiesInterface, "Get"_s, logtail, To::UniqueName)},
        {"Get the version", read, reading("/version"_s, propertiesInterface, "Get"_s, githash)},
        {"GetAll settings", read,
         reading(logNode, propertiesInterface, "GetAll"_s, {logInterface})},
        {"GetAll settings without interface", read,
         reading(logNode, noInterface, "GetAll"_s, {logInterface})},
        {"GetAll of the version", read,
         reading("/version"_s, propertiesInterface, "GetAll"_s, {"local.Version"_s})},
        {"call jsonLogfile", read, reading(logNode, logInterface, "jsonLogfile"_s, all)},
        {"call jsonLogfile with a language", read,
         reading(logNode, logInterface, "jsonLogfile"_s, allInEnglish)},
        {"call jsonLogfile without interface", read,
         reading(logNode, noInterface, "jsonLogfile"_s, allInEnglish)},
        {"call getMinLogNr", read, reading(logNode, logInterface, "getMinLogNr"_s)},
        {"call getMinLogNr without interface", read,
         reading(logNode, noInterface, "getMinLogNr"_s)},
        {"call getMaxLogNr", read, reading(logNode, logInterface, "getMaxLogNr"_s)},
        {"call getMaxLogNr without interface", read,
         reading(logNode, noInterface, "getMaxLogNr"_s)},
        {"call allValues", read, reading(logNode, logInterface, "allValues"_s)},
        {"call allValues without interface", read, reading(logNode, noInterface, "allValues"_s)},
    };
}

Action AccessTest::reading(const QString &path, const QString &interface, const QString &member,
                           const QVariantList &arguments, To to) const
{
    return [=](const QDBusConnection &who) {
        return calling(address(to), path, interface, member, arguments)(who);
    };
}

QList<AccessTest::What> AccessTest::changes()
{
    const auto setting = [this](const QString &interface, Reply reply, To to) -> Action {
        return [=](const QDBusConnection &who) { return set(who, interface, reply, to); };
    };
    const auto clearing = [this](const QString &interface, Reply reply, To to) -> Action {
        return [=](const QDBusConnection &who) { return clear(who, interface, reply, to); };
    };
    const QString &properties = propertiesInterface;
    const Right right = Right::Change;
    return {
        {"Set", right, setting(properties, Reply::Wanted, To::Name)},
        {"Set without interface", right, setting(noInterface, Reply::Wanted, To::Name)},
        {"Set without reply", right, setting(properties, Reply::Unwanted, To::Name)},
        {"Set without interface and reply", right, setting(noInterface, Reply::Unwanted, To::Name)},
        {"Set by the unique name", right, setting(properties, Reply::Wanted, To::UniqueName)},
        {"Set by the unique name without interface and reply", right,
         setting(noInterface, Reply::Unwanted, To::UniqueName)},
        {"clear the log", right, clearing(logInterface, Reply::Wanted, To::Name)},
        {"clear the log without interface", right, clearing(noInterface, Reply::Wanted, To::Name)},
        {"clear the log without reply", right, clearing(logInterface, Reply::Unwanted, To::Name)},
        {"clear the log without interface and reply", right,
         clearing(noInterface, Reply::Unwanted, To::Name)},
        {"clear the log by the unique name", right,
         clearing(logInterface, Reply::Wanted, To::UniqueName)},
        {"clear the log by the unique name without interface and reply", right,
         clearing(noInterface, Reply::Unwanted, To::UniqueName)},
    };
}

QString AccessTest::change(const QDBusConnection &who, const QDBusMessage &message, Reply reply,
                           const std::function<bool()> &hadEffect)
{
    if (reply == Reply::Wanted) {
        const QString answer = outcome(who, message);
        return confirmed(answer, hadEffect());
    }
    (void)who.send(message); // marks it as one that wants no reply
    settle(who);
    return hadEffect() ? done : refused;
}

QString AccessTest::set(const QDBusConnection &who, const QString &interface, Reply reply, To to)
{
    const int before = device->property("logtail"_s).toInt();
    const int wanted = before == 7 ? 8 : 7;
    QDBusMessage message = QDBusMessage::createMethodCall(address(to), logNode, interface, "Set"_s);
    message << logInterface << "logtail"_s
            << QVariant::fromValue(QDBusVariant(QVariant::fromValue(wanted)));
    return change(who, message, reply, [&] { return device->property("logtail"_s) == wanted; });
}

QString AccessTest::clear(const QDBusConnection &who, const QString &interface, Reply reply, To to)
{
    const auto empty = [this] { return device->result("getMaxLogNr"_s).toULongLong() == 0; };
    if (empty() && !device->fillBundle()) {
        return "nothing to clear"_s;
    }
    return change(
        who, QDBusMessage::createMethodCall(address(to), logNode, interface, "clearLogfiles"_s),
        reply, empty);
}

QList<AccessTest::What> AccessTest::emissions()
{
    const auto emission = [this](const QString &path, To to) -> Action {
        return [=](const QDBusConnection &who) { return emitChange(who, path, to); };
    };
    const QString path = "/power/supply"_s;
    const Right right = Right::Emit;
    return {
        {"emit", right, emission(path, To::Everybody)},
        {"emit from the root path", right, emission("/"_s, To::Everybody)},
        {"emit from the log's path", right, emission(logNode, To::Everybody)},
        {"emit to the daemon alone", right, emission(path, To::Name)},
        {"emit to the daemon's unique name", right, emission(path, To::UniqueName)},
        {"emit to the daemon from the log's path", right, emission(logNode, To::Name)},
        {"emit another signal of the interface", Right::Read,
         [this](const QDBusConnection &who) {
             return emitOther(who, "com.tovel.status"_s, "other"_s);
         }},
        {"emit another interface's signal", Right::Read,
         [this](const QDBusConnection &who) {
             return emitOther(who, "com.tovel.other"_s, "change"_s);
         }},
    };
}

//! Everything the daemon has sent since the last time.
QByteArray AccessTest::datagrams()
{
    QByteArray all;
    while (receiver.hasPendingDatagrams()) {
        QByteArray datagram(int(receiver.pendingDatagramSize()), '\0');
        receiver.readDatagram(datagram.data(), datagram.size());
        all += datagram;
    }
    return all;
}

//! A status change; whether it reached the daemon.
QString AccessTest::emitToLog(const QDBusConnection &who, const QString &path, To to)
{
    const QString interface = "com.tovel.status"_s;
    QDBusMessage signal = to == To::Everybody
        ? QDBusMessage::createSignal(path, interface, "change"_s)
        : QDBusMessage::createTargetedSignal(address(to), path, interface, "change"_s);
    const QString text = "number %1."_s.arg(++emissionsSoFar);
    signal << 1002 << QVariant::fromValue(QDBusVariant(QVariantList{text}));
    (void)datagrams();
    listener.ids.clear();
    (void)who.send(signal);
    settle(who);

    // One that is allowed in any case shows that nothing else was in the way.
    const QByteArray control = "control " + QByteArray::number(emissionsSoFar);
    device->change("/control"_s, 1002, {QString::fromLatin1(control)});
    device->settle();
    settle(QDBusConnection("listener"_s));
    const QByteArray arrived = datagrams();
    if (!arrived.contains(control) || listener.ids.isEmpty()) {
        return "the control event did not arrive"_s;
    }
    return arrived.contains(text.toLatin1()) ? done : refused;
}

//! The same, and where all were meant, the listener has to hear what the daemon does.
QString AccessTest::emitChange(const QDBusConnection &who, const QString &path, To to)
{
    const QString answer = emitToLog(who, path, to);
    return to == To::Everybody ? confirmed(answer, listener.ids.size() == 2) : answer;
}

//! A signal that is none of ours; whether the listener hears it.
QString AccessTest::emitOther(const QDBusConnection &who, const QString &interface,
                              const QString &member)
{
    QDBusMessage signal = QDBusMessage::createSignal("/power/supply"_s, interface, member);
    signal << 1 << QVariant::fromValue(QDBusVariant(0));
    listener.ids.clear();
    (void)who.send(signal);
    settle(who);
    settle(QDBusConnection("listener"_s));
    return listener.ids.isEmpty() ? refused : done;
}

QList<AccessTest::What> AccessTest::ownings()
{
    constexpr uint queue = 0;
    constexpr uint replaceOrFail = 2 | 4;
    const auto owning = [](const QString &name, uint flags) -> Action {
        return [=](const QDBusConnection &who) {
            QString answer = outcome(who, busCall("RequestName"_s, {name, flags}));
            (void)callAndServe(who, busCall("ReleaseName"_s, {name}));
            return answer;
        };
    };
    return {
        {"request the name", Right::Own, owning(service, replaceOrFail)},
        {"queue for the name", Right::Own, owning(service, queue)},
        {"request another name", Right::None, owning(service + "2"_s, queue)},
    };
}

QList<AccessTest::What> AccessTest::storings()
{
    const QString path = "/systemvariables"_s;
    const QString interface = "com.tovel.fwconfig.SystemVariables"_s;
    const auto storing = [](const QString &node, const QString &of, const QString &member,
                            const QVariantList &arguments) {
        return calling(configService, node, of, member, arguments);
    };
    const QVariantList key{"key"_s};
    const QVariantList keyAndValue{"key"_s, "value"_s};
    return {
        {"read a stored setting", Right::Store, storing(path, interface, "getTrimmed"_s, key)},
        {"store a setting", Right::Store, storing(path, interface, "set"_s, keyAndValue)},
        {"save the settings", Right::Store, storing(path, interface, "save"_s, {})},
        {"read a stored setting without interface", Right::None,
         storing(path, noInterface, "getTrimmed"_s, key)},
        {"store a setting without interface", Right::None,
         storing(path, noInterface, "set"_s, keyAndValue)},
        {"save the settings without interface", Right::None,
         storing(path, noInterface, "save"_s, {})},
        {"read from another object", Right::None,
         storing("/other"_s, interface, "getTrimmed"_s, key)},
        {"store in another object", Right::None,
         storing("/other"_s, interface, "set"_s, keyAndValue)},
        {"save another object", Right::None, storing("/other"_s, interface, "save"_s, {})},
        {"call the configuration service otherwise", Right::None,
         storing(path, interface, "reset"_s, {})},
    };
}

//! The tool of each user: what it does, and of what it is refused whom it sends him to.
void AccessTest::toolNamesTheGroup_data()
{
    QTest::addColumn<QByteArray>("user");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("refusal");
    const QByteArray because = ": refused by the bus; root may do it, and members of the group ";
    const QByteArray admins = because + qgetenv("SEL_ADMIN_GROUP");
    const QByteArray services = because + qgetenv("SEL_STATUS_GROUP");
    const auto row = [](const Who &who, Right right, const char *what, const QString &line,
                        const QByteArray &refusal) {
        const bool may = who.rights.contains(right);
        QTest::addRow("%s may%s %s", who.name, may ? "" : " not", what)
            << who.user << line << (may ? QByteArray() : "systemeventctl: " + refusal + '\n');
    };
    for (const Who &who : everybody()) {
        row(who, Right::Read, "see the settings by the tool", "settings -q"_s, {});
        row(who, Right::Change, "set by the tool", "settings logtail 9"_s,
            "logtail is not changed" + admins);
        row(who, Right::Change, "clear by the tool", "clear --yes"_s,
            "the log is not cleared" + admins);
        row(who, Right::Emit, "emit by the tool", "emit message by-the-tool"_s,
            "nothing is announced" + services);
    }
}

void AccessTest::toolNamesTheGroup()
{
    QFETCH(const QByteArray, user);
    QFETCH(const QString, line);
    QFETCH(const QByteArray, refusal);
    const bool isDone = refusal.isEmpty();
    QVERIFY(device->setProperty("logtail"_s, 8));
    QVERIFY(device->fillBundle());
    (void)datagrams();
    // Where what runs is counted, only root may add to the counters: others have theirs.
    const CtlRun run
        = runShell("GCOV_PREFIX=$(mktemp -d) && export GCOV_PREFIX && chmod a+rwx \"$GCOV_PREFIX\";"
                   " setpriv --reuid %1 --regid %2 --init-groups \"$CTL\" %3; status=$?;"
                   " rm -rf \"$GCOV_PREFIX\"; exit $status"_s.arg(account(user).pw_uid)
                       .arg(account(user).pw_gid)
                       .arg(line));
    QCOMPARE(run.errors, refusal);
    QCOMPARE(run.status, isDone ? 0 : 4);
    device->settle();
    const auto isThis
        = [&](const char *command) { return isDone && line.startsWith(QLatin1String(command)); };
    QCOMPARE(device->property("logtail"_s).toInt(), isThis("settings logtail") ? 9 : 8);
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong() == 0, isThis("clear"));
    QCOMPARE(datagrams().contains("Message by-the-tool"), isThis("emit"));
}

//! What may be called here may not be called elsewhere because of it.
void AccessTest::rulesHoldForTheDaemonAlone_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("member");
    const auto row = [](const QString &name, const QString &path, const QString &interface,
                        const QString &member) {
        QTest::addRow("%s of %s at %s", qPrintable(member), qPrintable(name), qPrintable(path))
            << name << path << interface << member;
    };
    row(configService, "/"_s, "org.freedesktop.DBus.Introspectable"_s, "Introspect"_s);
    row(configService, "/"_s, "org.freedesktop.DBus.Peer"_s, "Ping"_s);
    row(configService, "/"_s, "org.freedesktop.DBus.Peer"_s, "GetMachineId"_s);
    for (const char *member :
         {"Get", "GetAll", "allValues", "getMinLogNr", "getMaxLogNr", "jsonLogfile"}) {
        row(configService, logNode, noInterface, QString::fromLatin1(member));
    }
    row(configService, "/version"_s, noInterface, "Get"_s);
    row(configService, "/version"_s, noInterface, "GetAll"_s);
    for (const char *member : {"getTrimmed", "set", "save"}) {
        row("org.freedesktop.DBus"_s, "/systemvariables"_s, "com.tovel.fwconfig.SystemVariables"_s,
            QString::fromLatin1(member));
    }
}

void AccessTest::rulesHoldForTheDaemonAlone()
{
    QFETCH(const QString, name);
    QFETCH(const QString, path);
    QFETCH(const QString, interface);
    QFETCH(const QString, member);
    const Action call = calling(name, path, interface, member, {});
    for (const Who &who : everybody()) {
        QCOMPARE(call(connections.value(who.user, QDBusConnection(QString()))), refused);
    }
}

//! Nor does another object.
void AccessTest::anotherInterfaceDoesNotHelp()
{
    const QDBusConnection ordinary = connections.value("ordinary", QDBusConnection(QString()));
    for (const char *name :
         {"org.freedesktop.DBus.Peer", "org.freedesktop.DBus.Introspectable", "com.tovel.any"}) {
        const QString interface = QString::fromLatin1(name);
        QCOMPARE(set(ordinary, interface, Reply::Wanted, To::Name), refused);
        QCOMPARE(clear(ordinary, interface, Reply::Wanted, To::Name), refused);
    }
    for (const QString &path : {"/"_s, "/system"_s, "/version"_s}) {
        QCOMPARE(calling(service, path, propertiesInterface, "Set"_s, {})(ordinary), refused);
        QCOMPARE(calling(service, path, logInterface, "jsonLogfile"_s, {})(ordinary), refused);
    }
}

//! Of the device, instead of those that were added before; none where they are empty.
bool AccessTest::addRules(const QByteArray &rules)
{
    QFile file("/etc/dbus-1/system.d/device.conf"_s);
    if (rules.isEmpty() ? !file.remove()
                        : !file.open(QIODevice::WriteOnly) || file.write(rules) != rules.size()) {
        return false;
    }
    file.close();
    return callAndServe(QDBusConnection::systemBus(), busCall("ReloadConfig"_s)).type()
        == QDBusMessage::ReplyMessage;
}

void AccessTest::documentedLoosening_data()
{
    QTest::addColumn<QByteArray>("rules");
    QFile page(QString::fromLocal8Bit(qgetenv("SEL_SOURCE_DIR")) + "/docs/access.md"_s);
    QVERIFY(page.open(QIODevice::ReadOnly));
    const QStringList parts = QString::fromUtf8(page.readAll()).split("```xml\n"_s);
    QCOMPARE(parts.size(), 3);
    const auto rules = [&parts](int index) { return parts[index].section("```"_s, 0, 0).toUtf8(); };
    QTest::newRow("everyone may emit") << rules(1);
    QVERIFY(rules(2).contains("\"clockd\""));
    QTest::newRow("one user more may emit") << rules(2).replace("clockd", "ordinary");
}

void AccessTest::documentedLoosening()
{
    QFETCH(const QByteArray, rules);
    const QDBusConnection ordinary = connections.value("ordinary", QDBusConnection(QString()));
    QVERIFY(addRules(rules));
    QCOMPARE(emitChange(ordinary, "/clock"_s, To::Everybody), done);
    QCOMPARE(emitChange(ordinary, "/clock"_s, To::Name), done);
    QCOMPARE(set(ordinary, propertiesInterface, Reply::Wanted, To::Name), refused);

    QVERIFY(addRules({}));
    QCOMPARE(emitChange(ordinary, "/clock"_s, To::Everybody), refused);
}

//! They hold for what is announced to everybody, too, as the daemon is one of them.
void AccessTest::rulesByDestination_data()
{
    QTest::addColumn<QByteArray>("user");
    QTest::addColumn<QByteArray>("rules");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const char *user, const char *block, const char *lines,
                        const QString &expected) {
        QByteArray rules = QByteArray("<busconfig>\n<policy ") + block + ">\n" + lines
            + "\n</policy>\n</busconfig>\n";
        QTest::newRow(name) << QByteArray(user) << rules.replace("DAEMON", service.toLatin1())
                            << expected;
    };
    const char *const all = "context=\"default\"";
    const char *const allow = R"(<allow send_destination="DAEMON"/>)";
    row("everyone is allowed towards the daemon alone", "ordinary", all,
        R"(<deny send_type="signal"/><allow send_destination="DAEMON"/>)", done);
    row("everyone is denied towards the daemon alone", "ordinary", all,
        R"(<allow send_type="signal"/><deny send_destination="DAEMON" send_type="signal"/>)",
        refused);
    row("one user is allowed", "ordinary", "user=\"ordinary\"", allow, done);
    row("one user is allowed signals", "ordinary", "user=\"ordinary\"",
        R"(<allow send_destination="DAEMON" send_type="signal"/>)", done);
    row("one user is allowed the interface", "ordinary", "user=\"ordinary\"",
        R"(<allow send_destination="DAEMON" send_interface="com.tovel.status"/>)", done);
    row("one user is allowed by the beginning of the name", "ordinary", "user=\"ordinary\"",
        R"(<allow send_destination_prefix="com.tovel"/>)", done);
    row("one user is allowed, another is not", "admin", "user=\"ordinary\"", allow, refused);
    row("one user is denied", "status", "user=\"status\"", R"(<deny send_destination="DAEMON"/>)",
        refused);
    row("one user is denied signals", "status", "user=\"status\"",
        R"(<deny send_destination="DAEMON" send_type="signal"/>)", refused);
    row("one user is denied, another is not", "status-by-primary-group", "user=\"status\"",
        R"(<deny send_destination="DAEMON"/>)", done);
    row("one user is allowed while everyone is denied", "ordinary",
        R"(context="default"><deny send_destination="DAEMON"/></policy><policy user="ordinary")",
        allow, done);
    row("another name is denied", "status", "user=\"status\"",
        R"(<deny send_destination="DAEMON2"/>)", done);
}

void AccessTest::rulesByDestination()
{
    QFETCH(const QByteArray, user);
    QFETCH(const QByteArray, rules);
    QFETCH(const QString, expected);
    const QDBusConnection who = connections.value(user, QDBusConnection(QString()));
    QVERIFY(addRules(rules));
    const QString toAll = emitToLog(who, "/clock"_s, To::Everybody);
    const QString toName = emitToLog(who, "/clock"_s, To::Name);
    QVERIFY(addRules({}));
    QCOMPARE(toAll, expected);
    QCOMPARE(toName, expected);
}

//! The name is free, and root does not get it.
void AccessTest::rootCannotRunTheDaemon()
{
    device->stop();
    qputenv("SEL_DAEMON", "/run/daemon");
    device->launch();
    QCOMPARE(device->waitForEnd(), "abort"_s);
    QCOMPARE(device->outputLines("Registering dbus connection failed."_s).size(), 1);
}

QTEST_GUILESS_MAIN(AccessTest)
#include "tst_access.moc"

// SPDX-License-Identifier: Apache-2.0
#include "ctl/bus.h"

#include "ctl/busname.h"
#include "ctl/messages.h"

#include <QStringList>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>
#include <utility>

namespace
{

//! Where the system bus is unless DBUS_SYSTEM_BUS_ADDRESS says otherwise.
constexpr char usualAddress[] = "unix:path=/var/run/dbus/system_bus_socket";
constexpr long mostUnread = 1048576; // bytes read ahead; the bus keeps the rest

void require(BusLibrary::Bool isDone)
{
    if (isDone == 0) {
        throw std::bad_alloc(); // the library says no for no other reason
    }
}

//! Filled in by the library.
class Error
{
public:
    explicit Error(const BusLibrary &functions)
        : library(functions)
    {
    }
    ~Error() { library.freeError(&error); }
    Q_DISABLE_COPY_MOVE(Error)

    DBusError *get() { return &error; }
    [[nodiscard]] BusAnswer answer() const
    {
        BusAnswer failed;
        failed.error = error.name;
        failed.text = QString::fromUtf8(error.message);
        return failed;
    }

private:
    const BusLibrary &library;
    DBusError error{};
};

// Reading.

template <typename Number>
QVariant number(const BusLibrary &library, DBusMessageIter &at)
{
    Number value{};
    library.read(&at, &value);
    return QVariant::fromValue(value);
}

QString text(const BusLibrary &library, DBusMessageIter &at)
{
    const char *utf8 = nullptr;
    library.read(&at, static_cast<void *>(&utf8));
    return QString::fromUtf8(utf8, int(std::min(std::strlen(utf8), size_t(BusMessage::mostText))));
}

QVariant bytes(const BusLibrary &library, DBusMessageIter &at)
{
    DBusMessageIter inner{};
    library.enter(&at, &inner);
    const char *begin = nullptr;
    int count = 0;
    library.readFixedArray(&inner, static_cast<void *>(&begin), &count);
    return QByteArray(begin, std::min(count, BusMessage::mostText));
}

//! Of many texts no message shows any: the first ones tell that they are many.
QVariant texts(const BusLibrary &library, DBusMessageIter &at)
{
    constexpr int enough = 16;
    DBusMessageIter inner{};
    library.enter(&at, &inner);
    QStringList all;
    while (library.type(&inner) == 's' && all.size() < enough) {
        all.append(text(library, inner));
        (void)library.next(&inner);
    }
    return all;
}

QVariant array(const BusLibrary &library, DBusMessageIter &at)
{
    switch (library.elementType(&at)) {
    case 'y':
        return bytes(library, at);
    case 's':
        return texts(library, at);
    default:
        return {};
    }
}

QVariant innermostValue(const BusLibrary &library, DBusMessageIter &at)
{
    switch (library.type(&at)) {
    case 'b':
        return number<quint32>(library, at).toUInt() != 0;
    case 'y':
        return number<uchar>(library, at);
    case 'n':
        return number<short>(library, at);
    case 'q':
        return number<ushort>(library, at);
    case 'i':
        return number<int>(library, at);
    case 'u':
        return number<uint>(library, at);
    case 'x':
        return number<qlonglong>(library, at);
    case 't':
        return number<qulonglong>(library, at);
    case 'd':
        return number<double>(library, at);
    case 's':
    case 'o':
    case 'g':
        return text(library, at);
    case 'a':
        return array(library, at);
    default:
        return {};
    }
}

BusValue readValue(const BusLibrary &library, DBusMessageIter at)
{
    BusValue found;
    while (library.type(&at) == 'v') {
        found.type += 'v';
        DBusMessageIter inner{};
        library.enter(&at, &inner);
        at = inner;
    }
    char *const signature = library.signatureOf(&at);
    require(signature != nullptr ? 1 : 0);
    found.type += signature;
    library.release(signature);
    found.value = innermostValue(library, at);
    return found;
}

// Writing.

template <typename Number>
void append(const BusLibrary &library, DBusMessageIter &to, char type, Number value)
{
    require(library.append(&to, type, &value));
}

void appendText(const BusLibrary &library, DBusMessageIter &to, char type, const QByteArray &utf8)
{
    const char *const begin = utf8.constData();
    require(library.append(&to, type, static_cast<const void *>(&begin)));
}

void appendArray(const BusLibrary &library, DBusMessageIter &to, const BusValue &value)
{
    const std::string content(value.innermostType().substr(1));
    DBusMessageIter inner{};
    require(library.open(&to, 'a', content.c_str(), &inner));
    if (content == "y") {
        const QByteArray all = value.value.toByteArray();
        for (const char byte : all) {
            append(library, inner, 'y', byte);
        }
    } else {
        const QStringList all = value.value.toStringList();
        for (const QString &each : all) {
            appendText(library, inner, 's', each.toUtf8());
        }
    }
    require(library.closeContainer(&to, &inner));
}

void appendInnermost(const BusLibrary &library, DBusMessageIter &to, const BusValue &value)
{
    const char type = value.innermostType().front();
    switch (type) {
    case 'b':
        return append(library, to, type, quint32(value.value.toBool() ? 1 : 0));
    case 'y':
        return append(library, to, type, value.value.value<uchar>());
    case 'n':
        return append(library, to, type, value.value.value<short>());
    case 'q':
        return append(library, to, type, value.value.value<ushort>());
    case 'i':
        return append(library, to, type, value.value.toInt());
    case 'u':
        return append(library, to, type, value.value.toUInt());
    case 'x':
        return append(library, to, type, value.value.toLongLong());
    case 't':
        return append(library, to, type, value.value.toULongLong());
    case 'd':
        return append(library, to, type, value.value.toDouble());
    case 'a':
        return appendArray(library, to, value);
    default:
        return appendText(library, to, type, value.value.toString().toUtf8());
    }
}

//! \a type begins with what is still to be opened.
void appendValue(const BusLibrary &library, DBusMessageIter &to, const BusValue &value,
                 std::string_view type)
{
    if (type.front() != 'v') {
        appendInnermost(library, to, value);
        return;
    }
    type.remove_prefix(1);
    const std::string content = type.front() == 'v' ? std::string("v") : std::string(type);
    DBusMessageIter inner{};
    require(library.open(&to, 'v', content.c_str(), &inner));
    appendValue(library, inner, value, type);
    require(library.closeContainer(&to, &inner));
}

void appendValue(const BusLibrary &library, DBusMessageIter &to, const BusValue &value)
{
    appendValue(library, to, value, value.type);
}

void appendStatus(const BusLibrary &library, DBusMessage *signal, int eventId,
                  const std::vector<BusValue> &values)
{
    DBusMessageIter to{};
    DBusMessageIter variant{};
    DBusMessageIter list{};
    library.beginWriting(signal, &to);
    append(library, to, 'i', eventId);
    require(library.open(&to, 'v', "av", &variant));
    require(library.open(&variant, 'a', "v", &list));
    for (const BusValue &value : values) {
        appendValue(library, list, {'v' + value.type, value.value});
    }
    require(library.closeContainer(&variant, &list));
    require(library.closeContainer(&to, &variant));
}

} // namespace

bool BusAnswer::isMissing() const
{
    return error == "org.freedesktop.DBus.Error.ServiceUnknown"
        || error == "org.freedesktop.DBus.Error.NameHasNoOwner";
}

void tellFailure(const BusAnswer &failed, const QString &what, const char *group)
{
    QString reason = failed.text;
    if (failed.isMissing()) {
        reason = QStringLiteral("the daemon does not run");
    } else if (failed.error == "org.freedesktop.DBus.Error.AccessDenied") {
        reason = QStringLiteral("refused by the bus");
        if (group) {
            reason += QStringLiteral("; root may do it, and members of the group %1")
                          .arg(QLatin1String(group));
        }
    } else if (failed.error == "org.freedesktop.DBus.Error.NoReply") {
        reason = QStringLiteral("there is no answer");
    }
    Messages::tell(what + QStringLiteral(": ") + reason);
}

BusMessage::BusMessage(const BusLibrary &functions, DBusMessage *taken)
    : library(functions)
    , message(taken)
{
}

BusMessage::~BusMessage()
{
    library.forgetMessage(message);
}

bool BusMessage::isSignal(const char *interface, const char *member) const
{
    return library.isSignal(message, interface, member) != 0;
}

const char *BusMessage::path() const
{
    return library.path(message);
}

const char *BusMessage::signature() const
{
    return library.signature(message);
}

const char *BusMessage::sender() const
{
    return library.sender(message);
}

std::optional<BusValue> BusMessage::first() const
{
    DBusMessageIter at{};
    if (library.beginReading(message, &at) == 0) {
        return std::nullopt;
    }
    return readValue(library, at);
}

int BusMessage::statusValues(std::vector<BusValue> &values, size_t most) const
{
    values.clear();
    DBusMessageIter at{};
    (void)library.beginReading(message, &at);
    int eventId = 0;
    library.read(&at, &eventId);
    (void)library.next(&at);
    DBusMessageIter content{};
    library.enter(&at, &content);
    const int type = library.type(&content);
    if (type != 'a' && type != 'r') {
        return eventId;
    }
    DBusMessageIter element{};
    library.enter(&content, &element);
    for (; values.size() < most && library.type(&element) == 'v'; (void)library.next(&element)) {
        DBusMessageIter inner{};
        library.enter(&element, &inner);
        values.push_back(readValue(library, inner));
    }
    return eventId;
}

Bus::~Bus()
{
    if (connection) {
        library->close(connection);
        library->forget(connection);
    }
}

bool Bus::open()
{
    library = BusLibrary::get();
    if (!library) {
        return false;
    }
    const QByteArray address = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
    connection = library->connect(address.isEmpty() ? usualAddress : address.constData(), nullptr);
    if (!connection) {
        return false;
    }
    library->setMaxReceivedSize(connection, mostUnread);
    const BusAnswer hello = authenticate() ? callBus("Hello", {}) : BusAnswer();
    ownName = hello.value ? hello.value->value.toString().toLatin1() : QByteArray();
    return !ownName.isEmpty();
}

//! The library would wait for a mute bus without end.
bool Bus::authenticate()
{
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + milliseconds(patience);
    while (library->isAuthenticated(connection) == 0) {
        const auto left
            = std::chrono::duration_cast<milliseconds>(end - steady_clock::now()).count();
        if (left <= 0 || library->readWrite(connection, int(left)) == 0) {
            return false;
        }
    }
    return true;
}

bool Bus::openOrTell()
{
    const bool isOpen = open();
    if (!isOpen) {
        Messages::tell(library ? QStringLiteral("the system bus cannot be reached")
                               : QStringLiteral("the bus's library libdbus-1.so.3 is missing"));
    }
    return isOpen;
}

bool Bus::openToDaemon()
{
    if (!openOrTell()) {
        return false;
    }
    const bool isThere = hasOwner(BusName::daemon);
    if (!isThere) {
        Messages::tell(QStringLiteral("the daemon does not run; start it, with \"systemctl start "
                                      "systemeventlogger\""));
    }
    return isThere;
}

bool Bus::hasOwner(const char *name)
{
    const BusAnswer answer = callBus("NameHasOwner", {{"s", QLatin1String(name)}});
    return answer.value && answer.value->value.toBool();
}

BusAnswer Bus::callBus(const char *method, std::vector<BusValue> arguments)
{
    return call({"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
                 std::move(arguments)});
}

std::unique_ptr<BusMessage> Bus::waitFor(DBusMessage *call, BusAnswer &answer)
{
    const BusMessage sent(*library, call);
    library->setAutoStart(call, 0);
    Error error(*library);
    DBusMessage *const reply = library->sendAndWait(connection, call, patience, error.get());
    if (!reply) {
        answer = error.answer();
        return nullptr;
    }
    return std::make_unique<BusMessage>(*library, reply);
}

BusAnswer Bus::call(const BusCall &call)
{
    DBusMessage *const message = library->newCall(call.to, call.path, call.interface, call.method);
    require(message != nullptr ? 1 : 0);
    DBusMessageIter to{};
    library->beginWriting(message, &to);
    for (const BusValue &argument : call.arguments) {
        appendValue(*library, to, argument);
    }
    BusAnswer answer;
    if (const auto reply = waitFor(message, answer)) {
        answer.value = reply->first();
    }
    return answer;
}

BusAnswer Bus::addMatch(const QByteArray &rule)
{
    return callBus("AddMatch", {{"s", QString::fromLatin1(rule)}});
}

BusAnswer Bus::listen()
{
    return addMatch(QByteArray("type='signal',interface='") + BusName::statusInterface
                    + "',member='" + BusName::statusChange + '\'');
}

/*!
 * The bus tells nobody that it has kept a signal to itself. But it sends signals to their
 * sender, too, by the same rules; and what it sends, before it answers the sender's next call.
 */
bool Bus::announce(const QByteArray &path, int eventId, const std::vector<BusValue> &values)
{
    if (!addMatch("type='signal',sender='" + ownName + '\'').isDone()) {
        return false;
    }
    DBusMessage *const signal
        = library->newSignal(path.constData(), BusName::statusInterface, BusName::statusChange);
    require(signal != nullptr ? 1 : 0);
    const BusMessage sent(*library, signal);
    appendStatus(*library, signal, eventId, values);
    require(library->send(connection, signal, nullptr));
    (void)hasOwner(BusName::daemon);
    bool isPassedOn = false;
    while (const auto come = take()) {
        isPassedOn = isPassedOn
            || (come->isSignal(BusName::statusInterface, BusName::statusChange)
                && ownName == come->sender());
    }
    return isPassedOn;
}

int Bus::descriptor() const
{
    int number = -1;
    (void)library->descriptor(connection, &number);
    return number;
}

bool Bus::read()
{
    return library->readWrite(connection, 0) != 0;
}

std::unique_ptr<BusMessage> Bus::take()
{
    DBusMessage *const message = library->pop(connection);
    return message ? std::make_unique<BusMessage>(*library, message) : nullptr;
}

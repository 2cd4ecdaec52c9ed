// SPDX-License-Identifier: Apache-2.0
#include "intake/callwatch.h"

#include "intake/statussignal.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QEvent>
#include <QPointer>
#include <QSocketNotifier>
#include <QThread>
#include <QtDebug>

#include <map>
#include <memory>
#include <string_view>
#include <utility>

#include <dlfcn.h>

// The library's own, which nobody looks into.
struct DBusConnection;
struct DBusMessage;

//! What is taken of libdbus, which QtDBus has loaded; bool stands in it as a 32-bit number.
class BusFunctions
{
public:
    BusFunctions()
    {
        find("dbus_connection_read_write", readWrite);
        find("dbus_connection_borrow_message", borrow);
        find("dbus_connection_return_message", giveBack);
        find("dbus_connection_dispatch", dispatch);
        find("dbus_message_get_type", type);
        find("dbus_message_get_serial", serial);
        find("dbus_message_get_sender", sender);
        find("dbus_message_get_destination", destination);
        find("dbus_message_is_signal", isSignal);
        find("dbus_message_is_error", isError);
        find("dbus_message_get_reply_serial", answerTo);
        find("dbus_message_new_method_call", newCall);
        find("dbus_message_append_args", append);
        find("dbus_connection_send", send);
        find("dbus_message_unref", release);
    }

    [[nodiscard]] bool areThere() const { return all; }

    quint32 (*readWrite)(DBusConnection *, int milliseconds) = nullptr;
    DBusMessage *(*borrow)(DBusConnection *) = nullptr;
    void (*giveBack)(DBusConnection *, DBusMessage *) = nullptr;
    int (*dispatch)(DBusConnection *) = nullptr;
    int (*type)(DBusMessage *) = nullptr;
    quint32 (*serial)(DBusMessage *) = nullptr;
    const char *(*sender)(DBusMessage *) = nullptr;
    const char *(*destination)(DBusMessage *) = nullptr;
    quint32 (*isSignal)(DBusMessage *, const char *interface, const char *member) = nullptr;
    quint32 (*isError)(DBusMessage *, const char *name) = nullptr;
    quint32 (*answerTo)(DBusMessage *) = nullptr;
    DBusMessage *(*newCall)(const char *name, const char *path, const char *interface,
                            const char *method)
        = nullptr;
    quint32 (*append)(DBusMessage *, int firstType, ...) = nullptr;
    quint32 (*send)(DBusConnection *, DBusMessage *, quint32 *serial) = nullptr;
    void (*release)(DBusMessage *) = nullptr;

private:
    template <typename Found>
    void find(const char *name, Found *&found)
    {
        found = library != nullptr ? reinterpret_cast<Found *>(dlsym(library, name)) : nullptr;
        all = all && found != nullptr;
    }

    void *library = dlopen("libdbus-1.so.3", RTLD_NOW | RTLD_NOLOAD);
    bool all = true;
};

namespace
{

constexpr char theBus[] = "org.freedesktop.DBus";
constexpr int typeOfCalls = 1;         // DBUS_MESSAGE_TYPE_METHOD_CALL
constexpr int typeOfText = 's';        // DBUS_TYPE_STRING
constexpr int endOfTypes = 0;          // DBUS_TYPE_INVALID
constexpr int dispatchNeedsMemory = 2; // DBUS_DISPATCH_NEED_MEMORY

//! It is a child of the connection's core, as its interface object is.
QSocketNotifier *readNotifier(const QDBusConnection &bus)
{
    const auto *const interface = bus.interface();
    const auto all = interface != nullptr ? interface->parent()->findChildren<QSocketNotifier *>()
                                          : QList<QSocketNotifier *>();
    for (QSocketNotifier *const notifier : all) {
        if (notifier->type() == QSocketNotifier::Read) {
            return notifier;
        }
    }
    return nullptr;
}

} // namespace

//! Reads in QtDBus's place, in its thread.
class CallWatch::Pump : public QObject
{
public:
    Pump(void *bus, Listener toTell)
        : connection(static_cast<DBusConnection *>(bus))
        , listener(std::move(toTell))
    {
    }

    [[nodiscard]] bool canRead() const { return connection != nullptr && dbus.areThere(); }
    void begin(QSocketNotifier *watched)
    {
        notifier = watched;
        core = notifier->parent();
        notifier->installEventFilter(this);
    }
    //! In QtDBus's thread, as sending switches a notifier that lives there.
    void ask(quint32 question, const char *method, const std::string &text)
    {
        DBusMessage *const message = dbus.newCall(theBus, "/org/freedesktop/DBus", theBus, method);
        if (message == nullptr) {
            return;
        }
        const char *const argument = text.c_str();
        quint32 serial = 0;
        if (text.empty() || dbus.append(message, typeOfText, &argument, endOfTypes) != 0) {
            (void)dbus.send(connection, message, &serial);
        }
        dbus.release(message);
        questions[serial] = question;
        if (questions.size() > mostQuestions) {
            questions.erase(questions.begin()); // which has had no answer
        }
    }
    void keepReading()
    {
        if (notifier) {
            notifier->setEnabled(false);
            notifier->setEnabled(true);
        }
    }
    void end()
    {
        isEnded = true;
        if (notifier) {
            notifier->removeEventFilter(this);
        }
        deleteLater();
    }

protected:
    bool eventFilter(QObject *receiver, QEvent *event) override
    {
        if (event->type() != QEvent::SockAct) {
            return QObject::eventFilter(receiver, event);
        }
        // What QtDBus keeps back until the event loop runs comes before anything that is new; left
        // to itself it hands on first what it reads at that moment.
        QMetaObject::invokeMethod(core, "doDispatch", Qt::DirectConnection);
        (void)dbus.readWrite(connection, 0);
        while (DBusMessage *const message = isEnded ? nullptr : dbus.borrow(connection)) {
            if (!handOn(message)) {
                break;
            }
            QCoreApplication::sendPostedEvents(this, QEvent::MetaCall); // questions do not wait
        }
        (void)dbus.dispatch(connection); // what is no message: the end of the connection
        return true;
    }

private:
    //! False where the library could not.
    [[nodiscard]] bool handOn(DBusMessage *message)
    {
        const bool isChange
            = dbus.isSignal(message, StatusSignal::interface, StatusSignal::member) != 0;
        const char *const sender = dbus.sender(message);
        const bool isTold = dbus.type(message) == typeOfCalls || isChange;
        const MessageMark mark{isTold ? QByteArray(sender) : QByteArray(), dbus.serial(message),
                               isChange && dbus.destination(message) == nullptr};
        const auto question = qstrcmp(sender, theBus) == 0 ? questions.find(dbus.answerTo(message))
                                                           : questions.end();
        const bool isRefusal
            = dbus.isError(message, "org.freedesktop.DBus.Error.AccessDenied") != 0;
        dbus.giveBack(connection, message);
        if (isTold) {
            tell(listener.before, mark);
        }
        const int state = dbus.dispatch(connection);
        if (isTold) {
            tell(listener.after, mark);
        }
        if (question != questions.end()) {
            tell(listener.answered, BusAnswer{question->second, isRefusal});
            questions.erase(question);
        }
        return state != dispatchNeedsMemory;
    }

    template <typename What>
    void tell(const std::function<void(const What &)> &function, const What &what)
    {
        QMetaObject::invokeMethod(
            listener.context, [function, what] { function(what); }, Qt::QueuedConnection);
    }

    BusFunctions dbus;
    QPointer<QSocketNotifier> notifier;
    QObject *core = nullptr; //!< QtDBus's, whose child the notifier is
    DBusConnection *connection;
    Listener listener;
    bool isEnded = false;
    static constexpr size_t mostQuestions = 8;
    std::map<quint32, quint32> questions; //!< their numbers by the serial numbers of the calls
};

CallWatch::CallWatch(const QDBusConnection &bus, Listener toTell)
{
    QSocketNotifier *const notifier = readNotifier(bus);
    auto made = std::make_unique<Pump>(bus.internalPointer(), std::move(toTell));
    if (notifier == nullptr || !made->canRead()) {
        qWarning("QtDBus's connection cannot be watched: status changes come over it.");
        return;
    }
    made->moveToThread(notifier->thread());
    pump = made.release();
    QMetaObject::invokeMethod(
        pump, [this, notifier] { pump->begin(notifier); }, Qt::BlockingQueuedConnection);
}

quint32 CallWatch::ask(const char *method, const std::string &text)
{
    lastQuestion += lastQuestion + 1 == 0 ? 2 : 1;
    if (pump != nullptr) {
        QMetaObject::invokeMethod(
            pump,
            [this, question = lastQuestion, method, text] { pump->ask(question, method, text); },
            Qt::QueuedConnection);
    }
    return lastQuestion;
}

void CallWatch::keepReading()
{
    if (pump != nullptr) {
        QMetaObject::invokeMethod(
            pump, [this] { pump->keepReading(); }, Qt::QueuedConnection);
    }
}

CallWatch::~CallWatch()
{
    if (pump != nullptr && pump->thread()->isRunning()) {
        QMetaObject::invokeMethod(
            pump, [this] { pump->end(); }, Qt::BlockingQueuedConnection);
    }
}

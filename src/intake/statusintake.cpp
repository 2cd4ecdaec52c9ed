// SPDX-License-Identifier: Apache-2.0
#include "intake/statusintake.h"

#include "intake/statussignal.h"
#include "intake/wirevalue.h"

#include <QElapsedTimer>
#include <QSocketNotifier>
#include <QtDebug>

#include <chrono>
#include <utility>

using namespace std::chrono_literals;

namespace
{

//! How long reading rests after more than one message came at once, so that a burst
//! costs few wake-ups.
constexpr auto burstPause = 3ms;
//! dbus-broker hands over so many at once, and the next ones when those have been read.
constexpr quint64 bunch = 16;
//! For how long changes are handed on before others have their turn, in milliseconds.
constexpr qint64 turn = 4;
//! While storing is slow the bus gets that part of the time.
constexpr qint64 partForBus = 8;
//! An answer of the bus is dropped when its queue for us is full, so it is asked again.
constexpr int askInterval = 100;  // milliseconds
constexpr int askPatience = 5000; // milliseconds
constexpr int usualArguments = 8; // path and values that need one allocation

std::string_view senderOf(const MessageMark &mark)
{
    return {mark.sender.constData(), size_t(mark.sender.size())};
}

bool isOf(const WaitingChanges::Change &change, const MessageMark &mark)
{
    return change.sender == senderOf(mark);
}

} // namespace

StatusIntake::StatusIntake(const QDBusConnection &callBus, const QString &busName, Outlet where)
    : name(busName.toStdString())
    , outlet(std::move(where))
    , watch(callBus,
            {this, [this](const MessageMark &mark) { beforeCall(mark); },
             [this](const MessageMark &mark) { afterCall(mark); },
             [this](const BusAnswer &answer) { answered(answer); }})
{
    for (QTimer *const timer : {&again, &begin, &pause, &goOn, &soon}) {
        timer->setSingleShot(true);
    }
    begin.setInterval(0);
    connect(&begin, &QTimer::timeout, this, &StatusIntake::takeOver);
    again.setInterval(askPatience);
    connect(&again, &QTimer::timeout, this, &StatusIntake::askAgain);
    pause.setTimerType(Qt::PreciseTimer);
    pause.setInterval(burstPause);
    connect(&pause, &QTimer::timeout, this, &StatusIntake::readSome);
    goOn.setInterval(0);
    connect(&goOn, &QTimer::timeout, this, &StatusIntake::readSome);
    soon.setInterval(1s);
    connect(&soon, &QTimer::timeout, this, [this] {
        if (waiting.isEmpty()) {
            waiting.clear(); // gives its last block back
        }
        watch.keepReading();
        Q_EMIT handled();
    });
    soon.start(); // for what came before
}

StatusIntake::~StatusIntake() = default;

void StatusIntake::start()
{
    begin.start();
}

/*!
 * From the event loop, as QtDBus keeps back what comes before that runs, and hands it on when it
 * does: so nothing that was kept back is behind the answer to the withdrawal.
 */
void StatusIntake::takeOver()
{
    if (isListening() || !watch.isWatching()) {
        return;
    }
    if (!connection.open() || !askToListen()) {
        connection.close();
        refused = watch.ask("GetId"); // where the bus is lost that is said, and nothing else
        return;
    }
    notifier = std::make_unique<QSocketNotifier>(connection.descriptor(), QSocketNotifier::Read);
    connect(notifier.get(), &QSocketNotifier::activated, this, [this] { readSome(); });
    lastHeard.reset();
    withdraw();
    goOn.start(); // for what came with the answer
}

//! False where the connection is lost.
bool StatusIntake::askToListen()
{
    constexpr quint32 queued = 0; // neither gives its place to another nor takes the owner's
    (void)connection.call("RequestName", name, queued);
    question = connection.call("AddMatch", StatusSignal::matchRule());
    isAnswered = false;
    while (!isAnswered && mayRead() && connection.wait(BusConnection::patience)) {
        if (readMessages() == BusConnection::Reading::Lost) {
            return false;
        }
    }
    return true;
}

/*!
 * Both connections hear the bus's messages in the same order. So what comes over this one up to the
 * last change that came over the other is known from there, and if that one did not come over
 * this one, nothing is.
 */
void StatusIntake::withdraw()
{
    withdrawal = watch.ask("RemoveMatch", StatusSignal::matchRule());
    again.start();
}

void StatusIntake::endTakeOver()
{
    isAnswered = false;
    question = connection.call("GetId");
    while (!isAnswered && mayRead() && connection.wait(BusConnection::patience)) {
        (void)readOnce();
    }
    removeWhatWasHeard();
    handOnSome();
}

void StatusIntake::removeWhatWasHeard()
{
    quint64 known = 0;
    quint64 place = 0;
    waiting.visit([&](const WaitingChanges::Change &change) {
        ++place;
        // Of a bus that is lost this connection may have got less than the other.
        const bool isLastHeard
            = lastHeard && change.serial == lastHeard->serial && isOf(change, *lastHeard);
        if (isLastHeard || (isLost && senders.isHandled(change.sender, change.serial))) {
            known = place;
        }
        return true;
    });
    for (; known > 0; --known) {
        waiting.removeFirst();
    }
}

void StatusIntake::stop()
{
    if (isLost) {
        return; // ends by itself
    }
    begin.stop();
    pause.stop();
    goOn.stop();
    withdrawal = 0;
    notifier.reset();
    connection.close();
    waiting.clear();
    settled = 0;
}

void StatusIntake::finish()
{
    readWhatFits();
    if (withdrawal != 0) {
        removeWhatWasHeard();
    }
    call.reset();
    while (!waiting.isEmpty()) {
        handOnFirst();
    }
}

/*!
 * What lies between two turns of the event loop. While the storage is slow the bus gets a part
 * of the time to hand over what it has, and as much time as the storage after one in which it
 * did not come to an end: beyond its limits it drops what comes.
 */
void StatusIntake::readSome()
{
    const quint64 before = waiting.added();
    QElapsedTimer timer;
    timer.start();
    const qint64 slot = bringsMore ? lastTurn : lastTurn / partForBus;
    bool hasMore = true;
    while (hasMore && mayRead()) {
        const quint64 had = waiting.added();
        readWhatFits();
        const bool isBunch = waiting.added() - had == bunch && timer.elapsed() < turn;
        if (timer.elapsed() >= slot && !isBunch) {
            break;
        }
        hasMore = mayRead() && connection.wait(1);
    }
    bringsMore = hasMore && slot > 0;
    brought = waiting.added() - before;
    handOnSome();
}

bool StatusIntake::mayRead() const
{
    return connection.isOpen() && !waiting.isFull();
}

void StatusIntake::readWhatFits()
{
    while (mayRead() && readOnce() == BusConnection::Reading::More) { }
}

BusConnection::Reading StatusIntake::readOnce()
{
    const BusConnection::Reading result = readMessages();
    if (result == BusConnection::Reading::Lost) {
        lose();
    }
    return result;
}

BusConnection::Reading StatusIntake::readMessages()
{
    return connection.read([this](const Wire::Head &message) { take(message); });
}

void StatusIntake::take(const Wire::Head &message)
{
    if (message.type == Wire::Type::Signal && message.destination.empty()
        && message.interface == StatusSignal::interface && message.member == StatusSignal::member
        && message.signature == StatusSignal::signature) {
        waiting.add(message);
    } else if (message.answerTo >= question && question != 0) {
        isAnswered = true;
    }
}

void StatusIntake::handOnSome()
{
    QElapsedTimer timer;
    timer.start();
    while (!waiting.isEmpty() && withdrawal == 0 && timer.elapsed() < turn) {
        if (!mayHandOnFirst()) {
            askForCalls();
            break;
        }
        handOnFirst();
    }
    lastTurn = timer.elapsed();
    if (isLost && withdrawal == 0 && waiting.isEmpty()) {
        askForCalls(); // and then it is told
    }
    rest();
}

//! Has reading go on when it shall.
void StatusIntake::rest()
{
    if (!isListening()) {
        return;
    }
    const bool goesOn = !waiting.isEmpty() && !call && asked == 0 && withdrawal == 0;
    if (goesOn) {
        goOn.start();
    } else if (brought > 1) {
        pause.start();
    }
    brought = 0;
    if (notifier) {
        notifier->setEnabled(!goesOn && !pause.isActive() && !waiting.isFull());
    }
}

void StatusIntake::handOnFirst()
{
    const WaitingChanges::Change change = waiting.first();
    WireReader in(change.body, change.isBigEndian);
    StatusChange status;
    status.id = in.fixed<qint32>();
    if (!in.isMalformed() && outlet.isWanted(status.id)) {
        status.args.reserve(usualArguments);
        status.args.append(QString::fromLatin1(change.path.data(), int(change.path.size())));
        Wire::appendStatusValues(status.args, in);
        if (!in.isMalformed()) {
            outlet.take(status);
        }
    }
    senders.handled(change.sender, change.serial);
    waiting.removeFirst();
    lookAfterwards();
    if (in.isMalformed()) {
        waiting.clear(); // nor is anything behind it to be trusted
        if (connection.isOpen()) {
            lose();
        }
    }
}

//! Whether a change was sent behind the call that is about to be handled.
bool StatusIntake::isBehindCall(const WaitingChanges::Change &change) const
{
    return call && qint32(change.serial - call->serial) > 0 // they begin anew at the end
        && isOf(change, *call);
}

//! Whether no call that was sent before it can still be on its way.
bool StatusIntake::mayHandOnFirst()
{
    const WaitingChanges::Change change = waiting.first();
    return !isBehindCall(change)
        && (waiting.removed() < settled || senders.follows(change.sender, change.serial));
}

/*!
 * Asks the bus over the connection for calls: what was called before the changes that are
 * there now is handled before the answer is.
 */
void StatusIntake::askForCalls()
{
    if (asked == 0 && !call) {
        askedUpTo = waiting.added();
        asked = watch.ask("GetId");
        again.start();
    }
}

//! An answer may have been dropped. Where the connection for calls is lost none is needed: the
//! process ends.
void StatusIntake::askAgain()
{
    if (withdrawal != 0) {
        withdraw();
    }
    if (asked != 0) {
        asked = 0;
        askForCalls();
    }
}

void StatusIntake::answered(const BusAnswer &answer)
{
    if (answer.question == refused) {
        qWarning("The bus lets no second connection in: status changes come over the first one.");
    } else if (answer.question == withdrawal) {
        withdrawal = 0;
        if (answer.isRefusal && !isLost) {
            stop(); // the other one cannot but go on
        } else {
            endTakeOver();
        }
    } else if (answer.question == asked) {
        asked = 0;
        settled = std::max(settled, askedUpTo);
        if (isLost && waiting.isEmpty()) {
            Q_EMIT lost();
        } else {
            handOnSome();
        }
    }
}

//! Reads everything that was sent before the call: the bus answers behind it.
void StatusIntake::readUpToCall()
{
    isAnswered = false;
    question = connection.call("GetId");
    QElapsedTimer timer;
    timer.start();
    while (connection.isOpen() && !isAnswered) {
        if (waiting.isFull()) {
            if (isBehindCall(waiting.first())) {
                return; // which says that nothing before it is missing
            }
            handOnFirst();
        } else if (connection.wait(askInterval)) {
            (void)readOnce();
        } else if (timer.elapsed() < askPatience) {
            (void)connection.call("GetId");
        } else {
            qWarning("The bus does not answer, so a call may overtake a status change.");
            return;
        }
    }
}

void StatusIntake::beforeCall(const MessageMark &mark)
{
    if (withdrawal != 0) { // all comes over the other connection still, in its order
        lastHeard = mark.isForEverybody ? mark : lastHeard;
        senders.handled(senderOf(mark), mark.serial);
        return;
    }
    if (!isListening()) {
        return;
    }
    call = mark;
    if (senders.follows(senderOf(mark), mark.serial)) {
        readWhatFits();
    } else {
        readUpToCall();
    }
    // Whatever stands before a change of the same sender was sent before the call, too.
    quint64 place = waiting.removed();
    waiting.visit([&](const WaitingChanges::Change &change) {
        if (isBehindCall(change)) {
            return false;
        }
        ++place;
        if (isOf(change, mark)) {
            settled = std::max(settled, place);
        }
        return true;
    });
    while (!waiting.isEmpty() && mayHandOnFirst()) {
        handOnFirst();
    }
}

//! An idle process is not woken.
void StatusIntake::lookAfterwards()
{
    if (!soon.isActive()) {
        soon.start();
    }
}

void StatusIntake::afterCall(const MessageMark &mark)
{
    call.reset();
    lookAfterwards();
    if (isListening() && withdrawal == 0) {
        senders.handled(senderOf(mark), mark.serial);
        handOnSome();
    }
}

//! What has been received is handed on in its order as before.
void StatusIntake::lose()
{
    isLost = true;
    notifier.reset();
    connection.close();
    pause.stop();
    goOn.start();
}

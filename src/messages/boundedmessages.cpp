// SPDX-License-Identifier: Apache-2.0
#include "messages/boundedmessages.h"

#include "messages/messagebound.h"

#include <QString>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <vector>

namespace
{

using std::chrono::steady_clock;

//! Qt's handler is a function, so what it knows belongs to the process.
struct Shared {
    std::mutex mutex; // QtDBus's thread has messages too
    MessageBound bound;
    QtMessageHandler destination = nullptr;
    BoundedMessages *installed = nullptr;
    bool awaitsReport = false; // at the end of this period
};

Shared &shared()
{
    static Shared instance;
    return instance;
}

QString reportOf(const MessageBound::LeftOut &leftOut)
{
    const QString beginning = leftOut.beginning.isNull()
        ? QStringLiteral("in any other way")
        : QLatin1Char('"') + leftOut.beginning + QLatin1Char('"');
    return QStringLiteral("Messages left out within a minute that begin ") + beginning
        + QStringLiteral(": ") + QString::number(leftOut.count);
}

//! With the mutex locked.
std::vector<MessageBound::LeftOut> endPeriod()
{
    shared().awaitsReport = false;
    return shared().bound.endPeriod();
}

void report(const std::vector<MessageBound::LeftOut> &all, QtMessageHandler destination)
{
    for (const MessageBound::LeftOut &each : all) {
        destination(each.type, QMessageLogContext(), reportOf(each));
    }
}

} // namespace

BoundedMessages::BoundedMessages()
{
    reporting.setSingleShot(true);
    reporting.setTimerType(Qt::PreciseTimer); // a coarse one may come early
    QObject::connect(&reporting, &QTimer::timeout, &reporting, [] {
        std::vector<MessageBound::LeftOut> leftOut;
        std::unique_lock lock(shared().mutex);
        if (shared().bound.isOver(steady_clock::now())) { // and no message came first
            leftOut = endPeriod();
        }
        lock.unlock();
        report(leftOut, shared().destination);
    });
    const std::lock_guard lock(shared().mutex);
    shared().installed = this;
    shared().destination = qInstallMessageHandler(handle);
}

BoundedMessages::~BoundedMessages()
{
    std::unique_lock lock(shared().mutex);
    qInstallMessageHandler(shared().destination);
    shared().installed = nullptr;
    const auto leftOut = endPeriod();
    lock.unlock();
    report(leftOut, shared().destination);
}

bool BoundedMessages::leaveOut(QtMsgType type, QLatin1String beginning)
{
    const std::lock_guard lock(shared().mutex);
    if (!shared().installed || !shared().bound.leavesOut(type, beginning, steady_clock::now())) {
        return false;
    }
    shared().installed->reportWhenOver();
    return true;
}

void BoundedMessages::handle(QtMsgType type, const QMessageLogContext &context,
                             const QString &message)
{
    const QString text = MessageBound::shortened(message);
    std::vector<MessageBound::LeftOut> leftOut;
    std::unique_lock lock(shared().mutex);
    const auto now = steady_clock::now();
    if (type == QtFatalMsg || shared().bound.isOver(now)) {
        leftOut = endPeriod();
    }
    const bool admitted = shared().bound.admits(type, text, now);
    if (!admitted && shared().installed) {
        shared().installed->reportWhenOver();
    }
    const QtMessageHandler destination = shared().destination;
    lock.unlock();

    report(leftOut, destination);
    if (admitted) {
        destination(type, context, text);
    }
}

//! Sees to a report at the end of the period. Any thread may have left something out.
void BoundedMessages::reportWhenOver()
{
    if (shared().awaitsReport) {
        return;
    }
    shared().awaitsReport = true;
    const auto end = shared().bound.end();
    QMetaObject::invokeMethod(
        &reporting,
        [this, end] {
            using std::chrono::milliseconds;
            const auto left = std::chrono::duration_cast<milliseconds>(end - steady_clock::now());
            reporting.start(std::max(left, milliseconds(0)) + milliseconds(1));
        },
        Qt::QueuedConnection);
}

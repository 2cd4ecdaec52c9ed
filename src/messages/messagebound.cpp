// SPDX-License-Identifier: Apache-2.0
#include "messages/messagebound.h"

#include <algorithm>
#include <utility>

QString MessageBound::shortened(const QString &message)
{
    return message.size() <= mostLength ? message : message.left(mostLength) + QLatin1String("...");
}

template <typename Text>
MessageBound::Kind *MessageBound::known(QtMsgType type, const Text &beginning)
{
    const auto found = std::find_if(kinds.begin(), kinds.end(), [&](const Kind &kind) {
        return kind.leftOut.type == type && kind.leftOut.beginning == beginning;
    });
    return found == kinds.end() ? nullptr : &*found;
}

MessageBound::Kind &MessageBound::kindOf(QtMsgType type, const QString &message)
{
    QString beginning = message.left(kindLength);
    Kind *kind = known(type, beginning);
    if (!kind && kinds.size() >= mostKinds) {
        beginning = QString();
        type = QtWarningMsg; // nobody shall miss what is left out of these
        kind = known(type, beginning);
    }
    if (!kind) {
        kind = &kinds.emplace_back();
        kind->leftOut.type = type;
        kind->leftOut.beginning = std::move(beginning);
    }
    return *kind;
}

bool MessageBound::admits(QtMsgType type, const QString &message, Time now)
{
    if (type == QtFatalMsg) {
        return true;
    }
    if (!begun) {
        begun = true;
        periodEnd = now + period;
    }
    Kind &kind = kindOf(type, message);
    const int lines = 1 + int(message.count(QLatin1Char('\n')));
    if (kind.lines + lines > mostLines) {
        ++kind.leftOut.count;
        return false;
    }
    kind.lines += lines;
    return true;
}

bool MessageBound::leavesOut(QtMsgType type, QLatin1String beginning, Time now)
{
    if (!begun || now >= periodEnd) {
        return false;
    }
    const QLatin1String ofKind(beginning.data(), std::min(int(beginning.size()), kindLength));
    Kind *const kind = known(type, ofKind);
    if (!kind || kind->lines < mostLines) {
        return false;
    }
    ++kind->leftOut.count;
    return true;
}

std::vector<MessageBound::LeftOut> MessageBound::endPeriod()
{
    std::vector<LeftOut> all;
    for (Kind &kind : kinds) {
        if (kind.leftOut.count > 0) {
            all.push_back(std::move(kind.leftOut));
        }
    }
    kinds.clear();
    begun = false;
    return all;
}

// SPDX-License-Identifier: Apache-2.0
#include "support/configservice.h"

#include "support/literals.h"

#include <QDBusConnection>

#include <algorithm>

namespace
{

const char connectionName[] = "configuration service";

//! A connection besides the test's own, as a real service has one.
QDBusConnection ownConnection()
{
    return QDBusConnection::connectToBus(QString::fromLocal8Bit(qgetenv("DBUS_SYSTEM_BUS_ADDRESS")),
                                         QString::fromLatin1(connectionName));
}

const char serviceName[] = "com.tovel.fwconfig";

QString askedKey(const QDBusMessage &request)
{
    return request.arguments().constFirst().toString();
}

} // namespace

ConfigService::ConfigService()
{
    ownConnection().registerObject("/systemvariables"_s, this, QDBusConnection::ExportAllSlots);
    behave(Manner::Answers);
}

ConfigService::~ConfigService()
{
    behave(Manner::IsAbsent);
}

void ConfigService::behave(Manner newManner)
{
    const QString name = QString::fromLatin1(serviceName);
    if (newManner == Manner::IsAbsent) {
        ownConnection().unregisterService(name);
    } else if (manner == Manner::IsAbsent && !ownConnection().registerService(name)) {
        qFatal("the configuration service's name is taken");
    }
    manner = newManner;
}

void ConfigService::release()
{
    for (const QDBusMessage &request : qAsConst(heldBack)) {
        answer(request);
    }
    heldBack.clear();
    manner = Manner::Answers;
}

void ConfigService::release(const QString &key)
{
    const auto about = [&key](const QDBusMessage &request) { return askedKey(request) == key; };
    const auto request = std::find_if(heldBack.cbegin(), heldBack.cend(), about);
    if (request == heldBack.cend()) {
        qFatal("nobody waits for %s", qPrintable(key));
    }
    answer(*request);
    heldBack.removeAt(int(request - heldBack.cbegin()));
}

void ConfigService::answer(const QDBusMessage &request) const
{
    ownConnection().send(request.createReply(values.value(askedKey(request))));
}

void ConfigService::leaveTheBus()
{
    QDBusConnection::disconnectFromBus(QString::fromLatin1(connectionName));
    manner = Manner::IsAbsent;
}

QString ConfigService::getTrimmed(const QString &key)
{
    calls.append("getTrimmed "_s + key);
    switch (manner) {
    case Manner::Errs:
        sendErrorReply(QDBusError::Failed, "no such variable"_s);
        break;
    case Manner::IsSilent:
        setDelayedReply(true);
        heldBack.append(message());
        break;
    case Manner::TalksNonsense:
        setDelayedReply(true);
        ownConnection().send(message().createReply(QVariant(1)));
        break;
    default:
        break;
    }
    return values.value(key);
}

void ConfigService::set(const QString &key, const QString &value)
{
    calls.append("set "_s + key + "="_s + value);
    values.insert(key, value);
}

void ConfigService::save()
{
    calls.append("save"_s);
}

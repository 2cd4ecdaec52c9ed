// SPDX-License-Identifier: Apache-2.0
#include "devicelib/bareboxconfigproxy.h"

#include "devicelib/constants.h"

namespace zib
{
namespace
{

//! QDBusAbstractInterface keeps the pointer it is given, so the name must outlive every proxy.
const char *interfaceName()
{
    static const QByteArray name = FwConfigGlobals::SYSTEMVARIABLES_INTERFACE.toLatin1();
    return name.constData();
}

} // namespace

BareboxConfigProxy::BareboxConfigProxy(const QString &service, const QString &path,
                                       const QDBusConnection &connection, QObject *parent)
    : QDBusAbstractInterface(service, path, interfaceName(), connection, parent)
{
}

QDBusPendingReply<QString> BareboxConfigProxy::getTrimmed(const QString &key)
{
    return asyncCallWithArgumentList(QStringLiteral("getTrimmed"), {key});
}

QDBusPendingReply<> BareboxConfigProxy::set(const QString &key, const QString &value)
{
    return asyncCallWithArgumentList(QStringLiteral("set"), {key, value});
}

QDBusPendingReply<> BareboxConfigProxy::save()
{
    return asyncCallWithArgumentList(QStringLiteral("save"), {});
}

} // namespace zib

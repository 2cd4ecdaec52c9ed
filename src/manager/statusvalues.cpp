// SPDX-License-Identifier: Apache-2.0
#include "manager/statusvalues.h"

#include "logformat/encoding.h"

#include <QDBusArgument>

namespace
{

//! A value of the bus as outputs know it; a message nests its variants 64 deep at most.
QVariant outputValue(const QVariant &value)
{
    if (value.userType() != qMetaTypeId<QDBusVariant>()) {
        return value;
    }
    return QVariant::fromValue(WrappedValue{outputValue(value.value<QDBusVariant>().variant())});
}

} // namespace

QList<QVariant> statusValues(const QDBusVariant &payload)
{
    QList<QVariant> values;
    const QVariant content = payload.variant();
    if (content.userType() != qMetaTypeId<QDBusArgument>()) {
        return values;
    }
    const auto array = content.value<QDBusArgument>();
    array.beginArray();
    // Reading an element of another type as a variant crashes inside QtDBus.
    while (!array.atEnd() && array.currentType() == QDBusArgument::VariantType) {
        QVariant value;
        array >> value;
        values.append(outputValue(value));
    }
    array.endArray();
    return values;
}

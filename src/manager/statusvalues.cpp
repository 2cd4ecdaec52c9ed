// SPDX-License-Identifier: Apache-2.0
#include "manager/statusvalues.h"

#include <QDBusArgument>

QList<QVariant> statusValues(const QDBusVariant &payload)
{
    QList<QVariant> values;
    const QVariant content = payload.variant();
    if (content.userType() != qMetaTypeId<QDBusArgument>()) {
        return values;
    }
    const auto array = content.value<QDBusArgument>();
    array.beginArray();
    // Reading an element of another type as a variant crashes inside the binding.
    while (!array.atEnd() && array.currentType() == QDBusArgument::VariantType) {
        QVariant value;
        array >> value;
        values.append(value);
    }
    array.endArray();
    return values;
}

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaType>
#include <QVariant>

/*!
 * The primary type of a value, the same on every version of the framework: ids
 * of built-in types are reported as they are, any type registered at run time
 * is reported as QMetaType::User. The boundary is the framework's own.
 *
 * Outputs decide by this type first and look at the registered type only for
 * QMetaType::User. So a value of a built-in type that they do not name (unsigned
 * char, short, float, unsigned 64-bit) is of no known type to them.
 */
inline int primaryType(const QVariant &value)
{
    const int type = value.userType();
    return type < QMetaType::User ? type : int(QMetaType::User);
}

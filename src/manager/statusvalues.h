// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusVariant>
#include <QList>
#include <QVariant>

/*!
 * The values that a status change carries: the elements of the array in its
 * variant, each without the one variant level that the array gives it; a variant within it is a
 * WrappedValue.
 *
 * Any sender on the bus may put anything into the variant. Elements are taken up
 * to the first that is no variant; what is no container yields nothing, and so do
 * arrays of bytes and of strings, which QtDBus converts on arrival.
 */
QList<QVariant> statusValues(const QDBusVariant &payload);

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QVariant>

/*!
 * A value that a sender has put into a variant of its own, as an element of the list that
 * outputs get (LogInterface::logEvent()). Its content may be of any type, another one of
 * these among them.
 */
struct WrappedValue {
    QVariant content;
};
Q_DECLARE_METATYPE(WrappedValue)

/*!
 * The primary type of a value, the same on every version of Qt: ids of built-in types are
 * reported as they are, any type registered at run time is reported as QMetaType::User.
 * The boundary is Qt's own.
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

namespace LogFormat
{

/*!
 * The type code under which a wrapped value is stored, ArgumentType::Unknown where there
 * is none; that case is reported by a debug message. Only Byte, Bool, Int32, Int64, Double
 * and String ever result.
 */
int lookupVariant(const QVariant &value);

/*!
 * Appends an argument value in the encoding of its type:
 *
 *   bool           1 byte
 *   int, uint      4 bytes
 *   qlonglong      8 bytes: the low 32 bits, sign-extended
 *   double         8 bytes
 *   QChar          1 byte: the low 8 bits
 *   QString        2 bytes: length of the UTF-8 text modulo 65536; then the text
 *   WrappedValue   2 bytes: type code of the content; then the content
 *
 * A value of another registered type appends nothing. One of another built-in type
 * appends nothing either and gives false: the caller reports it.
 */
[[nodiscard]] bool appendValue(QByteArray &out, const QVariant &value);

} // namespace LogFormat

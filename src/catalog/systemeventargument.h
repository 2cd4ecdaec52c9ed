// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QVariant>

/*!
 * Type codes of argument values. They stand by name in the event catalogue and
 * as numbers in the binary log: never renumber them.
 */
namespace ArgumentType
{
constexpr int Unknown = -1;
constexpr int Byte = 0; //!< one 8-bit character or unsigned byte
constexpr int Bool = 1;
constexpr int Int16 = 2;
constexpr int Int32 = 3;
constexpr int Int64 = 4;
constexpr int UInt64 = 5;
constexpr int Float = 6;  //!< IEEE 754 single
constexpr int Double = 7; //!< IEEE 754 double
constexpr int String = 8;
constexpr int ByteArray = 9;
constexpr int Variant = 10; //!< the value's own type code travels with it
constexpr int Enum = 11;    //!< an item value, shown by the item's text
} // namespace ArgumentType

//! The type code for a type's name in the catalogue, compared exactly; Unknown for any other.
int typeFromName(const QString &name);

//! One declared argument of an event.
struct SystemeventArgument {
    SystemeventArgument() = default;
    SystemeventArgument(QString argumentName, int typeCode);

    /*!
     * The type code of a live value, Unknown where there is none; that case is
     * reported by a debug message. Only Byte, Bool, Int32, Int64, Double and
     * String ever result.
     */
    static int lookupVariant(const QVariant &value);

    QString name;
    int type = ArgumentType::Unknown;
    QString enumName; //!< the enumeration that gives the texts; null unless type is Enum
};

// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLatin1String>
#include <QString>

/*!
 * Type codes of argument values. They stand by name in the event catalogue and as
 * numbers in the log files: never renumber them. A code that is read from a file may be
 * any number; one that is none of these stands for no type.
 */
namespace ArgumentType
{
enum Code : int {
    Unknown = -1,
    Byte = 0, //!< one 8-bit character or unsigned byte
    Bool = 1,
    Int16 = 2,
    Int32 = 3,
    Int64 = 4,
    UInt64 = 5,
    Float = 6,  //!< IEEE 754 single
    Double = 7, //!< IEEE 754 double
    String = 8,
    ByteArray = 9,
    Variant = 10, //!< the value's own type code travels with it
    Enum = 11,    //!< an item value, shown by the item's text
};
} // namespace ArgumentType

//! The type code for a type's name in the catalogue, compared exactly; Unknown for any other.
int typeFromName(const QString &name);
//! The name of a type code; "unknown" for any other number.
QLatin1String typeName(int code);

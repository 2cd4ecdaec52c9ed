// SPDX-License-Identifier: Apache-2.0
#include "logformat/argumenttype.h"

namespace
{

//! Null for a number that is no code of a value's type.
const char *nameOf(int code)
{
    switch (ArgumentType::Code(code)) {
    case ArgumentType::Byte:
        return "byte";
    case ArgumentType::Bool:
        return "bool";
    case ArgumentType::Int16:
        return "int16";
    case ArgumentType::Int32:
        return "int32";
    case ArgumentType::Int64:
        return "int64";
    case ArgumentType::UInt64:
        return "uint64";
    case ArgumentType::Float:
        return "float";
    case ArgumentType::Double:
        return "double";
    case ArgumentType::String:
        return "string";
    case ArgumentType::ByteArray:
        return "bytearray";
    case ArgumentType::Variant:
        return "variant";
    case ArgumentType::Enum:
        return "enum";
    case ArgumentType::Unknown:
        break;
    }
    return nullptr;
}

} // namespace

int typeFromName(const QString &name)
{
    int code = ArgumentType::Byte; // from here on without a gap
    while (nameOf(code) && name != QLatin1String(nameOf(code))) {
        ++code;
    }
    return nameOf(code) ? code : int(ArgumentType::Unknown);
}

QLatin1String typeName(int code)
{
    const char *const name = nameOf(code);
    return QLatin1String(name ? name : "unknown");
}

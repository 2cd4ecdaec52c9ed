// SPDX-License-Identifier: Apache-2.0
#include "logformat/argumenttype.h"

#include <algorithm>
#include <iterator>

namespace
{

struct NamedType {
    const char *name;
    ArgumentType::Code code;
};

constexpr NamedType namedTypes[] = {
    {"byte", ArgumentType::Byte},       {"bool", ArgumentType::Bool},
    {"int16", ArgumentType::Int16},     {"int32", ArgumentType::Int32},
    {"int64", ArgumentType::Int64},     {"uint64", ArgumentType::UInt64},
    {"float", ArgumentType::Float},     {"double", ArgumentType::Double},
    {"string", ArgumentType::String},   {"bytearray", ArgumentType::ByteArray},
    {"variant", ArgumentType::Variant}, {"enum", ArgumentType::Enum},
};

template <typename Matches>
const NamedType *findType(Matches matches)
{
    const auto *const found = std::find_if(std::begin(namedTypes), std::end(namedTypes), matches);
    return found == std::end(namedTypes) ? nullptr : found;
}

} // namespace

int typeFromName(const QString &name)
{
    const NamedType *const found
        = findType([&name](const NamedType &type) { return name == QLatin1String(type.name); });
    return found ? found->code : ArgumentType::Unknown;
}

QLatin1String typeName(int code)
{
    const NamedType *const found
        = findType([code](const NamedType &type) { return type.code == code; });
    return QLatin1String(found ? found->name : "unknown");
}

// SPDX-License-Identifier: Apache-2.0
#include "catalog/systemeventargument.h"

#include "catalog/varianttype.h"
#include "messages/boundedmessages.h"
#include "messages/messagebound.h"

#include <QtDebug>

#include <algorithm>
#include <iterator>
#include <utility>

namespace
{

//! A name's place is its type code.
constexpr const char *typeNames[] = {"byte",  "bool",   "int16",  "int32",     "int64",   "uint64",
                                     "float", "double", "string", "bytearray", "variant", "enum"};

constexpr char unknownType[] = "SystemeventArgument::lookupVariant(";

/*!
 * Kept: the decision looks at the primary type alone. Rows for registered types
 * would never be reached, because the framework reports every built-in type as
 * itself; an unsigned 64-bit value, for one, has no code.
 */
int codeOfPrimaryType(int type)
{
    switch (type) {
    case QMetaType::Bool:
        return ArgumentType::Bool;
    case QMetaType::Int:
    case QMetaType::UInt:
        return ArgumentType::Int32;
    case QMetaType::LongLong:
        return ArgumentType::Int64;
    case QMetaType::Double:
        return ArgumentType::Double;
    case QMetaType::QChar:
        return ArgumentType::Byte;
    case QMetaType::QString:
        return ArgumentType::String;
    default:
        return ArgumentType::Unknown;
    }
}

//! What of a value can be seen in a message. Whoever emits a value can make it of any size.
QVariant visiblePart(const QVariant &value)
{
    constexpr int most = MessageBound::mostLength;
    if (value.userType() == QMetaType::QByteArray) {
        return value.toByteArray().left(most);
    }
    if (value.userType() != QMetaType::QStringList) {
        return value;
    }
    QStringList visible;
    int room = most;
    const QStringList all = value.toStringList();
    for (auto text = all.cbegin(); text != all.cend() && room > 0; ++text) {
        visible.append(text->left(room));
        room -= int(visible.constLast().size()) + 2; // its quotation marks
    }
    return visible;
}

} // namespace

int typeFromName(const QString &name)
{
    const auto isName = [&name](const char *typeName) { return name == QLatin1String(typeName); };
    const auto *const found = std::find_if(std::begin(typeNames), std::end(typeNames), isName);
    return found == std::end(typeNames) ? ArgumentType::Unknown
                                        : int(std::distance(std::begin(typeNames), found));
}

SystemeventArgument::SystemeventArgument(QString argumentName, int typeCode)
    : name(std::move(argumentName))
    , type(typeCode)
{
}

int SystemeventArgument::lookupVariant(const QVariant &value)
{
    const int code = codeOfPrimaryType(primaryType(value));
    // A message can hold millions of them, and showing a value takes longer than storing it.
    if (code == ArgumentType::Unknown
        && !BoundedMessages::leaveOut(QtDebugMsg, QLatin1String(unknownType))) {
        qDebug() << unknownType << visiblePart(value) << "): unknown type;";
    }
    return code;
}

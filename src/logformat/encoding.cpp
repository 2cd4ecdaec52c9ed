// SPDX-License-Identifier: Apache-2.0
#include "logformat/encoding.h"

#include "logformat/argumenttype.h"
#include "logformat/logformat.h"
#include "messages/boundedmessages.h"
#include "messages/messagebound.h"

#include <QStringList>
#include <QtDebug>

namespace LogFormat
{
namespace
{

/*!
 * Kept: the decision looks at the primary type alone. Rows for registered types
 * would never be reached, because Qt reports every built-in type as itself; an unsigned
 * 64-bit value, for one, has no code.
 */
ArgumentType::Code codeOfPrimaryType(int type)
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

constexpr char unknownType[] = "SystemeventArgument::lookupVariant(";

bool isWrapped(const QVariant &value)
{
    return value.userType() == qMetaTypeId<WrappedValue>();
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

void reportUnknownType(const QVariant &value)
{
    QDebug line = qDebug();
    line << unknownType;
    // Kept: whoever searches the messages knows a wrapped value by QtDBus's name for it.
    isWrapped(value) ? line << "QVariant(QDBusVariant, )" : line << visiblePart(value);
    line << "): unknown type;";
}

void appendString(QByteArray &out, const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    append<quint16>(out, quint16(utf8.size()));
    out.append(utf8);
}

bool appendRegisteredType(QByteArray &out, const QVariant &value)
{
    if (!isWrapped(value)) {
        return true;
    }
    const QVariant content = value.value<WrappedValue>().content;
    append<qint16>(out, qint16(lookupVariant(content)));
    return appendValue(out, content);
}

} // namespace

int lookupVariant(const QVariant &value)
{
    const ArgumentType::Code code = codeOfPrimaryType(primaryType(value));
    // A message can hold millions of them, and showing a value takes longer than storing it.
    if (code == ArgumentType::Unknown
        && !BoundedMessages::leaveOut(QtDebugMsg, QLatin1String(unknownType))) {
        reportUnknownType(value);
    }
    return code;
}

bool appendValue(QByteArray &out, const QVariant &value)
{
    switch (primaryType(value)) {
    case QMetaType::Bool:
        append<quint8>(out, value.toBool() ? 1 : 0);
        break;
    case QMetaType::Int:
        append<qint32>(out, value.toInt());
        break;
    case QMetaType::UInt:
        append<quint32>(out, value.toUInt());
        break;
    case QMetaType::LongLong:
        // Kept: files in the field hold only the low 32 bits.
        append<qint64>(out, qint32(value.toLongLong()));
        break;
    case QMetaType::Double:
        append<double>(out, value.toDouble());
        break;
    case QMetaType::QChar:
        append<quint8>(out, quint8(value.toChar().unicode()));
        break;
    case QMetaType::QString:
        appendString(out, value.toString());
        break;
    case QMetaType::User:
        return appendRegisteredType(out, value);
    default:
        return false;
    }
    return true;
}

} // namespace LogFormat

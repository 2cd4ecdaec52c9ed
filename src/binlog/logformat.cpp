// SPDX-License-Identifier: Apache-2.0
#include "binlog/logformat.h"

#include "catalog/systemeventargument.h"
#include "catalog/varianttype.h"

#include <QDBusVariant>

namespace LogFormat
{
namespace
{

const QLatin1String filePrefix("zib");
const QLatin1String fileSuffix(".log");

void appendString(QByteArray &out, const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    append<quint16>(out, quint16(utf8.size()));
    out.append(utf8);
}

bool appendRegisteredType(QByteArray &out, const QVariant &value)
{
    if (value.userType() != qMetaTypeId<QDBusVariant>()) {
        return true;
    }
    const QVariant wrapped = value.value<QDBusVariant>().variant();
    append<qint16>(out, qint16(SystemeventArgument::lookupVariant(wrapped)));
    return appendValue(out, wrapped);
}

} // namespace

QString fileName(int index)
{
    return filePrefix + QString::number(index) + fileSuffix;
}

int fileIndex(const QString &name)
{
    const auto digits = name.size() - filePrefix.size() - fileSuffix.size();
    bool isNumber = false;
    const int index = name.mid(filePrefix.size(), digits).toInt(&isNumber);
    return isNumber && name == fileName(index) && index >= 0 ? index : -1;
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

quint64 lastLogNr(QIODevice &in)
{
    quint16 recordLength = 0;
    seek(in, in.size() - trailerSize);
    read(in, recordLength);
    quint64 logNr = 0;
    seek(in, in.size() - trailerSize - recordLength);
    read(in, logNr);
    return logNr;
}

} // namespace LogFormat

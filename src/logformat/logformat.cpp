// SPDX-License-Identifier: Apache-2.0
#include "logformat/logformat.h"

#include <QDir>

namespace LogFormat
{
namespace
{

const QLatin1String filePrefix("zib");
const QLatin1String fileSuffix(".log");

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

QString readerNamePattern()
{
    return filePrefix + QLatin1String("[0-9]*");
}

bool isReaderName(const QString &name)
{
    return QDir::match(readerNamePattern(), name);
}

void appendLogNr(QByteArray &out, quint64 logNr)
{
    append(out, logNr);
}

void appendTimestamp(QByteArray &out, qint64 seconds, qint32 microseconds)
{
    append<qint64>(out, qAbs(seconds));
    append<qint32>(out, microseconds);
    append<qint32>(out, 0);
}

void appendEventId(QByteArray &out, qint32 eventId)
{
    append(out, eventId);
}

void appendTail(QByteArray &out, qint64 recordBegin)
{
    out.append(endMark);
    append<quint16>(out, quint16(out.size() - recordBegin));
}

} // namespace LogFormat

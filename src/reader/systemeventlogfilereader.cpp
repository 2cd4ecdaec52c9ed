// SPDX-License-Identifier: Apache-2.0
#include "reader/systemeventlogfilereader.h"

#include "binlog/logformat.h"
#include "catalog/eventtext.h"
#include "catalog/systemeventcatalogue.h"
#include "devicelib/jsonutil.h"

#include <QFile>
#include <QFileInfo>
#include <QtDebug>

#include <algorithm>
#include <array>
#include <limits>

namespace
{

constexpr quint64 noMinimum = std::numeric_limits<quint64>::max();

const QLatin1String readError("readerror");

//! The digits between "zib" and the first dot, 0 where they are no number.
int fileNumber(const QString &name)
{
    return name.section(QLatin1Char('.'), 0, 0).mid(3).toInt();
}

struct Bytes {
    QByteArray content;
    bool complete = false;
};

//! A value with its length in front; incomplete where the file ends before it does.
Bytes readSized(QIODevice &file)
{
    quint16 length = 0;
    if (LogFormat::read(file, length) < qint64(sizeof length)) {
        return {};
    }
    const QByteArray content = file.read(length);
    return {content, content.size() == length};
}

QByteArray upToZeroByte(const QByteArray &bytes)
{
    const auto end = bytes.indexOf('\0');
    return end < 0 ? bytes : bytes.left(end);
}

QString readString(QIODevice &file)
{
    const Bytes bytes = readSized(file);
    return bytes.complete ? QString::fromUtf8(bytes.content.constData(), bytes.content.size())
                          : QString(readError);
}

QByteArray readByteArray(QIODevice &file)
{
    const Bytes bytes = readSized(file);
    return bytes.complete ? bytes.content : QByteArray(readError.data(), readError.size());
}

//! What the file does not hold of a number counts as zero.
template <typename Number>
Number readNumber(QIODevice &file)
{
    Number value{};
    LogFormat::read(file, value);
    return value;
}

//! Substitutes a value of one of the codes Byte to ByteArray; false for another code.
bool renderPlainValue(EventText &text, int type, QIODevice &file)
{
    switch (type) {
    case ArgumentType::Byte:
        text.substitute(QString(QLatin1Char(readNumber<char>(file))));
        return true;
    case ArgumentType::Bool:
        text.substitute(qlonglong(readNumber<quint8>(file) != 0 ? 1 : 0));
        return true;
    case ArgumentType::Int16:
        text.substitute(qlonglong(readNumber<qint16>(file)));
        return true;
    case ArgumentType::Int32:
        text.substitute(qlonglong(readNumber<qint32>(file)));
        return true;
    case ArgumentType::Int64:
        text.substitute(qlonglong(readNumber<qint64>(file)));
        return true;
    case ArgumentType::UInt64:
        text.substitute(qulonglong(readNumber<quint64>(file)));
        return true;
    case ArgumentType::Float:
        text.substitute(double(readNumber<float>(file)));
        return true;
    case ArgumentType::Double:
        text.substitute(readNumber<double>(file));
        return true;
    case ArgumentType::String:
        text.substitute(readString(file));
        return true;
    case ArgumentType::ByteArray:
        text.substitute(QString::fromUtf8(upToZeroByte(readByteArray(file))));
        return true;
    default:
        return false;
    }
}

void renderVariant(EventText &text, QIODevice &file)
{
    qint16 type = 0;
    if (LogFormat::read(file, type) < qint64(sizeof type)) {
        return;
    }
    if (type == ArgumentType::Unknown) {
        text.substitute(QStringLiteral("type: \"UNKNOWN\", more errors in this logentry possible"));
    } else if (!renderPlainValue(text, type, file)) {
        text.substitute(QStringLiteral("unknown type, expect more errors in this entry!"));
    }
}

} // namespace

SystemeventLogfileReader::SystemeventLogfileReader(const QDir &directory,
                                                   const SystemeventCatalogue *systemevents)
    : logDir(directory)
    , minLogNr(noMinimum)
    , catalogue(systemevents)
{
    if (!catalogue) {
        qFatal("SystemeventLogfileReader::SystemeventLogfileReader systemevents==NULL!");
    }
    logDir.setNameFilters({QStringLiteral("zib[0-9]*")});
    logDir.setSorting(QDir::Time);
}

SystemeventLogfileReader::~SystemeventLogfileReader() = default;

quint64 SystemeventLogfileReader::getMinLogNr()
{
    refresh();
    return minLogNr;
}

quint64 SystemeventLogfileReader::getMaxLogNr()
{
    refresh();
    return maxLogNr;
}

void SystemeventLogfileReader::logfileChanged()
{
    indexDirty = true;
}

void SystemeventLogfileReader::logfilesRotated()
{
    filesDirty = true;
}

void SystemeventLogfileReader::refresh()
{
    if (filesDirty) {
        fullScan();
    }
    if (indexDirty) {
        updateIndex();
    }
}

void SystemeventLogfileReader::fullScan()
{
    fileTable.clear();
    entryIndex.clear();
    minLogNr = noMinimum;
    maxLogNr = 0;

    logDir.refresh();
    const QStringList names = logDir.entryList();
    for (const QString &name : names) {
        const int fileNr = fileNumber(name);
        std::unique_ptr<QFile> &file = fileTable[fileNr];
        file = std::make_unique<QFile>(logDir.absoluteFilePath(name));
        qDebug() << "opening file: " << name;
        // Opening a pipe, through a link, would wait for a writer that never comes.
        if (QFileInfo(*file).isFile() && file->open(QIODevice::ReadOnly) && file->size() > 0) {
            scanFile(fileNr, *file);
        }
    }
    filesDirty = false;
    indexDirty = false;
}

/*!
 * Walks a file backwards from trailer to trailer. Kept: nothing is checked, so
 * behind a damaged trailer the index holds whatever stands there, down to a
 * record whose trailer points before the start of the file.
 */
void SystemeventLogfileReader::scanFile(int fileNr, QFile &file)
{
    qint64 position = file.size();
    do {
        LogFormat::seek(file, position - LogFormat::trailerSize);
        position -= LogFormat::trailerSize + readNumber<quint16>(file);
        LogFormat::seek(file, position);
        addEntry(readNumber<quint64>(file), {fileNr, position});
        LogFormat::seek(file, position);
    } while (position > 0);
}

void SystemeventLogfileReader::updateIndex()
{
    const auto current = fileTable.find(0);
    if (current != fileTable.end()) {
        extendIndex(*current->second);
    }
    indexDirty = false;
}

/*!
 * Indexes what was appended, backwards down to a number that is known. Kept:
 * where every record is new it ends at the start of the file with the message
 * about a read error, although nothing is wrong.
 */
void SystemeventLogfileReader::extendIndex(QFile &file)
{
    qint64 position = file.size();
    while (true) {
        const qint64 trailerPosition = position - LogFormat::trailerSize;
        quint16 recordLength = 0;
        LogFormat::seek(file, trailerPosition);
        if (LogFormat::read(file, recordLength) < 1 || trailerPosition <= 0) {
            qDebug() << "read error:" << file.fileName() << " seekpos:" << trailerPosition;
            return;
        }
        position = trailerPosition - recordLength;
        LogFormat::seek(file, position);
        const auto logNr = readNumber<quint64>(file);
        if (entryIndex.contains(logNr)) {
            return;
        }
        addEntry(logNr, {0, position});
        LogFormat::seek(file, position);
    }
}

void SystemeventLogfileReader::addEntry(quint64 logNr, LogEntryLocation location)
{
    minLogNr = std::min(minLogNr, logNr);
    maxLogNr = std::max(maxLogNr, logNr);
    entryIndex.insert(logNr, location);
}

QString SystemeventLogfileReader::jsonEntry(quint64 logNr, const QString &lang)
{
    refresh();
    const auto entry = entryIndex.constFind(logNr);
    if (entry == entryIndex.constEnd()) {
        return {};
    }
    QFile &file = *fileTable.at(entry->fileNr);
    const qint64 position = entry->position;

    LogFormat::seek(file, position + LogFormat::logNrOffset);
    const auto storedLogNr = readNumber<quint64>(file);

    LogFormat::seek(file, position + LogFormat::timestampOffset);
    std::array<char, LogFormat::timestampSize> timestamp{};
    file.read(timestamp.data(), LogFormat::timestampSize);
    const auto seconds = qFromLittleEndian<quint64>(timestamp.data());
    const auto microseconds = qFromLittleEndian<quint32>(timestamp.data() + sizeof seconds);

    LogFormat::seek(file, position + LogFormat::eventIdOffset);
    const auto eventId = readNumber<qint32>(file);

    // Kept: microseconds are written without leading zeros, so that 5 of them
    // and half a second look the same.
    return QStringLiteral("{\"eventnr\":") + QString::number(storedLogNr)
        + QStringLiteral(",\"secs\":\"") + QString::number(seconds) + QLatin1Char('.')
        + QString::number(microseconds) + QStringLiteral("\",\"eventtype\":")
        + QString::number(eventId) + QLatin1Char(',') + jsonBody(eventId, file, position, lang)
        + QLatin1Char('}');
}

/*!
 * Numbers still to come count with their separators: a gap that cannot fit, however
 * wide, ends the walk at once.
 */
std::optional<QString> SystemeventLogfileReader::jsonRange(quint64 start, quint64 end,
                                                           const QString &lang, quint64 sizeLimit)
{
    if (start > end) {
        return QStringLiteral("[]");
    }
    constexpr quint64 separatorSize = 2;
    QString answer(QLatin1Char('['));
    quint64 size = 2; // the brackets
    for (quint64 number = start;; ++number) {
        if (end - number >= (sizeLimit - size) / separatorSize) {
            return std::nullopt;
        }
        const QString entry = jsonEntry(number, lang);
        size += quint64(entry.toUtf8().size());
        if (size + (end - number) * separatorSize >= sizeLimit) {
            return std::nullopt;
        }
        answer += entry;
        if (number == end) {
            break;
        }
        answer += QLatin1String(",\n");
        size += separatorSize;
    }
    answer += QLatin1Char(']');
    return answer;
}

QString SystemeventLogfileReader::jsonBody(int eventId, QIODevice &file, qint64 position,
                                           const QString &lang) const
{
    LogFormat::seek(file, position + LogFormat::valuesOffset);
    const auto event = catalogue->events.constFind(uint(eventId));
    if (event == catalogue->events.constEnd()) {
        return QStringLiteral("\"error\":\"Lookup of typeid %1 failed.\"").arg(eventId);
    }
    const QByteArray path = upToZeroByte(file.read(readNumber<quint16>(file)));
    const QString message = renderArguments(event->description(lang), *event, file);

    // Kept: level and path stand as they are; only the message is escaped.
    return QStringLiteral("\"loglevel\":\"") + event->logLevelName
        + QStringLiteral("\",\"path\":\"") + QString::fromLatin1(path)
        + QStringLiteral("\",\"msg\":\"") + zib::jsonUtil::escape(message) + QLatin1Char('"');
}

QString SystemeventLogfileReader::renderArguments(const QString &message,
                                                  const SystemeventDescription &description,
                                                  QIODevice &file) const
{
    EventText text(message);
    for (const SystemeventArgument &argument : description.arguments) {
        switch (argument.type) {
        case ArgumentType::Unknown:
            text.substitute(QStringLiteral("unknown argument type! further errors ahead!"));
            break;
        case ArgumentType::Variant:
            renderVariant(text, file);
            break;
        case ArgumentType::Enum:
            renderEnum(text, argument.enumName, file);
            break;
        default:
            // Another code reads nothing and leaves its placeholder to the next argument.
            (void)renderPlainValue(text, argument.type, file);
        }
    }
    return text.text();
}

void SystemeventLogfileReader::renderEnum(EventText &text, const QString &enumName,
                                          QIODevice &file) const
{
    quint8 value = 0;
    if (LogFormat::read(file, value) < 1) {
        text.substitute(readError);
    } else {
        text.substitute(catalogue->enumText(enumName, value));
    }
}

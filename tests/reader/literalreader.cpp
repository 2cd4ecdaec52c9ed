// SPDX-License-Identifier: Apache-2.0
#include "literalreader.h"

#include "catalog/systemeventcatalogue.h"
#include "literaltext.h"
#include "support/literals.h"

#include <QFile>
#include <QFileInfo>
#include <QtDebug>
#include <QtEndian>

#include <algorithm>
#include <array>

namespace
{

//! A position before the start leaves the file where it is.
void seek(QFile &file, qint64 position)
{
    if (position >= 0) {
        file.seek(position);
    }
}

QByteArray upToZeroByte(const QByteArray &bytes)
{
    const auto end = bytes.indexOf('\0');
    return end < 0 ? bytes : bytes.left(end);
}

//! A message as it stands in a JSON string.
QString jsonText(const QString &message)
{
    static const QString shortForms = "\"\"\\\\\bb\ff\nn\rr\tt"_s; // a character, then its letter
    QString text;
    for (const QChar character : message) {
        const auto found = shortForms.indexOf(character);
        if (found >= 0 && found % 2 == 0) {
            text += QLatin1Char('\\') + shortForms.at(found + 1);
        } else if (character.unicode() < 0x20) {
            text += "\\u"_s
                + QString::number(character.unicode(), 16)
                      .toUpper()
                      .rightJustified(4, QLatin1Char('0'));
        } else {
            text += character;
        }
    }
    return text;
}

} // namespace

LiteralReader::LiteralReader(const QDir &directory, const SystemeventCatalogue *systemevents)
    : logDir(directory)
    , catalogue(systemevents)
{
    logDir.setNameFilters({"zib[0-9]*"_s});
    logDir.setSorting(QDir::Time);
}

LiteralReader::~LiteralReader() = default;

quint64 LiteralReader::getMinLogNr()
{
    refresh();
    return minLogNr;
}

quint64 LiteralReader::getMaxLogNr()
{
    refresh();
    return maxLogNr;
}

void LiteralReader::refresh()
{
    if (filesDirty) {
        fullScan();
    }
    if (indexDirty) {
        const auto current = fileTable.find(0);
        if (current != fileTable.end()) {
            extendIndex(*current->second);
        }
        indexDirty = false;
    }
}

void LiteralReader::fullScan()
{
    fileTable.clear();
    entryIndex.clear();
    minLogNr = ~quint64(0);
    maxLogNr = 0;
    logDir.refresh();
    const QStringList names = logDir.entryList();
    for (const QString &name : names) {
        const int fileNr = name.section(QLatin1Char('.'), 0, 0).mid(3).toInt();
        std::unique_ptr<QFile> &file = fileTable[fileNr];
        file = std::make_unique<QFile>(logDir.absoluteFilePath(name));
        qDebug() << "opening file: " << name;
        if (QFileInfo(*file).isFile() && file->open(QIODevice::ReadOnly) && file->size() > 0) {
            scanFile(fileNr, *file);
        }
    }
    filesDirty = false;
    indexDirty = false;
}

void LiteralReader::scanFile(int fileNr, QFile &file)
{
    qint64 position = file.size();
    do {
        seek(file, position - 2);
        position -= 2 + readNumber<quint16>(file);
        seek(file, position);
        addEntry(readNumber<quint64>(file), {fileNr, position});
        seek(file, position);
    } while (position > 0);
}

void LiteralReader::extendIndex(QFile &file)
{
    qint64 position = file.size();
    while (true) {
        seek(file, position - 2);
        quint16 trailer = 0;
        if (read(file, trailer) < 1 || position - 2 <= 0) {
            qDebug() << "read error:" << file.fileName() << " seekpos:" << position - 2;
            ++met.readErrorMessages;
            return;
        }
        position -= 2 + trailer;
        seek(file, position);
        const auto logNr = readNumber<quint64>(file);
        if (entryIndex.contains(logNr)) {
            return;
        }
        addEntry(logNr, {0, position});
        seek(file, position);
    }
}

void LiteralReader::addEntry(quint64 logNr, Location location)
{
    minLogNr = std::min(minLogNr, logNr);
    maxLogNr = std::max(maxLogNr, logNr);
    entryIndex.insert(logNr, location);
}

QString LiteralReader::jsonEntry(quint64 logNr, const QString &lang)
{
    refresh();
    answerWorkLeft = LiteralText::answerWork;
    return element(logNr, lang);
}

QString LiteralReader::element(quint64 logNr, const QString &lang)
{
    const auto entry = entryIndex.constFind(logNr);
    if (entry == entryIndex.constEnd()) {
        return {};
    }
    return recordJson(*fileTable.at(entry->fileNr), entry->position, lang);
}

QString LiteralReader::recordJson(QFile &file, qint64 position, const QString &lang)
{
    ++met.records;
    met.recordsBeforeTheFile += position < 0 ? 1 : 0;
    met.recordsOfAnUnopenedFile += file.isOpen() ? 0 : 1;

    seek(file, position);
    const auto logNr = readNumber<quint64>(file);
    seek(file, position + 8);
    std::array<char, 16> timestamp{};
    file.read(timestamp.data(), qint64(timestamp.size()));
    const auto seconds = qFromLittleEndian<quint64>(timestamp.data());
    const auto microseconds = qFromLittleEndian<quint32>(timestamp.data() + 8);
    seek(file, position + 24);
    const auto eventId = readNumber<qint32>(file);
    seek(file, position + 28);
    return "{\"eventnr\":"_s + QString::number(logNr) + ",\"secs\":\""_s + QString::number(seconds)
        + "."_s + QString::number(microseconds) + "\",\"eventtype\":"_s + QString::number(eventId)
        + ","_s + body(eventId, file, lang) + "}"_s;
}

QString LiteralReader::body(int eventId, QFile &file, const QString &lang)
{
    const auto event = catalogue->events.constFind(uint(eventId));
    if (event == catalogue->events.constEnd()) {
        return "\"error\":\"Lookup of typeid %1 failed.\""_s.arg(eventId);
    }
    const QByteArray path = upToZeroByte(file.read(readNumber<quint16>(file)));
    const QString message = renderArguments(event->description(lang), *event, file);
    return "\"loglevel\":\""_s + event->logLevelName + "\",\"path\":\""_s
        + QString::fromLatin1(path) + "\",\"msg\":\""_s + jsonText(message) + "\""_s;
}

std::optional<QString> LiteralReader::jsonRange(quint64 start, quint64 end, const QString &lang,
                                                quint64 sizeLimit)
{
    refresh();
    if (start > end) {
        return "[]"_s;
    }
    answerWorkLeft = LiteralText::answerWork;
    QString answer = "["_s;
    quint64 size = 2; // the brackets
    for (quint64 number = start;; ++number) {
        // Every number still to come takes its separator, of two bytes, at least.
        if (size >= sizeLimit || end - number > (sizeLimit - size - 1) / 2) {
            return std::nullopt;
        }
        const QString entry = element(number, lang);
        answer += entry;
        size += quint64(entry.toUtf8().size());
        if (number == end) {
            break;
        }
        answer += ",\n"_s;
        size += 2;
    }
    if (size >= sizeLimit) {
        return std::nullopt;
    }
    return answer + "]"_s;
}

QString LiteralReader::renderArguments(const QString &message, const SystemeventDescription &event,
                                       QFile &file)
{
    LiteralText text(message);
    for (const SystemeventArgument &argument : event.arguments) {
        ++met.types[argument.type];
        switch (argument.type) {
        case -1:
            text.substitute("unknown argument type! further errors ahead!"_s);
            break;
        case 10:
            renderVariant(text, file);
            break;
        case 11:
            renderEnum(text, argument.enumName, file);
            break;
        default:
            (void)renderPlainValue(text, argument.type, file); // another code reads nothing
        }
    }
    QString rendered = text.recordText(answerWorkLeft);
    met.textsTooLong += text.isTooLong() ? 1 : 0;
    met.textsTooCostly += text.isTooCostly() ? 1 : 0;
    return rendered;
}

//! Substitutes a value of one of the codes 0 to 9; false for another code.
bool LiteralReader::renderPlainValue(LiteralText &text, int type, QFile &file)
{
    switch (type) {
    case 0:
        renderText(text, QString(QLatin1Char(readNumber<char>(file))));
        return true;
    case 1:
        text.substitute(qlonglong(readNumber<quint8>(file) != 0 ? 1 : 0));
        return true;
    case 2:
        text.substitute(qlonglong(readNumber<qint16>(file)));
        return true;
    case 3:
        text.substitute(qlonglong(readNumber<qint32>(file)));
        return true;
    case 4:
        text.substitute(qlonglong(readNumber<qint64>(file)));
        return true;
    case 5:
        text.substitute(qulonglong(readNumber<quint64>(file)));
        return true;
    case 6:
        text.substitute(double(readNumber<float>(file)));
        return true;
    case 7:
        text.substitute(readNumber<double>(file));
        return true;
    case 8: {
        const QByteArray bytes = readSized(file).value_or(QByteArray("readerror"));
        renderText(text, QString::fromUtf8(bytes.constData(), bytes.size()));
        return true;
    }
    case 9:
        renderText(
            text,
            QString::fromUtf8(upToZeroByte(readSized(file).value_or(QByteArray("readerror")))));
        return true;
    default:
        return false;
    }
}

void LiteralReader::renderVariant(LiteralText &text, QFile &file)
{
    qint16 type = 0;
    if (read(file, type) < 2) {
        return;
    }
    ++met.variantTypes[type];
    if (type == -1) {
        text.substitute("type: \"UNKNOWN\", more errors in this logentry possible"_s);
    } else if (!renderPlainValue(text, type, file)) {
        text.substitute("unknown type, expect more errors in this entry!"_s);
    }
}

void LiteralReader::renderEnum(LiteralText &text, const QString &enumName, QFile &file)
{
    quint8 value = 0;
    if (read(file, value) < 1) {
        text.substitute("readerror"_s);
    } else {
        renderText(text, catalogue->enumText(enumName, value));
    }
}

void LiteralReader::renderText(LiteralText &text, const QString &value)
{
    met.percentValues += value.contains(QLatin1Char('%')) ? 1 : 0;
    text.substitute(value);
}

template <typename Number>
qint64 LiteralReader::read(QFile &file, Number &value)
{
    std::array<char, sizeof(Number)> bytes{};
    const qint64 delivered = file.read(bytes.data(), qint64(bytes.size()));
    met.shortNumbers += delivered < qint64(bytes.size()) ? 1 : 0;
    value = qFromLittleEndian<Number>(bytes.data());
    return delivered;
}

template <typename Number>
Number LiteralReader::readNumber(QFile &file)
{
    Number value{};
    (void)read(file, value);
    return value;
}

//! A value with its length in front; none where the file ends before it does.
std::optional<QByteArray> LiteralReader::readSized(QFile &file)
{
    quint16 length = 0;
    const bool hasLength = read(file, length) == qint64(sizeof length);
    QByteArray content = hasLength ? file.read(length) : QByteArray();
    if (!hasLength || content.size() < length) {
        ++met.shortValues;
        return std::nullopt;
    }
    return content;
}

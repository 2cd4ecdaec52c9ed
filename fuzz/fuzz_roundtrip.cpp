// SPDX-License-Identifier: Apache-2.0

// The input describes events: times, paths, and values of all types that a bus can
// bring and of some that it cannot. The writer stores them, through bundles, full
// files and restarts; the files then hold exactly the bytes that are worked out here,
// and the reader shows exactly these values.

#include "binlog/binaryloginterface.h"
#include "catalog/systemeventcatalogue.h"
#include "checks.h"
#include "input.h"
#include "logformat/encoding.h"
#include "logformat/logformat.h"
#include "memoryfolder.h"
#include "reader/literaltext.h"
#include "reader/systemeventlogfilereader.h"
#include "support/literals.h"
#include "support/recordbytes.h"

#include <QBuffer>
#include <QDBusObjectPath>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

namespace
{

constexpr int mostRecords = 12;
constexpr int mostValues = 20;
constexpr int mostBytes = 60000; //!< of a record's values: its length has 16 bits
constexpr quint64 noLimit = 1000000000;

const MemoryFolder &folder()
{
    static const MemoryFolder onlyOne;
    return onlyOne;
}

//! A value, and what becomes of it.
struct Value {
    QVariant live;
    QByteArray bytes;
    int type = ArgumentType::Unknown; //!< as the catalogue has to declare it
    QVariant shown;                   //!< a number or a text; invalid where nothing is stored
    bool hidesTheRest = false;        //!< what follows cannot be read by any declaration
};

Value integer(const QVariant &live, qint64 shown, int type, int size)
{
    return {live, RecordBytes::number(quint64(shown), size), type, qlonglong(shown)};
}

Value real(double value)
{
    quint64 bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return {value, RecordBytes::number(bits, 8), ArgumentType::Double, value};
}

Value text(const QString &value)
{
    const QByteArray utf8 = value.toUtf8();
    return {value, RecordBytes::sized(utf8), ArgumentType::String,
            QString::fromUtf8(utf8.constData(), utf8.size())};
}

QString takeText(Input &input)
{
    const QString once = input.flag() ? input.rawText() : input.shortText();
    return input.flag() ? once.repeated(input.byte()) : once;
}

//! A value of one of the types that are stored.
Value storedValue(Input &input, int kind)
{
    switch (kind) {
    case 0: {
        const bool value = input.flag();
        return integer(value, value ? 1 : 0, ArgumentType::Bool, 1);
    }
    case 1: {
        const auto value = input.number<qint32>();
        return integer(value, value, ArgumentType::Int32, 4);
    }
    case 2: {
        const auto value = input.number<quint32>();
        return integer(value, qint32(value), ArgumentType::Int32, 4);
    }
    case 3: {
        const auto value = input.number<qint64>();
        return integer(value, qint32(quint32(value & 0xFFFFFFFF)), ArgumentType::Int64, 8);
    }
    case 4:
        return real(input.number<double>());
    case 5: {
        const QChar value(input.number<char16_t>());
        const char low = char(value.unicode() & 0xFF);
        return {value, QByteArray(1, low), ArgumentType::Byte, QString(QLatin1Char(low))};
    }
    default:
        return text(takeText(input));
    }
}

//! A value of a type that leaves no bytes.
QVariant unstoredValue(Input &input)
{
    switch (input.below(10)) {
    case 0:
        return QVariant::fromValue<quint64>(input.number<quint64>());
    case 1:
        return QVariant::fromValue<uchar>(input.number<uchar>());
    case 2:
        return QVariant::fromValue<short>(input.number<short>());
    case 3:
        return QVariant::fromValue<ushort>(input.number<ushort>());
    case 4:
        return QVariant::fromValue<float>(input.number<float>());
    case 5:
        return input.shortBytes();
    case 6:
        return QStringList{input.shortText()};
    case 7:
        return QVariant::fromValue(QDBusObjectPath("/a"_s));
    case 8:
        return QVariantList{input.byte(), input.shortText()};
    default:
        return {};
    }
}

QVariant wrapped(const QVariant &value)
{
    return QVariant::fromValue(WrappedValue{value});
}

Value takeValue(Input &input)
{
    constexpr int storedKinds = 7;
    constexpr quint64 unknownType = 0xFFFF;
    const QString unknown = "type: \"UNKNOWN\", more errors in this logentry possible"_s;
    const int kind = input.below(16);
    if (kind < storedKinds) {
        return storedValue(input, kind);
    }
    if (kind < 2 * storedKinds) {
        const Value inner = storedValue(input, kind - storedKinds);
        return {wrapped(inner.live), RecordBytes::number(quint64(inner.type), 2) + inner.bytes,
                ArgumentType::Variant, inner.shown};
    }
    if (kind == 2 * storedKinds) {
        const Value inner = storedValue(input, input.below(storedKinds));
        return {wrapped(wrapped(inner.live)),
                RecordBytes::number(unknownType, 2) + RecordBytes::number(quint64(inner.type), 2)
                    + inner.bytes,
                ArgumentType::Variant, unknown, true};
    }
    const QVariant live = unstoredValue(input);
    if (input.flag()) {
        return {wrapped(live), RecordBytes::number(unknownType, 2), ArgumentType::Variant, unknown};
    }
    return {live, {}, ArgumentType::Unknown, {}};
}

//! Writes every record with the time that it is given.
class TimedLog : public BinaryLogInterface
{
public:
    using BinaryLogInterface::BinaryLogInterface;

    void setTime(qint64 newSeconds, qint32 newMicroseconds)
    {
        seconds = newSeconds;
        microseconds = newMicroseconds;
    }

protected:
    void writeTimestamp() override { appendTimestamp(seconds, microseconds); }

private:
    qint64 seconds = 0;
    qint32 microseconds = 0;
};

class RoundTrip
{
public:
    explicit RoundTrip(Input &events)
        : input(events)
        , bundleLimit(input.number<uint16_t>())
        , fileLimit(input.flag() ? input.number<uint16_t>() : 0)
        , firstId(input.number<qint32>())
        , reader(folder().dir(), &catalogue)
    {
        folder().clear();
        start();
    }

    void run()
    {
        for (int i = 0; i < mostRecords && !input.atEnd(); ++i) {
            logOne();
            const int next = input.byte();
            if ((next & 3) == 1) {
                log->writeBundle();
                check();
            } else if ((next & 7) == 2) {
                log->writeBundle();
                start();
            }
        }
        log->writeBundle();
        check();
    }

private:
    struct Shown {
        QString object;
        QString message;
        qint64 workLeft = 0; //!< of an answer after this message alone
        bool isJson = false; //!< a path with a quote makes none
    };

    void start();
    void logOne();
    QList<Value> takeValues();
    SystemeventDescription declare(int id, const QList<Value> &values);
    void expect(const RecordBytes::Fields &fields, const SystemeventDescription &event,
                const QList<Value> &values);
    void check();

    Input &input;
    uint bundleLimit;
    uint fileLimit;
    qint32 firstId;
    SystemeventCatalogue catalogue;
    SystemeventLogfileReader reader;
    std::unique_ptr<TimedLog> log;
    QByteArray bytes; //!< of all files together
    QList<Shown> shown;
};

//! A device starts, for the first time or once more.
void RoundTrip::start()
{
    constexpr int flushSeconds = 3600;
    constexpr int logtail = 1000; // no record is to be dropped
    log = std::make_unique<TimedLog>(bundleLimit, flushSeconds, logtail, fileLimit, folder().dir());
    QObject::connect(log.get(), &BinaryLogInterface::bundleWritten, &reader,
                     &SystemeventLogfileReader::logfileChanged);
    QObject::connect(log.get(), &BinaryLogInterface::logsRotated, &reader,
                     &SystemeventLogfileReader::logfilesRotated);
    reader.logfilesRotated(); // starting may have rotated before the reader was told
}

void RoundTrip::logOne()
{
    RecordBytes::Fields fields;
    fields.logNr = quint64(shown.size()) + 1;
    fields.eventId = qint32(quint32(firstId) + quint32(shown.size()));
    // No clock can show a time whose absolute value does not fit.
    const qint64 seconds = std::max(input.number<qint64>(), -std::numeric_limits<qint64>::max());
    fields.seconds = std::abs(seconds);
    fields.microseconds = input.number<qint32>();
    const QString path = input.flag() ? input.shortText() : "/power/supply"_s;
    fields.path = path.toUtf8();

    const QList<Value> values = takeValues();
    QList<QVariant> args{path};
    for (const Value &value : values) {
        args.append(value.live);
        fields.values += value.bytes;
    }
    const SystemeventDescription event = declare(fields.eventId, values);
    catalogue.events.insert(event.id, event);
    log->setTime(seconds, fields.microseconds);
    log->logEvent(fields.eventId, args);
    bytes += RecordBytes::record(fields);
    expect(fields, event, values);
}

QList<Value> RoundTrip::takeValues()
{
    QList<Value> values;
    int size = 0;
    for (int count = input.below(mostValues); count > 0; --count) {
        const Value value = takeValue(input);
        size += int(value.bytes.size());
        if (size > mostBytes) {
            break;
        }
        values.append(value);
    }
    return values;
}

SystemeventDescription RoundTrip::declare(int id, const QList<Value> &values)
{
    SystemeventDescription event(uint(id), "event"_s, "info"_s, "service"_s);
    QString counting;
    for (const Value &value : values) {
        if (value.shown.isValid()) {
            event.arguments.append(SystemeventArgument("argument"_s, value.type));
            counting += "%%1 "_s.arg(event.arguments.size());
        }
        if (value.hidesTheRest) {
            break;
        }
    }
    event.descriptions.insert("en"_s, input.flag() ? input.shortText() : counting);
    return event;
}

void substitute(LiteralText &text, const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::Double:
        text.substitute(value.toDouble());
        break;
    case QMetaType::LongLong:
        text.substitute(value.toLongLong());
        break;
    default:
        text.substitute(value.toString());
    }
}

void RoundTrip::expect(const RecordBytes::Fields &fields, const SystemeventDescription &event,
                       const QList<Value> &values)
{
    LiteralText message(event.description("en"_s));
    for (const Value &value : values) {
        if (value.shown.isValid()) {
            substitute(message, value.shown);
        }
        if (value.hidesTheRest) {
            break;
        }
    }
    const QByteArray path
        = fields.path.left(int(qstrnlen(fields.path.constData(), size_t(fields.path.size()))));
    // As the answers have it: in UTF-8, where half of a pair has no place.
    qint64 workLeft = LiteralText::answerWork;
    const QByteArray utf8 = message.recordText(workLeft).toUtf8();
    const QString text = QString::fromUtf8(utf8.constData(), utf8.size());
    const QString head = "{\"eventnr\":"_s + QString::number(fields.logNr) + ",\"secs\":\""_s
        + QString::number(fields.seconds) + "."_s + QString::number(quint32(fields.microseconds))
        + "\",\"eventtype\":"_s + QString::number(fields.eventId) + ",\"loglevel\":\"info\","_s
        + "\"path\":\""_s + QString::fromLatin1(path) + "\",\"msg\":\""_s;
    const bool isJson = std::all_of(path.cbegin(), path.cend(), [](char c) {
        return static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\';
    });
    shown.append({head, text, workLeft, isJson});
}

//! The message within an object, as JSON has it.
QString messageOf(const QString &object)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(object.toUtf8(), &error);
    require(error.error == QJsonParseError::NoError, "an object is valid JSON");
    return document.object().value("msg"_s).toString();
}

void RoundTrip::check()
{
    QByteArray stored;
    const QMap<int, QByteArray> files = folder().logFiles();
    for (const QByteArray &content : files) {
        stored.prepend(content);
    }
    require(stored == bytes, "the files hold the bytes of all records");
    QBuffer buffer(&stored);
    require(buffer.open(QIODevice::ReadOnly)
                && LogFormat::lastLogNr(buffer) == quint64(shown.size()),
            "the last number is found");
    require(reader.getMaxLogNr() == quint64(shown.size()), "the largest number is the last");
    require(reader.getMinLogNr() == (shown.isEmpty() ? ~quint64(0) : 1), "the smallest is 1");

    QStringList objects;
    qint64 workLeft = LiteralText::answerWork; // after all messages in one answer
    for (int i = 0; i < shown.size(); ++i) {
        const QString object = reader.jsonEntry(quint64(i) + 1, "en"_s);
        objects.append(object);
        workLeft -= LiteralText::answerWork - shown.at(i).workLeft;
        require(object.startsWith(shown.at(i).object), "an object begins with its record");
        if (shown.at(i).isJson) {
            requireEqual(shown.at(i).message, messageOf(object), "message");
        }
    }
    const std::optional<QString> range
        = reader.jsonRange(1, quint64(shown.size()), "en"_s, noLimit);
    require(range.has_value(), "a range is answered");
    if (workLeft < 0) {
        return; // in one answer some of the messages are closed earlier
    }
    requireEqual("["_s + objects.join(",\n"_s) + "]"_s, *range, "range");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    prepare();
    static const QLocale german("de_DE"_s);
    QLocale::setDefault(german);
    Input input(data, size);
    RoundTrip(input).run();
    return 0;
}

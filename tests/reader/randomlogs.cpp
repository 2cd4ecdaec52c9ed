// SPDX-License-Identifier: Apache-2.0
#include "randomlogs.h"

#include "support/literals.h"
#include "support/recordbytes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace
{

using RecordBytes::number;

constexpr int longestValue = 65535;

QByteArray utf8(const char16_t *text)
{
    return QString::fromUtf16(text).toUtf8();
}

template <typename Real>
QByteArray realBytes(Real value)
{
    quint64 bits = 0;
    std::memcpy(&bits, &value, sizeof value);
    return number(bits, int(sizeof value));
}

} // namespace

RandomLogs::RandomLogs(Dice &throws)
    : dice(throws)
{
    makeEnums();
    makeEvents();
    next = dice.chance(70) ? quint64(dice.below(50)) : next;
    if (dice.chance(8)) {
        jump();
    }
    sameNumbers = dice.chance(2);
}

void RandomLogs::makeEnums()
{
    events.enums.insert("Source"_s, {{0, "mains"_s}, {1, "battery"_s}, {255, "none"_s}});
    events.enums.insert("Odd"_s,
                        {{0, "%1"_s},
                         {1, "100%"_s},
                         {2, "\"quoted\" \\"_s},
                         {3, "%L2"_s},
                         {4, QString::fromUtf16(u"ü \u20AC \U0001F50B")},
                         {65, "9"_s}});
}

void RandomLogs::makeEvents()
{
    // Numbers that missing bytes leave behind must name events as well: 0 first of all.
    static const std::array<int, 8> ids{1001, 0, -5, 1002, 2147483647, 2573, 7, 1003};
    const int count = dice.between(2, int(ids.size()));
    for (int i = 0; i < count; ++i) {
        makeEvent(ids.at(size_t(i)));
    }
}

void RandomLogs::makeEvent(int id)
{
    static const QList<QString> levels{"warning"_s, "error"_s, ""_s, "a\"b\\c"_s,
                                       QString::fromUtf16(u"H\u00F6he \u20AC")};
    SystemeventDescription event(uint(id), "event"_s, dice.oneOf(levels), "service"_s);
    const QList<int> types = typeCodes();
    for (const int type : types) {
        SystemeventArgument argument("argument"_s, type);
        argument.enumName = dice.oneOf(QList<QString>{"Source"_s, "Odd"_s, "missing"_s});
        event.arguments.append(argument);
    }
    static const QList<QString> languages{"en"_s, "de"_s, "it"_s, ""_s};
    for (const QString &lang : languages) {
        if (dice.chance(lang == "en"_s ? 92 : 40)) {
            event.descriptions.insert(lang, templateFor(int(types.size())));
        }
    }
    events.events.insert(uint(id), event);
    eventIds.append(id);
}

QList<int> RandomLogs::typeCodes()
{
    static const std::array<int, 24> codes{0,  1,  2, 3, 4, 5, 6, 7,  8,  9, 10, 11,
                                           10, 11, 8, 8, 9, 7, 7, -1, 12, 0, 6,  255};
    int count = dice.below(7);
    if (dice.chance(2)) {
        count = dice.between(9, 15);
    } else if (dice.chance(1)) {
        count = dice.between(97, 101);
    }
    QList<int> types;
    const bool plain = dice.chance(40);
    for (int i = 0; i < count; ++i) {
        types.append(plain ? dice.below(10) : dice.oneOf(codes));
    }
    return types;
}

QString RandomLogs::templateFor(int arguments)
{
    if (dice.chance(45)) {
        return wildTemplate(arguments);
    }
    QString text;
    static const QList<QString> words{" V, "_s, "voltage "_s, ": "_s, " "_s,
                                      QString::fromUtf16(u" \u00B0C ")};
    for (int i = 1; i <= arguments; ++i) {
        text += dice.oneOf(words) + QLatin1Char('%') + QString::number(i);
    }
    return dice.chance(50) ? text + dice.oneOf(words) : text;
}

QString RandomLogs::placeholder(int number)
{
    const QString digits = QString::number(number);
    switch (dice.below(8)) {
    case 0:
        return "%L"_s + digits;
    case 1:
        return "%%"_s + digits;
    case 2:
        return "%"_s + digits + QString::number(dice.below(10));
    case 3:
        return "%0"_s + digits;
    default:
        return "%"_s + digits;
    }
}

QString RandomLogs::wildTemplate(int arguments)
{
    static const QList<QString> pieces{
        "%"_s,
        "%%"_s,
        "%L"_s,
        "%LL1"_s,
        "%l1"_s,
        "%-1"_s,
        "% 1"_s,
        "%0"_s,
        "%00"_s,
        "%99"_s,
        "%100"_s,
        "%L99"_s,
        "text"_s,
        " "_s,
        "1"_s,
        "27"_s,
        "\""_s,
        "\\"_s,
        "\n"_s,
        "\x01\x1F"_s,
        QString::fromUtf16(u"%\u0661"),       // Arabic-Indic one
        QString::fromUtf16(u"%1\u0662"),      // and two
        QString::fromUtf16(u"%L\u0967"),      // Devanagari one
        QString::fromUtf16(u"%\uFF11"),       // full-width one
        QString::fromUtf16(u"%\u00B2\u00BC"), // digits of another kind
        QString::fromUtf16(u"%\U0001D7CF"),   // a digit beyond the first plane
        QString::fromUtf16(u"\U0001F50B\uFEFF"),
        QString::fromUtf16(u"\u00E4\u20AC\u2028"),
    };
    QString text;
    const int count = dice.below(2 * std::min(arguments, 8) + 3);
    const int highest = std::clamp(arguments + dice.between(-2, 2), 1, 99);
    for (int i = 0; i < count; ++i) {
        text += dice.chance(60) ? placeholder(dice.between(1, highest)) : dice.oneOf(pieces);
    }
    if (dice.chance(2)) {
        for (int i = 99; i > 0; --i) {
            text += "%"_s + QString::number(i) + ","_s;
        }
    }
    return text;
}

quint64 RandomLogs::nextNumber()
{
    if (dice.chance(3)) {
        next += quint64(dice.between(1, 5)); // a gap
    }
    const quint64 taken = next;
    next += sameNumbers ? 0 : 1;
    numbers.append(taken);
    return taken;
}

void RandomLogs::jump()
{
    static const std::array<quint64, 7> starts{Q_UINT64_C(1) << 62,
                                               std::numeric_limits<quint64>::max(),
                                               std::numeric_limits<quint64>::max() - 4,
                                               Q_UINT64_C(1) << 63,
                                               Q_UINT64_C(0xFFFFFFFF),
                                               0,
                                               300};
    next = dice.oneOf(starts);
}

QByteArray RandomLogs::recordOf(quint64 logNr, int eventId, const QByteArray &path,
                                const QByteArray &values)
{
    RecordBytes::Fields fields;
    fields.logNr = logNr;
    fields.eventId = eventId;
    fields.path = path;
    fields.values = values;
    fields.microseconds = dice.below(1000000);
    if (dice.chance(3)) {
        fields.seconds = qint64(dice.bits());
        fields.microseconds = qint32(dice.bits());
    }
    return RecordBytes::record(fields);
}

QByteArray RandomLogs::record()
{
    static const QList<QByteArray> paths{"/power/supply", "/", "", "a\"b\\c",
                                         QByteArray("/ends\0here", 10)};
    QByteArray path = dice.oneOf(paths);
    if (dice.chance(10)) {
        path = text().repeated(dice.chance(20) ? dice.between(10, 100) : 1);
    }
    const int eventId = dice.chance(95) ? dice.oneOf(eventIds) : int(dice.bits());
    const auto event = events.events.constFind(uint(eventId));
    const QByteArray content = event == events.events.constEnd() ? text() : values(*event);
    return recordOf(nextNumber(), eventId, path, content);
}

QByteArray RandomLogs::records(int count)
{
    QByteArray bytes;
    for (int i = 0; i < count; ++i) {
        bytes += record();
    }
    return bytes;
}

QByteArray RandomLogs::filler(int valueSize)
{
    return recordOf(nextNumber(), dice.oneOf(eventIds), "/",
                    QByteArray(valueSize, dice.chance(50) ? 'f' : '\xFF'));
}

QByteArray RandomLogs::values(const SystemeventDescription &event)
{
    QByteArray bytes;
    for (const SystemeventArgument &argument : event.arguments) {
        if (!dice.chance(2)) { // the writer leaves values out that it does not handle
            bytes += value(argument.type);
        }
    }
    return bytes;
}

QByteArray RandomLogs::value(int type)
{
    switch (type) {
    case 0: {
        static const QByteArray odd("%\0\xFF\"9\x80\n", 7);
        return dice.chance(50) ? QByteArray(1, dice.oneOf(odd)) : number(dice.bits(), 1);
    }
    case 1:
        return number(quint64(dice.oneOf(std::array<int, 4>{0, 1, 2, 255})), 1);
    case 2:
        return integer(2);
    case 3:
        return integer(4);
    case 4:
    case 5:
        return integer(8);
    case 6:
        return dice.chance(20) ? number(dice.bits(), 4) : realBytes(float(real()));
    case 7:
        return dice.chance(20) ? number(dice.bits(), 8) : realBytes(real());
    case 8:
    case 9:
        return sizedValue();
    case 10:
        return variant();
    case 11:
        return number(quint64(dice.chance(60) ? dice.below(5) : dice.below(256)), 1);
    default:
        return {};
    }
}

QByteArray RandomLogs::variant()
{
    const int type = dice.chance(90) ? dice.between(-1, 12) : int(dice.bits() % 65536);
    return number(quint64(type), 2) + (type <= 9 ? value(type) : QByteArray());
}

QByteArray RandomLogs::sizedValue()
{
    QByteArray content = text();
    if (dice.chance(1)) {
        content = content.repeated(dice.between(1, 400));
    }
    return RecordBytes::sized(content.left(longestValue));
}

QByteArray RandomLogs::text()
{
    QByteArray bytes;
    const int count = dice.below(4);
    for (int i = 0; i < count; ++i) {
        bytes += textPiece();
    }
    return bytes;
}

QByteArray RandomLogs::textPiece()
{
    static const QList<QByteArray> pieces{
        "mains",
        "over voltage",
        "-12.5",
        "0",
        "%",
        "%%",
        "%1",
        "%2",
        "%L1",
        "%L2",
        "%9",
        "%99",
        "%100",
        "100%",
        "%L",
        "L1",
        QByteArray("\0", 1),
        QByteArray("a\0b", 3),
        "\x01\x1F\x7F",
        "\b\f\n\r\t",
        "\"",
        "\\",
        "\\u0041",
        "\xEF\xBB\xBF", // a byte order mark
        "\xEF\xBB",     // and a part of one
        "\x80",         // continuation without a beginning
        "\xBF\xBF",
        "\xC3", // beginnings without an end
        "\xE2\x82",
        "\xF0\x9F\x94",
        "\xC0\xAF", // longer than need be
        "\xE0\x80\x80",
        "\xED\xA0\xBD", // halves of a surrogate pair
        "\xED\xB4\x8B",
        "\xF4\x90\x80\x80", // beyond Unicode
        "\xFE\xFF",
        utf8(u"\u00E4\u00F6\u00FC"),
        utf8(u"\u20AC"),
        utf8(u"\U0001F50B"),
        utf8(u"\U0010FFFF"),
        utf8(u"\uFFFE\uFFFF"),
        utf8(u"%\u0661"), // Arabic-Indic digits
        utf8(u"\u0661\u0662"),
        utf8(u"\u2028\u0085"),
    };
    if (dice.chance(4)) {
        QByteArray random(dice.below(40), '\0');
        std::generate(random.begin(), random.end(), [this] { return char(dice.bits()); });
        return random;
    }
    return dice.chance(30) ? QByteArray("plain text") : dice.oneOf(pieces);
}

QByteArray RandomLogs::integer(int size)
{
    static const std::array<quint64, 12> extremes{0,
                                                  1,
                                                  ~quint64(0),
                                                  0x7F,
                                                  0x7FFF,
                                                  0x8000,
                                                  0x7FFFFFFF,
                                                  0x80000000,
                                                  0x7FFFFFFFFFFFFFFF,
                                                  0x8000000000000000,
                                                  1000,
                                                  1000000};
    const quint64 value = dice.chance(50) ? dice.oneOf(extremes) : dice.bits() >> dice.below(64);
    return number(value, size);
}

double RandomLogs::real()
{
    using Limits = std::numeric_limits<double>;
    static const std::array<double, 38> odd{0.0,
                                            -0.0,
                                            1.0,
                                            -1.0,
                                            0.1,
                                            0.5,
                                            2.5,
                                            12.03125,
                                            -12.03125,
                                            100000.5,
                                            999999.5,
                                            999999.4,
                                            9999995.0,
                                            1000005.0,
                                            1234565.0,
                                            1234567.0,
                                            0.0001,
                                            0.00001,
                                            0.000099999949,
                                            0.000099999951,
                                            1e5,
                                            1e6,
                                            1e15,
                                            1e16,
                                            1e22,
                                            1e23,
                                            1e100,
                                            123456.0,
                                            123456.5,
                                            123457.5,
                                            1e-7,
                                            3.4e38,
                                            1e-45,
                                            Limits::max(),
                                            Limits::min(),
                                            Limits::denorm_min(),
                                            Limits::infinity(),
                                            Limits::quiet_NaN()};
    double value = dice.oneOf(odd);
    switch (dice.below(5)) {
    case 0: // a tie at the seventh digit, or next to one where it has no exact form
        value = (dice.between(100000, 999999) * 10 + 5) * std::pow(10.0, dice.between(-12, 6));
        break;
    case 1:
        value = dice.between(-9999999, 9999999) / 64.0; // ties of this kind are exact
        break;
    case 2:
        value = dice.between(-1000, 1000) / std::pow(10.0, dice.below(6));
        break;
    default:
        break;
    }
    if (dice.chance(15)) {
        value = std::nextafter(value, dice.chance(50) ? Limits::infinity() : -Limits::infinity());
    }
    return dice.chance(20) ? -value : value;
}

QByteArray RandomLogs::file()
{
    if (dice.chance(4)) {
        static const std::array<int, 8> sizes{0, 1, 2, 3, 8, 30, 100, 2000};
        QByteArray bytes(dice.oneOf(sizes), '\0');
        const int kinds = dice.oneOf(std::array<int, 4>{1, 2, 4, 256});
        std::generate(bytes.begin(), bytes.end(), [&] { return char(dice.below(kinds)); });
        return bytes;
    }
    QByteArray bytes = records(dice.chance(5) ? dice.between(10, 40) : dice.below(7));
    if (dice.chance(45)) {
        damage(bytes);
    }
    return bytes;
}

void RandomLogs::damage(QByteArray &bytes)
{
    if (bytes.isEmpty()) {
        return;
    }
    const int size = int(bytes.size());
    const int at = dice.below(size);
    switch (dice.below(8)) {
    case 0:
        for (int flips = dice.between(1, 20); flips > 0; --flips) {
            char &byte = bytes.data()[dice.below(size)];
            byte = char(byte ^ (1 << dice.below(8)));
        }
        break;
    case 1:
        bytes.truncate(at);
        break;
    case 2:
        std::fill_n(bytes.begin() + at, dice.below(size - at + 1), '\0');
        break;
    case 3: // a random trailer
        bytes.replace(size - std::min(2, size), 2, number(dice.bits(), 2));
        break;
    case 4: // one that points before the file, as far as the size allows
        bytes.replace(size - std::min(2, size), 2,
                      number(quint64(std::min(size + dice.below(100), longestValue)), 2));
        break;
    case 5: // anything at all, lengths included
        bytes.replace(at, 2, number(dice.chance(50) ? 0xFFFF : dice.bits(), 2));
        break;
    case 6:
        bytes.remove(at, dice.between(1, 40));
        break;
    default:
        bytes.insert(at, QByteArray(dice.between(1, 5), char(dice.bits())));
        break;
    }
    if (dice.chance(30)) {
        damage(bytes);
    }
}

QByteArray RandomLogs::textAtTheLimit()
{
    // The first value takes the text near a million characters, the second on to the
    // limit, or to one less or one more.
    constexpr int copies = 18;
    constexpr int length = 58000; // a record is found by its trailer up to 65535 bytes
    constexpr int missing = 1048576 - copies * length;
    SystemeventDescription event(4001, "limit"_s, "warning"_s, "service"_s);
    event.descriptions.insert("en"_s, "%1"_s.repeated(copies) + "%2%3"_s);
    const QByteArray values = RecordBytes::sized(QByteArray(length, 'x'))
        + RecordBytes::sized(QByteArray(missing - 2 + dice.between(-1, 1), 'y'))
        + RecordBytes::sized("zz");
    for (int i = 0; i < 3; ++i) {
        event.arguments.append(SystemeventArgument("value"_s, ArgumentType::String));
    }
    events.events.insert(event.id, event);
    return recordOf(nextNumber(), int(event.id), "/", values);
}

QByteArray RandomLogs::growingText()
{
    if (dice.chance(40)) {
        return textAtTheLimit();
    }
    // A text near the limit, then values that would take it over or leave it there;
    // with many of them the work adds up.
    SystemeventDescription event(4000, "growing"_s, "warning"_s, "service"_s);
    const int copies = dice.between(19, 26);
    QString text;
    for (int i = 0; i < copies; ++i) {
        text += dice.oneOf(QList<QString>{"%1"_s, "%L1"_s, "%1 "_s});
    }
    text += "%2 %3 %4"_s;
    if (dice.chance(20)) {
        text += QString(dice.between(60000, 70000), QLatin1Char('t'));
    }
    const int count = dice.chance(30) ? 45 : dice.between(2, 6);
    const QList<QByteArray> units{"x", "%3", "x%2 ", utf8(u"\u20AC"), utf8(u"\U0001F50B"), "\n"};
    QByteArray values;
    for (int i = 0; i < count; ++i) {
        event.arguments.append(SystemeventArgument("value"_s, ArgumentType::String));
        const QByteArray unit = dice.oneOf(units);
        const int length = i == 0 ? dice.between(40000, 55000) : dice.below(200);
        values += RecordBytes::sized(unit.repeated(length / int(unit.size())));
        if (i > 2) {
            text += "%"_s + QString::number(i + 2);
        }
    }
    event.descriptions.insert("en"_s, text);
    events.events.insert(event.id, event);
    return recordOf(nextNumber(), int(event.id), "/", values);
}

QByteArray RandomLogs::costlyTexts(int count)
{
    SystemeventDescription event(4002, "costly"_s, "warning"_s, "service"_s);
    event.descriptions.insert(
        "en"_s, dice.oneOf(QList<QString>{"%1"_s, "%1 of %L2"_s, "%2, %1%1 \u20AC %3"_s}));
    constexpr int arguments = 5;
    for (int i = 0; i < arguments; ++i) {
        event.arguments.append(SystemeventArgument("value"_s, ArgumentType::String));
    }
    events.events.insert(event.id, event);

    const QList<QByteArray> units{"%1", "%1 ", "%2", "%L1", "%1%2", "50 % ", utf8(u"\u20AC%1")};
    QByteArray bytes;
    for (; count > 0; --count) {
        if (dice.chance(30)) {
            bytes += record();
            continue;
        }
        const QByteArray unit = dice.oneOf(units);
        const int most = dice.oneOf(QList<int>{3, 8, 20, 40});
        QByteArray values;
        for (int i = 0; i < arguments; ++i) {
            const bool shrinks = dice.chance(i + 1 < arguments ? 10 : 80);
            values += RecordBytes::sized(unit.repeated(shrinks ? 0 : dice.below(most)));
        }
        bytes += recordOf(nextNumber(), int(event.id), "/", values);
    }
    return bytes;
}

QString RandomLogs::fileName()
{
    static const QList<QString> odd{
        "zibx.log"_s,   "zib7.txt"_s, "zib"_s,        "zib12abc"_s,  "zib1.log.bak"_s,
        "zib0x.log"_s,  "ZIB3.LOG"_s, "zib007.log"_s, "zib2 .log"_s, "zib99999999999.log"_s,
        "zib0.1.log"_s, "zib1"_s,     "other.log"_s};
    return dice.chance(12) ? dice.oneOf(odd) : "zib"_s + QString::number(dice.below(13)) + ".log"_s;
}

QString RandomLogs::language()
{
    static const QList<QString> languages{"en"_s, "en"_s, "de"_s, "it"_s, "fr"_s, "EN"_s, ""_s};
    return dice.oneOf(languages);
}

// SPDX-License-Identifier: Apache-2.0
#include "ctl/jsonobject.h"

#include "rendering/jsonutil.h"
#include "rendering/utf8text.h"

#include <QByteArray>

#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace
{

/*!
 * Characters that JSON may hold as they are and that move a terminal's cursor or turn the
 * direction of a line: U+007F to U+009F, U+200E, U+200F, U+2028 to U+202E, U+2066 to U+2069.
 */
std::string_view controlAt(std::string_view utf8)
{
    const auto byte
        = [&utf8](size_t i) { return i < utf8.size() ? static_cast<unsigned char>(utf8[i]) : 0U; };
    if (byte(0) == 0x7F) {
        return utf8.substr(0, 1);
    }
    if (byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) < 0xA0) {
        return utf8.substr(0, 2);
    }
    const bool isGeneral = byte(0) == 0xE2 && byte(1) == 0x80
        && (byte(2) == 0x8E || byte(2) == 0x8F || (byte(2) >= 0xA8 && byte(2) <= 0xAE));
    const bool isIsolate = byte(0) == 0xE2 && byte(1) == 0x81 && byte(2) >= 0xA6 && byte(2) <= 0xA9;
    return utf8.substr(0, isGeneral || isIsolate ? 3 : 0);
}

//! Writes them as what they are, behind a position.
void escapeControls(std::string &text, size_t begin)
{
    constexpr const char *leads = "\x7F\xC2\xE2";
    size_t place = text.find_first_of(leads, begin);
    while (place != std::string::npos) {
        const std::string_view control = controlAt(std::string_view(text).substr(place));
        if (control.empty()) {
            ++place;
        } else {
            const QString character = QString::fromUtf8(control.data(), int(control.size()));
            std::array<char, 7> escape{};
            (void)std::snprintf(escape.data(), escape.size(), "\\u%04X",
                                uint(character.at(0).unicode()));
            text.replace(place, control.size(), escape.data());
            place += escape.size() - 1;
        }
        place = text.find_first_of(leads, place);
    }
}

//! Whether any of eight characters is an escape of some kind, or not ASCII.
bool hasSpecial(quint64 eight)
{
    constexpr quint64 ones = 0x0101010101010101;
    constexpr quint64 highBits = 0x80 * ones;
    // The lowest byte that is below a bound borrows from its high bit, which it does not have.
    const auto anyBelow
        = [](quint64 bytes, quint64 bound) { return (bytes - bound * ones) & ~bytes & highBits; };
    const quint64 deleteOrHigher = ((eight + ones) | eight) & highBits;
    return (anyBelow(eight, 0x20) | anyBelow(eight ^ ('"' * ones), 1)
            | anyBelow(eight ^ ('\\' * ones), 1) | deleteOrHigher)
        != 0;
}

//! Whether a text is printable ASCII that stands in a JSON string as it is; most texts are.
bool isPlain(std::string_view utf8)
{
    if (utf8.empty()) {
        return true;
    }
    constexpr size_t step = sizeof(quint64);
    quint64 eight = 0x2020202020202020;
    size_t done = 0;
    for (; done + step <= utf8.size(); done += step) {
        std::memcpy(&eight, utf8.data() + done, step);
        if (hasSpecial(eight)) {
            return false;
        }
    }
    std::memcpy(&eight, utf8.data() + done, utf8.size() - done); // over what is known as plain
    return !hasSpecial(eight);
}

} // namespace

void JsonObject::appendString(std::string &text, std::string_view utf8)
{
    if (isPlain(utf8)) {
        text += '"';
        text += utf8;
        text += '"';
        return;
    }
    const size_t begin = text.size() + 1;
    if (Utf8Text::isAscii(utf8)) {
        text += '"';
        text += utf8;
    } else {
        // With the quote in front: a byte order mark at the very start would be dropped.
        const std::string quoted = std::string(1, '"').append(utf8);
        Utf8Text::append(text, QString::fromUtf8(quoted.data(), int(quoted.size())));
    }
    jsonUtil::escape(text, begin);
    escapeControls(text, begin);
    text += '"';
}

JsonObject &JsonObject::add(Key key, std::string_view utf8)
{
    appendString(addKey(key), utf8);
    return *this;
}

JsonObject &JsonObject::add(Key key, const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    return add(key, std::string_view(utf8.constData(), size_t(utf8.size())));
}

JsonObject &JsonObject::addFlag(Key key, bool value)
{
    addKey(key) += value ? "true" : "false";
    return *this;
}

template <typename Integer>
JsonObject &JsonObject::addDigits(Key key, Integer value, bool inQuotes)
{
    Member member = memberOf(key);
    if (inQuotes) {
        *member.end++ = '"';
    }
    char *const limit = member.text.data() + member.text.size();
    member.end = std::to_chars(member.end, limit, value).ptr;
    if (inQuotes) {
        *member.end++ = '"';
    }
    append(member);
    return *this;
}

JsonObject &JsonObject::addNumber(Key key, qint64 value)
{
    return addDigits(key, value, false);
}

JsonObject &JsonObject::addLarge(Key key, quint64 value)
{
    return addDigits(key, value, true);
}

JsonObject &JsonObject::addLarge(Key key, qint64 value)
{
    return addDigits(key, value, true);
}

JsonObject &JsonObject::addHex(Key key, std::string_view bytes)
{
    appendHex(addKey(key) += '"', bytes);
    out += '"';
    return *this;
}

void JsonObject::appendHex(std::string &text, std::string_view bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
}

JsonObject &JsonObject::addNull(Key key)
{
    addKey(key) += "null";
    return *this;
}

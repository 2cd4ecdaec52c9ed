// SPDX-License-Identifier: Apache-2.0
#include "ctl/jsonobject.h"

#include "rendering/jsonutil.h"
#include "rendering/utf8text.h"

#include <QByteArray>

std::string &JsonObject::addKey(std::string_view key)
{
    if (!isEmpty) {
        out += ',';
    }
    isEmpty = false;
    out += '"';
    out += key;
    out += "\":";
    return out;
}

void JsonObject::appendString(std::string &text, std::string_view utf8)
{
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
    text += '"';
}

JsonObject &JsonObject::add(std::string_view key, std::string_view utf8)
{
    appendString(addKey(key), utf8);
    return *this;
}

JsonObject &JsonObject::add(std::string_view key, const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    return add(key, std::string_view(utf8.constData(), size_t(utf8.size())));
}

JsonObject &JsonObject::addFlag(std::string_view key, bool value)
{
    addKey(key) += value ? "true" : "false";
    return *this;
}

JsonObject &JsonObject::addNumber(std::string_view key, qint64 value)
{
    Utf8Text::append(addKey(key), value);
    return *this;
}

JsonObject &JsonObject::addLarge(std::string_view key, quint64 value)
{
    addKey(key) += '"';
    Utf8Text::append(out, value);
    out += '"';
    return *this;
}

JsonObject &JsonObject::addLarge(std::string_view key, qint64 value)
{
    addKey(key) += '"';
    Utf8Text::append(out, value);
    out += '"';
    return *this;
}

JsonObject &JsonObject::addHex(std::string_view key, std::string_view bytes)
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

JsonObject &JsonObject::addNull(std::string_view key)
{
    addKey(key) += "null";
    return *this;
}

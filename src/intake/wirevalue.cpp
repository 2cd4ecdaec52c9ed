// SPDX-License-Identifier: Apache-2.0
#include "intake/wirevalue.h"

#include "intake/wiremessage.h"
#include "logformat/encoding.h"
#include "logformat/plausibility.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QStringList>

namespace Wire
{
namespace
{

bool isBasic(char type)
{
    return std::string_view("ybnqiuxtdsogh").find(type) != std::string_view::npos;
}

size_t boundaryOf(char type)
{
    switch (type) {
    case 'y':
    case 'g':
    case 'v':
        return 1;
    case 'n':
    case 'q':
        return 2;
    case 'x':
    case 't':
    case 'd':
    case '(':
    case '{':
        return 8;
    default:
        return 4;
    }
}

/*!
 * Goes behind one complete type and says whether it is one, within so many structures. As
 * libdbus has it, only arrays count that lie in each other without a structure between.
 */
bool skipType(std::string_view &types, int arrays, int structures)
{
    if (types.empty()) {
        return false;
    }
    const char type = types.front();
    types.remove_prefix(1);
    if (type == 'a') {
        if (types.empty() || types.front() != '{') {
            return arrays < mostDepth && skipType(types, arrays + 1, structures);
        }
        types.remove_prefix(1);
        const bool isEntry = arrays < mostDepth && structures < mostDepth && !types.empty()
            && isBasic(types.front()) && skipType(types, 0, structures + 1)
            && skipType(types, 0, structures + 1) && !types.empty() && types.front() == '}';
        types.remove_prefix(isEntry ? 1 : 0);
        return isEntry;
    }
    if (type != '(') {
        return type == 'v' || isBasic(type);
    }
    if (structures >= mostDepth) {
        return false;
    }
    do {
        if (!skipType(types, 0, structures + 1)) {
            return false;
        }
    } while (!types.empty() && types.front() != ')');
    const bool isClosed = !types.empty();
    types.remove_prefix(isClosed ? 1 : 0);
    return isClosed;
}

bool isCompleteType(std::string_view types)
{
    return types.size() <= mostSignature && skipType(types, 0, 0) && types.empty();
}

void skipValue(WireReader &in, std::string_view &types, int depth);

void skipText(WireReader &in, char type)
{
    const std::string_view text = type == 'g' ? in.shortText() : in.text();
    const bool isRight = type == 's' ? isUtf8(text)
        : type == 'o'                ? LogFormat::isObjectPath(text)
                                     : isSignature(text);
    if (!isRight) {
        in.refuse();
    }
}

//! Of an array's type; the reader stands before its length.
void skipArray(WireReader &in, std::string_view &types, int depth)
{
    const std::string_view elements = types.substr(1);
    (void)skipType(types, 0, 0);
    const size_t size = in.fixed<quint32>();
    const char element = elements.front();
    in.align(boundaryOf(element));
    const size_t end = in.position() + size;
    if (size > mostArray) {
        in.refuse();
    }
    if (std::string_view("ynqiuxtdh").find(element) != std::string_view::npos) {
        (void)in.take(size);
        if (size % boundaryOf(element) != 0) {
            in.refuse();
        }
    }
    while (in.position() < end && !in.isMalformed()) {
        std::string_view type = elements;
        skipValue(in, type, depth + 1);
    }
    if (in.position() != end) {
        in.refuse();
    }
}

//! Behind the opening bracket of a structure's type or of an entry's.
void skipMembers(WireReader &in, std::string_view &types, int depth)
{
    while (types.front() != ')' && types.front() != '}' && !in.isMalformed()) {
        skipValue(in, types, depth + 1);
    }
    types.remove_prefix(1);
}

void skipFixed(WireReader &in, char type)
{
    if (type == 'b') {
        if (in.fixed<quint32>() > 1) {
            in.refuse();
        }
        return;
    }
    const size_t size = boundaryOf(type);
    in.align(size);
    (void)in.take(size);
}

//! Goes behind a value and its type, which is a complete one.
void skipValue(WireReader &in, std::string_view &types, int depth)
{
    if (depth > mostDepth * 2) {
        in.refuse();
    }
    if (in.isMalformed()) {
        return;
    }
    const char type = types.front();
    if (type == 'a') {
        skipArray(in, types, depth);
        return;
    }
    types.remove_prefix(1);
    switch (type) {
    case '(':
    case '{':
        in.align(boundaryOf(type));
        skipMembers(in, types, depth);
        break;
    case 'v': {
        std::string_view content = in.shortText();
        if (!isCompleteType(content)) {
            in.refuse();
            break;
        }
        skipValue(in, content, depth + 1);
        break;
    }
    case 's':
    case 'o':
    case 'g':
        skipText(in, type);
        break;
    default:
        skipFixed(in, type);
    }
}

QString toText(std::string_view utf8)
{
    return QString::fromUtf8(utf8.data(), int(utf8.size())); // without a byte order mark in front
}

QString readText(WireReader &in)
{
    const std::string_view text = in.text();
    if (!isUtf8(text)) {
        in.refuse();
    }
    return toText(text);
}

QByteArray readBytes(WireReader &in)
{
    const size_t size = in.fixed<quint32>();
    const std::string_view bytes = in.take(size);
    if (size > mostArray) {
        in.refuse();
    }
    return {bytes.data(), int(bytes.size())};
}

QStringList readTexts(WireReader &in)
{
    QStringList texts;
    const size_t size = in.fixed<quint32>();
    const size_t end = in.position() + size;
    while (in.position() < end && !in.isMalformed()) {
        texts.append(readText(in));
    }
    if (size > mostArray || in.position() != end) {
        in.refuse();
    }
    return texts;
}

template <typename Number>
QVariant number(WireReader &in)
{
    return QVariant::fromValue(in.fixed<Number>());
}

QVariant readDouble(WireReader &in)
{
    const auto bits = in.fixed<quint64>();
    double value = 0;
    static_assert(sizeof value == sizeof bits);
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

QVariant readBool(WireReader &in)
{
    const auto value = in.fixed<quint32>();
    if (value > 1) {
        in.refuse();
    }
    return value != 0;
}

//! A value of which only its type counts.
template <typename Type>
QVariant readUnused(WireReader &in, std::string_view type, int depth)
{
    skipValue(in, type, depth);
    return QVariant::fromValue(Type());
}

QVariant readVariant(WireReader &in, int depth);

//! Reads a value of a complete type.
QVariant readValue(WireReader &in, std::string_view type, int depth)
{
    if (depth > mostDepth * 2) {
        in.refuse();
        return {};
    }
    switch (type.front()) {
    case 'y':
        return number<uchar>(in);
    case 'b':
        return readBool(in);
    case 'n':
        return number<short>(in);
    case 'q':
        return number<ushort>(in);
    case 'i':
        return number<int>(in);
    case 'u':
        return number<uint>(in);
    case 'x':
        return number<qlonglong>(in);
    case 't':
        return number<qulonglong>(in);
    case 'd':
        return readDouble(in);
    case 's':
        return readText(in);
    case 'o':
        return readUnused<QDBusObjectPath>(in, type, depth);
    case 'g':
        return readUnused<QDBusSignature>(in, type, depth);
    case 'h':
        return readUnused<QDBusUnixFileDescriptor>(in, type, depth);
    case 'v':
        return QVariant::fromValue(WrappedValue{readVariant(in, depth)});
    default:
        break;
    }
    if (type == "ay") {
        return readBytes(in);
    }
    if (type == "as") {
        return readTexts(in);
    }
    return readUnused<QDBusArgument>(in, type, depth);
}

//! The content of a variant that lies so deep.
QVariant readVariant(WireReader &in, int depth)
{
    const std::string_view type = in.shortText();
    if (!isCompleteType(type)) {
        in.refuse();
        return {};
    }
    return readValue(in, type, depth + 1);
}

} // namespace

bool isSignature(std::string_view signature)
{
    if (signature.size() > mostSignature) {
        return false;
    }
    while (!signature.empty()) {
        if (!skipType(signature, 0, 0)) {
            return false;
        }
    }
    return true;
}

bool isUtf8(std::string_view text)
{
    for (size_t i = 0; i < text.size();) {
        const auto byte = [&](size_t behind) {
            return i + behind < text.size() ? static_cast<unsigned char>(text[i + behind]) : 0U;
        };
        const unsigned lead = byte(0);
        const size_t length = lead < 0x80 ? 1
            : lead < 0xC2                 ? 0
            : lead < 0xE0                 ? 2
            : lead < 0xF0                 ? 3
            : lead < 0xF5                 ? 4
                                          : 0;
        for (size_t k = 1; k < length; ++k) {
            if ((byte(k) & 0xC0) != 0x80) {
                return false;
            }
        }
        // Too long a form, a surrogate, beyond the last character.
        const bool isWrong = length == 0 || (lead == 0xE0 && byte(1) < 0xA0)
            || (lead == 0xED && byte(1) >= 0xA0) || (lead == 0xF0 && byte(1) < 0x90)
            || (lead == 0xF4 && byte(1) >= 0x90);
        if (isWrong) {
            return false;
        }
        i += length;
    }
    return true;
}

void skipVariant(WireReader &in, std::string_view type)
{
    constexpr int depth = 3; // within the variant of a structure in the array of fields
    if (!isCompleteType(type)) {
        in.refuse();
        return;
    }
    skipValue(in, type, depth);
}

void appendStatusValues(QList<QVariant> &values, WireReader &in)
{
    constexpr int elementDepth = 2; // within a list within the body's variant
    std::string_view type = in.shortText();
    if (type == "av") {
        const size_t size = in.fixed<quint32>();
        const size_t end = in.position() + size;
        while (in.position() < end && !in.isMalformed()) {
            values.append(readVariant(in, elementDepth));
        }
        if (size > mostArray || in.position() != end) {
            in.refuse();
        }
    } else if (!isCompleteType(type)) {
        in.refuse();
    } else if (type.front() == '(') {
        in.align(boundaryOf('('));
        type.remove_prefix(1);
        for (; type.front() == 'v' && !in.isMalformed(); type.remove_prefix(1)) {
            values.append(readVariant(in, elementDepth));
        }
        skipMembers(in, type, elementDepth - 1);
    } else {
        skipValue(in, type, elementDepth - 1);
    }
    if (!in.atEnd()) {
        in.refuse();
    }
}

} // namespace Wire

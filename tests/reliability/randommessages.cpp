// SPDX-License-Identifier: Apache-2.0
#include "reliability/randommessages.h"

#include <algorithm>
#include <cstring>

namespace
{

constexpr int maxArrayNesting = 32; // the limits of the bus
constexpr int maxStructNesting = 32;
constexpr int maxNesting = 64;
constexpr int maxSignature = 255;
constexpr int maxDescriptors = 4;
constexpr int longText = 60000;
//! A record of more than 65,535 bytes hides those before it in its file, so none is made here.
constexpr int storedBudget = 62000;
constexpr int largeBudget = 2000000;

const char daemonName[] = "com.tovel.systemeventlogger";
const char statusInterface[] = "com.tovel.status";
const char logInterface[] = "local.LogManager";
const char propertiesInterface[] = "org.freedesktop.DBus.Properties";

const char basicTypes[] = "ybnqiuxtdsogh";

const int eventIds[] = {1001, 1002, 1003, 1004, 1005, 9999, 0, -1, 1000};
const char *const interfaces[] = {logInterface,         "local.Version",
                                  propertiesInterface,  "org.freedesktop.DBus.Introspectable",
                                  statusInterface,      "org.freedesktop.DBus.Peer",
                                  "org.example.unknown"};
const char *const methods[]
    = {"clearLogfiles",    "jsonLogfile", "jsonLogfile",  "getMinLogNr", "getMaxLogNr",
       "allValues",        "Get",         "Set",          "GetAll",      "Introspect",
       "dbusStatusChange", "Ping",        "GetMachineId", "deleteLater", "change"};
const char *const properties[]
    = {"logLocal", "logNetwork", "logNetworkAddress", "logNetworkLang", "logtail", "loglevel",
       "minLogNr", "maxLogNr",   "version",           "githash",        "absent",  ""};
const char *const paths[] = {"/system/eventlog", "/version", "/", "/system", "/system/eventlog/no"};
const char *const texts[] = {"",
                             "en",
                             "de",
                             "127.0.0.1",
                             "::1",
                             "true",
                             "0",
                             "\xEF\xBF\xBF",
                             "%1",
                             "%1%2%99",
                             "\"\\\n\r\t\x01",
                             "\xC3\xBC\xE2\x82\xAC",
                             "\xF0\x9F\x92\xA5"};
const quint64 edges[] = {0,
                         1,
                         0x7F,
                         0x80,
                         0xFF,
                         0x7FFF,
                         0xFFFF,
                         0x7FFFFFFF,
                         0x80000000,
                         0xFFFFFFFF,
                         Q_UINT64_C(0x7FFFFFFFFFFFFFFF),
                         Q_UINT64_C(0x8000000000000000),
                         Q_UINT64_C(0xFFFFFFFFFFFFFFFF)};
const quint64 oddDoubles[] = {Q_UINT64_C(0x7FF8000000000000), Q_UINT64_C(0x7FF0000000000000),
                              Q_UINT64_C(0xFFF0000000000000), Q_UINT64_C(0x8000000000000000),
                              Q_UINT64_C(0x0000000000000001), Q_UINT64_C(0x7FEFFFFFFFFFFFFF)};

int sizeOf(char type)
{
    switch (type) {
    case 'y':
        return 1;
    case 'n':
    case 'q':
        return 2;
    case 'x':
    case 't':
    case 'd':
        return 8;
    default:
        return 4; // of texts and arrays: of the length in front
    }
}

int alignmentOf(char type)
{
    switch (type) {
    case '(':
    case '{':
        return 8;
    case 'g':
    case 'v':
        return 1;
    default:
        return sizeOf(type);
    }
}

//! Goes behind one complete type.
void skip(const char *&type)
{
    while (*type == 'a') {
        ++type;
    }
    int open = 0;
    do {
        open += int(*type == '(' || *type == '{') - int(*type == ')' || *type == '}');
        ++type;
    } while (open > 0);
}

} // namespace

WireMessage RandomMessages::signal()
{
    if (dice->chance(75)) {
        return statusChange();
    }
    WireMessage message;
    message.path = dice->chance(50) ? QByteArray(dice->oneOf(paths)) : objectPath();
    message.interface = dice->chance(50) ? statusInterface : "org." + name();
    message.member = dice->chance(50) ? "change" : name();
    if (dice->chance(20)) {
        message.destination = daemonName;
    }
    appendArguments(&message);
    finish(&message);
    return message;
}

WireMessage RandomMessages::statusChange()
{
    WireMessage message;
    message.path = objectPath();
    message.interface = statusInterface;
    message.member = "change";
    if (dice->chance(5)) {
        message.destination = daemonName;
    }
    budget = storedBudget;
    out.fixed(quint32(dice->chance(90) ? dice->oneOf(eventIds) : int(dice->bits())), 4);
    message.signature = "iv";
    if (dice->chance(80)) {
        appendValueList(&message);
    } else {
        // Not a list of variants: none of it is stored, so it may be large.
        budget = dice->chance(1) ? largeBudget : storedBudget;
        variant({});
    }
    finish(&message);
    return message;
}

void RandomMessages::appendValueList(WireMessage *message)
{
    out.signature("av");
    const WireWriter::Array list = out.beginArray(alignmentOf('v'));
    for (int i = dice->below(12); i > 0; --i) {
        variant({1, 0, 1});
    }
    out.endArray(list);
    if (dice->chance(5)) {
        message->signature += "i"; // one argument too many
        out.fixed(dice->bits(), 4);
    }
}

WireMessage RandomMessages::call()
{
    WireMessage message;
    message.type = WireMessage::Call;
    message.flags = dice->chance(30) ? WireMessage::NoReply : 0;
    message.destination = daemonName;
    message.path = dice->chance(60) ? QByteArray(paths[0])
        : dice->chance(80)          ? QByteArray(dice->oneOf(paths))
                                    : objectPath();
    message.member = dice->chance(95) ? QByteArray(dice->oneOf(methods)) : name();
    if (message.member == "clearLogfiles" && dice->chance(95)) {
        message.member = "jsonLogfile"; // or there would never be much of a log
    }
    if (dice->chance(60)) {
        appendKnownArguments(&message);
    } else {
        message.interface = dice->chance(15) ? QByteArray() : dice->oneOf(interfaces);
        appendArguments(&message);
    }
    finish(&message);
    return message;
}

WireMessage RandomMessages::answer()
{
    WireMessage message;
    message.type = dice->chance(50) ? WireMessage::Reply : WireMessage::Error;
    message.destination = daemonName;
    message.replyTo = quint32(dice->between(1, 50));
    if (message.type == WireMessage::Error) {
        message.errorName = "org.example.Error";
    }
    appendArguments(&message);
    finish(&message);
    return message;
}

//! The signature that the method has, with any values.
void RandomMessages::appendKnownArguments(WireMessage *message)
{
    budget = storedBudget;
    message->interface = logInterface;
    if (message->member == "jsonLogfile") {
        add(message, dice->chance(50) ? "tts" : "tt");
    } else if (message->member == "Introspect") {
        message->interface = "org.freedesktop.DBus.Introspectable";
    } else if (message->member == "Ping" || message->member == "GetMachineId") {
        message->interface = "org.freedesktop.DBus.Peer";
    } else if (message->member.endsWith("et") || message->member == "GetAll") {
        message->interface = propertiesInterface;
        addText(message, dice->chance(80) ? logInterface : dice->oneOf(interfaces));
        if (message->member != "GetAll") {
            addText(message, dice->oneOf(properties));
        }
        if (message->member == "Set") {
            const QByteArray fitting[] = {"b", "s", "i"};
            message->signature += 'v';
            if (dice->chance(70)) {
                const QByteArray types = dice->oneOf(fitting);
                out.signature(types);
                basicValue(types[0]);
            } else {
                variant({});
            }
        }
    }
}

void RandomMessages::appendArguments(WireMessage *message)
{
    budget = storedBudget;
    add(message, signatureOf(dice->below(5)));
}

void RandomMessages::add(WireMessage *message, const QByteArray &types)
{
    const char *next = types.constData();
    while (*next != '\0') {
        value(next, {});
    }
    message->signature += types;
}

void RandomMessages::addText(WireMessage *message, const QByteArray &text)
{
    out.text(text);
    message->signature += 's';
}

void RandomMessages::finish(WireMessage *message)
{
    message->body = out.bytes;
    message->isBigEndian = out.isBigEndian;
    message->descriptors = descriptors;
    out.bytes.clear();
    descriptors = 0;
}

QByteArray RandomMessages::signatureOf(int values)
{
    QByteArray types;
    while (values-- > 0) {
        const QByteArray next = dice->chance(5) ? deepType() : type(20);
        if (types.size() + next.size() <= maxSignature) {
            types += next;
        }
    }
    return types;
}

//! One complete type, a container with room left.
QByteArray RandomMessages::type(int room)
{
    const int throwOf100 = dice->below(100);
    if (room <= 0 || throwOf100 < 70) {
        return {1, basicTypes[dice->below(int(std::strlen(basicTypes)))]};
    }
    if (throwOf100 < 78) {
        return "v";
    }
    if (throwOf100 < 86) {
        return 'a' + type(room - 1);
    }
    if (throwOf100 < 92) {
        const char key = basicTypes[dice->below(int(std::strlen(basicTypes)))];
        return QByteArray("a{") + key + type(room / 2) + '}';
    }
    QByteArray members;
    for (int i = dice->between(1, 3); i > 0; --i) {
        members += type(room / 3);
    }
    return '(' + members + ')';
}

//! Nested as deep as the bus allows, or nearly.
QByteArray RandomMessages::deepType()
{
    const int arrays = dice->chance(50) ? maxArrayNesting : dice->below(maxArrayNesting);
    const int structs = dice->chance(50) ? maxStructNesting : dice->below(maxStructNesting);
    return QByteArray(arrays, 'a') + QByteArray(structs, '(')
        + basicTypes[dice->below(int(std::strlen(basicTypes)))] + QByteArray(structs, ')');
}

void RandomMessages::value(const char *&type, Depth depth)
{
    switch (*type) {
    case 'a':
        array(type, depth);
        break;
    case '(':
    case '{':
        structure(type, depth);
        break;
    case 'v':
        ++type;
        variant(depth);
        break;
    default:
        basicValue(*type++);
    }
}

void RandomMessages::basicValue(char type)
{
    const auto before = out.bytes.size();
    switch (type) {
    case 's':
        out.text(text());
        break;
    case 'o':
        out.text(objectPath());
        break;
    case 'g':
        out.signature(signatureOf(dice->below(3)));
        break;
    case 'b':
        out.fixed(quint64(dice->below(2)), 4);
        break;
    case 'h':
        descriptors = std::min(descriptors + 1, maxDescriptors);
        out.fixed(quint64(dice->below(descriptors)), 4);
        break;
    case 'd':
        out.fixed(doubleBits(), 8);
        break;
    default:
        out.fixed(dice->chance(50) ? dice->oneOf(edges) : dice->bits(), sizeOf(type));
    }
    budget -= int(out.bytes.size() - before);
}

void RandomMessages::array(const char *&type, Depth depth)
{
    ++type;
    const char *const element = type;
    skip(type);
    ++depth.arrays;
    const int most = budget / 16;
    int count = dice->chance(30) ? 0 : dice->chance(80) ? dice->between(1, 4) : dice->below(200);
    count = dice->chance(3) ? most : std::min(count, most);
    if (*element == 'a' || *element == '(') {
        count = std::min(count, 1 + int(depth.arrays + depth.structs < 3)); // or it grows as 2^n
    }
    const WireWriter::Array list = out.beginArray(alignmentOf(*element));
    for (; count > 0 && budget > 0; --count) {
        const char *next = element;
        value(next, depth);
    }
    out.endArray(list);
    budget -= 8;
}

void RandomMessages::structure(const char *&type, Depth depth)
{
    out.align(8);
    ++depth.structs;
    ++type;
    while (*type != ')' && *type != '}') {
        value(type, depth);
    }
    ++type;
}

void RandomMessages::variant(Depth depth)
{
    ++depth.variants;
    budget -= 3;
    const int nested = depth.arrays + depth.structs + depth.variants;
    QByteArray types = dice->chance(15) ? QByteArray("v") : dice->chance(3) ? deepType() : type(8);
    // A type may add up to 64 levels of its own.
    const auto levels = types.count('a') + types.count('(') + types.count('{');
    if (nested + levels > maxNesting - 1 || budget <= 0) {
        types = "y";
    }
    if (types == "v" && dice->chance(10)) {
        // Straight down to the limit.
        for (int level = nested; level < maxNesting - 1; ++level) {
            out.signature("v");
        }
        types = "i";
    }
    out.signature(types);
    const char *next = types.constData();
    value(next, depth);
}

QByteArray RandomMessages::text()
{
    if (dice->chance(2) && budget > longText) {
        return QByteArray(longText, char(dice->between(' ', '~')));
    }
    QByteArray text;
    for (int i = dice->below(4); i > 0; --i) {
        text += dice->oneOf(texts);
    }
    for (int i = dice->below(20); i > 0; --i) {
        text += char(dice->between(1, 127));
    }
    return text;
}

QByteArray RandomMessages::objectPath()
{
    QByteArray path;
    for (int i = dice->below(4); i > 0; --i) {
        path += '/' + name();
    }
    if (dice->chance(1)) {
        path += '/' + QByteArray(1000, 'x');
    }
    return path.isEmpty() ? QByteArray("/") : path;
}

QByteArray RandomMessages::name()
{
    QByteArray name(1, '_');
    for (int i = dice->below(10); i > 0; --i) {
        name += char(dice->between('a', 'z'));
    }
    return name;
}

quint64 RandomMessages::doubleBits()
{
    return dice->chance(50) ? dice->oneOf(oddDoubles) : dice->bits();
}

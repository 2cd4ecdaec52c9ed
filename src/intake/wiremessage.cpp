// SPDX-License-Identifier: Apache-2.0
#include "intake/wiremessage.h"

#include "intake/wirenames.h"
#include "intake/wirereader.h"
#include "intake/wirevalue.h"
#include "logformat/plausibility.h"

namespace Wire
{
namespace
{

constexpr quint8 protocolVersion = 1;
constexpr size_t headBoundary = 8;

enum Field : quint8 {
    Path = 1,
    Interface,
    Member,
    ErrorName,
    AnswerTo,
    Destination,
    Sender,
    Signature,
    Descriptors,
    Container
};

size_t aligned(size_t position)
{
    return (position + headBoundary - 1) / headBoundary * headBoundary;
}

bool isBigEndian(std::string_view message)
{
    return message.front() == 'B';
}

//! Where a field's text goes; null for one that is no text.
std::string_view *textOf(Head &head, quint8 field)
{
    switch (field) {
    case Path:
        return &head.path;
    case Interface:
        return &head.interface;
    case Member:
        return &head.member;
    case ErrorName:
        return &head.errorName;
    case Destination:
        return &head.destination;
    case Sender:
        return &head.sender;
    case Signature:
        return &head.signature;
    default:
        return nullptr;
    }
}

//! The type that a field has to have; empty for an unknown one.
std::string_view typeOf(quint8 field)
{
    static constexpr std::string_view types[]
        = {{}, "o", "s", "s", "s", "u", "s", "s", "g", "u", "o"};
    return field < std::size(types) ? types[field] : std::string_view();
}

//! What libdbus makes up for itself comes from nobody.
bool isRight(quint8 field, std::string_view text)
{
    switch (field) {
    case Path:
        return LogFormat::isObjectPath(text) && text != "/org/freedesktop/DBus/Local";
    case Interface:
        return isInterfaceName(text) && text != "org.freedesktop.DBus.Local";
    case Member:
        return isMemberName(text);
    case ErrorName:
        return isInterfaceName(text);
    case Signature:
        return isSignature(text);
    default:
        return isBusName(text);
    }
}

void readText(Head &head, quint8 field, WireReader &in)
{
    const std::string_view text = field == Signature ? in.shortText() : in.text();
    if (!isRight(field, text)) {
        in.refuse();
    }
    *textOf(head, field) = text;
}

//! The numbers of the known fields that have been read are bits of \a seen.
void readField(Head &head, quint32 &seen, WireReader &in)
{
    in.align(headBoundary);
    const auto field = in.fixed<quint8>();
    const std::string_view type = in.shortText();
    const std::string_view expected = typeOf(field);
    const quint32 bit = expected.empty() ? 0 : 1U << field;
    if (field == 0 || (bit != 0 && type != expected) || (seen & bit) != 0) {
        in.refuse();
        return;
    }
    seen |= bit;
    if (textOf(head, field) != nullptr) {
        readText(head, field, in);
    } else if (field == AnswerTo) {
        head.answerTo = in.fixed<quint32>();
        if (head.answerTo == 0) {
            in.refuse();
        }
    } else if (field == Descriptors) {
        head.descriptors = in.fixed<quint32>();
    } else {
        skipVariant(in, type);
    }
}

bool hasWhatItNeeds(const Head &head)
{
    switch (head.type) {
    case Type::Call:
        return !head.path.empty() && !head.member.empty();
    case Type::Signal:
        return !head.path.empty() && !head.member.empty() && !head.interface.empty();
    case Type::Answer:
        return head.answerTo != 0;
    case Type::Error:
        return head.answerTo != 0 && !head.errorName.empty();
    }
    return true; // of a later version: nobody's concern
}

void appendNumber(std::string &out, quint32 value)
{
    char bytes[sizeof value];
    out.resize((out.size() + sizeof value - 1) / sizeof value * sizeof value, '\0');
    qToLittleEndian(value, bytes);
    out.append(bytes, sizeof bytes);
}

void appendField(std::string &out, Field field, char type, std::string_view text)
{
    out.resize(aligned(out.size()), '\0');
    out += char(field);
    out += '\1';
    out += type;
    out += '\0';
    char size[4];
    qToLittleEndian(quint32(text.size()), size);
    out.append(size, type == 'g' ? 1 : sizeof size);
    out += text;
    out += '\0';
}

} // namespace

std::optional<size_t> messageSize(std::string_view begin)
{
    if (begin.size() < fixedSize || (begin[0] != 'l' && begin[0] != 'B') || begin[1] == '\0'
        || quint8(begin[3]) != protocolVersion) {
        return std::nullopt;
    }
    WireReader in(begin.substr(0, fixedSize), isBigEndian(begin));
    (void)in.take(4);
    const size_t body = in.fixed<quint32>();
    const auto serial = in.fixed<quint32>();
    const size_t fields = in.fixed<quint32>();
    if (serial == 0 || fields > mostArray || body > mostMessage
        || aligned(fixedSize + fields) + body > mostMessage) {
        return std::nullopt;
    }
    return aligned(fixedSize + fields) + body;
}

std::optional<Head> readHead(std::string_view message)
{
    const std::optional<size_t> size = messageSize(message);
    if (!size || *size != message.size()) {
        return std::nullopt;
    }
    Head head;
    head.type = Type(message[1]);
    head.isBigEndian = isBigEndian(message);
    WireReader in(message, head.isBigEndian);
    (void)in.take(8);
    head.serial = in.fixed<quint32>();
    const size_t end = fixedSize + in.fixed<quint32>();
    quint32 seen = 0;
    while (in.position() < end && !in.isMalformed()) {
        readField(head, seen, in);
    }
    if (in.position() != end) {
        return std::nullopt;
    }
    in.align(headBoundary);
    head.body = message.substr(in.position());
    if (in.isMalformed() || !hasWhatItNeeds(head) || head.signature.empty() != head.body.empty()) {
        return std::nullopt;
    }
    return head;
}

std::string callOfBus(const char *member, quint32 serial, std::string_view text,
                      std::optional<quint32> number)
{
    constexpr std::string_view bus = "org.freedesktop.DBus";
    std::string body;
    if (!text.empty()) {
        appendNumber(body, quint32(text.size()));
        body.append(text) += '\0';
    }
    if (number) {
        appendNumber(body, *number);
    }
    std::string out{'l', char(Type::Call), '\0', char(protocolVersion)};
    out.resize(fixedSize, '\0');
    qToLittleEndian(quint32(body.size()), out.data() + 4);
    qToLittleEndian(serial, out.data() + 8);
    appendField(out, Path, 'o', "/org/freedesktop/DBus");
    appendField(out, Interface, 's', bus);
    appendField(out, Member, 's', member);
    appendField(out, Destination, 's', bus);
    if (!body.empty()) {
        appendField(out, Signature, 'g', number ? "su" : "s");
    }
    qToLittleEndian(quint32(out.size() - fixedSize), out.data() + 12);
    out.resize(aligned(out.size()), '\0');
    return out + body;
}

} // namespace Wire

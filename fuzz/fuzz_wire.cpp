// SPDX-License-Identifier: Apache-2.0

// The input is what a bus sends, or the body of a status change. Nothing beyond it is read;
// a head lies within its message, and a change that is whole is so to its last byte alone:
// it has no values that are too many, waits as it came, and is malformed with a byte more or
// fewer. Texts are UTF-8 where Qt thinks so, too.

#include "checks.h"
#include "input.h"
#include "intake/busaddress.h"
#include "intake/statussignal.h"
#include "intake/waitingchanges.h"
#include "intake/wiremessage.h"
#include "intake/wirevalue.h"

#include <QtEndian>

#include <memory>

namespace
{

//! Bytes with nothing behind them, so that a sanitizer sees what is read there.
class Exactly
{
public:
    explicit Exactly(std::string_view content)
        : size(content.size())
        , bytes(new char[content.size()])
    {
        std::copy(content.begin(), content.end(), bytes.get());
    }
    [[nodiscard]] std::string_view view() const { return {bytes.get(), size}; }

private:
    size_t size;
    std::unique_ptr<char[]> bytes;
};

std::string_view viewOf(const QByteArray &bytes)
{
    return {bytes.constData(), size_t(bytes.size())};
}

bool isWithin(std::string_view part, std::string_view whole)
{
    return part.empty()
        || (part.data() >= whole.data()
            && part.data() + part.size() <= whole.data() + whole.size());
}

struct Values {
    bool isMalformed = false;
    QList<QVariant> list;
};

//! Of a status change's body.
Values valuesOf(std::string_view content, bool isBigEndian)
{
    const Exactly body(content);
    WireReader in(body.view(), isBigEndian);
    (void)in.fixed<qint32>();
    Values values;
    Wire::appendStatusValues(values.list, in);
    require(in.position() <= content.size(), "a reader stays within the bytes");
    values.isMalformed = in.isMalformed();
    require(values.isMalformed || in.position() == content.size(), "all of a body is read");
    return values;
}

void checkChange(const Wire::Head &head)
{
    const Values values = valuesOf(head.body, head.isBigEndian);
    require(size_t(values.list.size()) <= head.body.size(), "a value has a byte at least");
    if (values.isMalformed) {
        return;
    }
    require(valuesOf(head.body.substr(0, head.body.size() - 1), head.isBigEndian).isMalformed,
            "a body without its last byte is malformed");
    require(valuesOf(std::string(head.body) + '\0', head.isBigEndian).isMalformed,
            "a body with a byte more is malformed");
}

void checkWaiting(const Wire::Head &head)
{
    WaitingChanges changes;
    changes.add(head);
    changes.add(head);
    changes.removeFirst();
    const WaitingChanges::Change change = changes.first();
    require(change.serial == head.serial && change.isBigEndian == head.isBigEndian
                && change.sender == head.sender && change.path == head.path
                && change.body == head.body,
            "what waits is as it came");
}

void checkHead(const Wire::Head &head, std::string_view message)
{
    for (const std::string_view part : {head.path, head.interface, head.member, head.errorName,
                                        head.destination, head.sender, head.signature}) {
        require(isWithin(part, message) && Wire::isUtf8(part), "a head lies in its message");
    }
    require(isWithin(head.body, message) && (message.size() - head.body.size()) % 8 == 0,
            "a body is aligned");
    require(Wire::isSignature(head.signature), "a signature is one");
    checkWaiting(head);
    if (head.signature == StatusSignal::signature) {
        checkChange(head);
    }
}

//! As they come from the bus.
void readMessages(std::string_view bytes)
{
    while (bytes.size() >= Wire::fixedSize) {
        const auto size = Wire::messageSize(Exactly(bytes.substr(0, Wire::fixedSize)).view());
        if (!size || *size > bytes.size()) {
            return;
        }
        require(*size >= Wire::fixedSize && *size <= Wire::mostMessage, "a size is a message's");
        const Exactly message(bytes.substr(0, *size));
        const auto head = Wire::readHead(message.view());
        if (!head) {
            return;
        }
        checkHead(*head, message.view());
        bytes.remove_prefix(*size);
    }
}

void checkText(const QByteArray &text)
{
    const QByteArray marked = 'x' + text; // or a byte order mark in front would be lost
    const QByteArray again = QString::fromUtf8(marked.constData(), int(marked.size())).toUtf8();
    require(Wire::isUtf8(viewOf(text)) == (again == marked), "a text is UTF-8 or not");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    prepare();
    Input input(data, size);
    const int kind = input.below(4);
    const bool isBigEndian = input.flag();
    const QByteArray rest = input.take(size);
    switch (kind) {
    case 0:
        readMessages(viewOf(rest));
        break;
    case 1:
        checkText(rest);
        for (const std::string &name : BusAddress::socketNames(viewOf(rest))) {
            require(name.size() <= size, "a name is no longer than its address");
        }
        break;
    default: {
        Wire::Head head;
        head.isBigEndian = isBigEndian;
        const Exactly body(viewOf(rest));
        head.body = body.view();
        checkChange(head);
    }
    }
    (void)takeMessages();
    return 0;
}

// SPDX-License-Identifier: Apache-2.0

// What the intake makes of a message's bytes is what libdbus and QtDBus make of them, in
// the same process: the same values of every type, and where libdbus ends the connection
// the message is malformed.
//
// SEL_WIRE_MESSAGES: how many random messages (20000); half as many damaged ones follow.
// SEL_SEED: what to begin with (printed); the same seed makes the same messages.

#include "intake/busconnection.h"
#include "intake/fakebus.h"
#include "intake/outcome.h"
#include "intake/qtroad.h"
#include "intake/statussignal.h"
#include "intake/wiremessage.h"
#include "intake/wirevalue.h"
#include "reader/dice.h"
#include "reliability/randommessages.h"
#include "reliability/wirebus.h"
#include "support/environment.h"
#include "support/literals.h"

#include <QElapsedTimer>
#include <QTest>

#include <algorithm>
#include <functional>
#include <optional>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace
{

std::string_view viewOf(const QByteArray &bytes)
{
    return {bytes.constData(), size_t(bytes.size())};
}

bool isStatusChange(const Wire::Head &head)
{
    return head.type == Wire::Type::Signal
        && head.interface == StatusSignal::interface && head.member == StatusSignal::member
        && head.signature == StatusSignal::signature;
}

//! Adds what the intake makes of a message whose head is sound.
void addOutcome(Outcome &outcome, const Wire::Head &head)
{
    if (!isStatusChange(head)) {
        return;
    }
    WireReader in(head.body, head.isBigEndian);
    const int id = in.fixed<qint32>();
    QList<QVariant> values;
    Wire::appendStatusValues(values, in);
    outcome.isMalformed = in.isMalformed();
    if (!outcome.isMalformed) {
        const QString path = QString::fromLatin1(head.path.data(), int(head.path.size()));
        outcome.changes.append(described(id, path, values));
    }
}

//! What the intake makes of a message.
Outcome ownOutcome(const QByteArray &bytes)
{
    Outcome outcome;
    const auto head = Wire::readHead(viewOf(bytes));
    outcome.isMalformed = !head;
    if (head) {
        addOutcome(outcome, *head);
    }
    return outcome;
}

//! What the intake makes of messages that come over a connection; the last is no status change.
Outcome ownOutcome(const QList<QtRoad::Message> &messages)
{
    constexpr int patience = 60000; // milliseconds; against what hangs
    const FakeBus bus([&messages](BusSide &side) {
        side.welcome();
        (void)side.readMessage(); // what comes along with a greeting is not handed over
        const int passed = open("/dev/null", O_RDONLY | O_CLOEXEC);
        for (const QtRoad::Message &message : messages) {
            (void)side.send(message.bytes, passed, message.descriptors);
        }
        close(passed);
    });
    Outcome outcome;
    bool isRead = false;
    const auto handle = [&](const Wire::Head &head) {
        addOutcome(outcome, head);
        isRead = !isStatusChange(head);
    };
    BusConnection connection;
    bool goesOn = connection.open() && connection.call("GetId") != 0;
    while (goesOn && connection.wait(patience)) {
        goesOn = connection.read(handle) != BusConnection::Reading::Lost;
    }
    outcome.isMalformed = !isRead;
    return outcome;
}

//! What both make of a message, as far as they agree; of another one its bytes are shown.
bool areEqual(const Outcome &own, const Outcome &qt, const QByteArray &bytes)
{
    if (own == qt) {
        return true;
    }
    qWarning("the intake: %s %s", own.isMalformed ? "malformed" : "read",
             qPrintable(own.changes.join(u'\n').left(2000)));
    qWarning("QtDBus: %s %s", qt.isMalformed ? "malformed" : "read",
             qPrintable(qt.changes.join(u'\n').left(2000)));
    qWarning("the message: %s", bytes.left(4000).toHex().constData());
    return false;
}

//! A status change whose variant somebody writes.
using Writing = std::function<void(WireWriter &)>;

WireMessage changeOf(const Writing &write, bool isBigEndian)
{
    WireMessage message;
    message.path = "/a/b";
    message.interface = StatusSignal::interface;
    message.member = StatusSignal::member;
    message.signature = StatusSignal::signature;
    message.isBigEndian = isBigEndian;
    WireWriter out;
    out.isBigEndian = isBigEndian;
    out.fixed(1002, 4);
    write(out);
    message.body = out.bytes;
    return message;
}

//! A list of variants with one element, which somebody writes.
Writing listed(const Writing &write)
{
    return [write](WireWriter &out) {
        out.signature("av");
        const WireWriter::Array list = out.beginArray(1);
        write(out);
        out.endArray(list);
    };
}

//! A variant with a text that may be malformed.
Writing textOf(const QByteArray &utf8, const QByteArray &type = "s")
{
    return listed([=](WireWriter &out) {
        out.signature(type);
        type == "g" ? out.signature(utf8) : out.text(utf8);
    });
}

//! A variant whose type is given and whose value is zeros of some length.
Writing zeros(const QByteArray &type, int size)
{
    return [=](WireWriter &out) {
        out.signature(type);
        out.bytes.append(size, '\0');
    };
}

//! An array without elements.
Writing emptyArray(const QByteArray &type, int boundary)
{
    return [=](WireWriter &out) {
        out.signature(type);
        out.endArray(out.beginArray(boundary));
    };
}

//! Variants in each other around a number.
Writing nested(int variants)
{
    return listed([=](WireWriter &out) {
        for (int i = 0; i < variants; ++i) {
            out.signature("v");
        }
        out.signature("y");
        out.fixed(7, 1);
    });
}

//! Arrays in each other, each with one element, around structures in each other.
Writing nestedTypes(int arrays, int structures, int innerArrays = 0)
{
    return listed([=](WireWriter &out) {
        out.signature(QByteArray(arrays, 'a') + QByteArray(structures, '(')
                      + QByteArray(innerArrays, 'a') + 'y' + QByteArray(structures, ')'));
        QList<WireWriter::Array> open;
        for (int i = 1; i <= arrays; ++i) {
            open.append(out.beginArray(i < arrays ? 4 : structures > 0 ? 8 : 1));
        }
        out.align(structures > 0 ? 8 : 1);
        for (int i = 1; i <= innerArrays; ++i) {
            open.append(out.beginArray(i < innerArrays ? 4 : 1));
        }
        out.fixed(7, 1);
        while (!open.isEmpty()) {
            out.endArray(open.takeLast());
        }
    });
}

//! A list of bytes, in a structure since that is no list.
Writing bytesOf(int size)
{
    return [=](WireWriter &out) {
        out.signature("(v)");
        out.align(8);
        out.signature("ay");
        const WireWriter::Array array = out.beginArray(1);
        out.bytes.append(size, 'x');
        out.endArray(array);
    };
}

//! An array whose length is another than that of its elements.
Writing wrongLength(const QByteArray &type, int size, quint32 said)
{
    return [=](WireWriter &out) {
        out.signature(type);
        out.fixed(said, 4);
        out.bytes.append(size, '\0');
    };
}

void writeAllTypes(WireWriter &out)
{
    out.signature("av");
    const WireWriter::Array list = out.beginArray(1);
    for (const char type : QByteArray("ybnqiuxtdh")) {
        const int size = type == 'y'                    ? 1
            : type == 'n' || type == 'q'                ? 2
            : type == 'x' || type == 't' || type == 'd' ? 8
                                                        : 4;
        out.signature(QByteArray(1, type));
        out.fixed(type == 'b' ? 1 : Q_UINT64_C(0x8142434445464748), size);
    }
    out.signature("s");
    out.text("text");
    out.signature("o");
    out.text("/path");
    out.signature("g");
    out.signature("a{sv}");
    out.endArray(list);
}

void writeDictionary(WireWriter &out)
{
    out.signature("a{sv}");
    const WireWriter::Array array = out.beginArray(8);
    for (const char *const key : {"one", "another"}) {
        out.align(8);
        out.text(key);
        out.signature("t");
        out.fixed(5, 8);
    }
    out.endArray(array);
}

void writeLists(WireWriter &out)
{
    out.signature("as");
    const WireWriter::Array texts = out.beginArray(4);
    out.text("a");
    out.text("");
    out.text("\xEF\xBB\xBFz");
    out.endArray(texts);
    out.signature("ay");
    const WireWriter::Array bytes = out.beginArray(1);
    out.bytes.append("\0\xFF", 2);
    out.endArray(bytes);
    out.signature("aay");
    const WireWriter::Array lists = out.beginArray(4);
    for (const char *const content : {"abc", ""}) {
        const WireWriter::Array list = out.beginArray(1);
        out.bytes.append(content);
        out.endArray(list);
    }
    out.endArray(lists);
}

//! As the members of a structure, or the elements of a list.
void writeTwoVariants(WireWriter &out)
{
    out.signature("x");
    out.fixed(5, 8);
    out.signature("v");
    out.signature("s");
    out.text("text");
}

Writing structure(const QByteArray &type, const Writing &members)
{
    return [=](WireWriter &out) {
        out.signature(type);
        out.align(8);
        members(out);
    };
}

void addAcceptedRows()
{
    const auto row
        = [](const char *name, const Writing &write) { QTest::newRow(name) << write << false; };
    row("every basic type keeps its own", writeAllTypes);
    row("a list may be empty", emptyArray("av", 1));
    row("a structure of variants is a list", structure("(vv)", writeTwoVariants));
    row("a structure counts up to the first that is no variant",
        structure("(vvyv)", [](WireWriter &out) {
            writeTwoVariants(out);
            out.fixed(1, 1);
            out.signature("y");
            out.fixed(1, 1);
        }));
    row("a structure that begins otherwise has no values", structure("(yv)", [](WireWriter &out) {
            out.fixed(1, 1);
            out.signature("y");
            out.fixed(1, 1);
        }));
    row("a dictionary has no values", writeDictionary);
    row("a dictionary is a value", listed(writeDictionary));
    row("lists of texts and of bytes are values", listed(writeLists));
    row("a list of texts has no values", emptyArray("as", 4));
    row("a list of bytes has no values", emptyArray("ay", 1));
    row("a number has no values", zeros("y", 1));
    row("an empty array is padded", emptyArray("a(x)", 8));
    row("an empty array of dictionaries is padded", emptyArray("a{ys}", 8));
    row("a text loses a byte order mark in front, and no other",
        textOf("\xEF\xBB\xBF"
               "a\xEF\xBB\xBF"));
    row("a text keeps noncharacters and what lies beyond 16 bits",
        textOf("\xEF\xBF\xBF\xEF\xB7\x90\xF0\x9F\x92\xA5\xF4\x8F\xBF\xBF"));
    row("the last character before the surrogates is one", textOf("\xED\x9F\xBF"));
    row("60 variants may lie in each other", nested(60));
    row("61 variants may lie in a list of them", nested(61));
    row("32 arrays may lie in each other", nestedTypes(32, 0));
    row("32 structures may lie in each other", nestedTypes(0, 32));
    row("29 structures may lie in 32 arrays", nestedTypes(32, 29));
    row("each structure begins to count arrays anew", nestedTypes(20, 1, 20));
}

void addRefusedTypes()
{
    const auto row = [](const char *name, const QByteArray &type) {
        QTest::newRow(name) << Writing(zeros(type, 64)) << true;
    };
    row("a variant has a type", "");
    row("a variant has no two types", "ii");
    row("an array has elements", "a");
    row("a structure has members", "()");
    row("a structure ends", "(i");
    row("a structure begins", "i)");
    row("an entry lies in an array", "{ss}");
    row("an entry has a value", "a{s}");
    row("an entry has no third", "a{sss}");
    row("an entry's key is basic", "a{vs}");
    row("an entry's key is no structure", "a{(s)s}");
    row("an entry ends as it began", "a{ss)");
    row("a structure ends as it began", "(ss}");
    row("an array's element stands within the brackets", "(a)i");
    row("there is no type m", "m");
    row("there is no type r", "r");
    row("there is no type e", "ae");
    row("a type has no zero", QByteArray("i\0", 2));
    row("33 arrays are too many", QByteArray(33, 'a') + 'i');
    row("33 structures are too many", QByteArray(33, '(') + 'i' + QByteArray(33, ')'));
    row("32 structures and an entry are too many",
        QByteArray(32, '(') + "a{ss}" + QByteArray(32, ')'));
}

void addRefusedValues()
{
    const auto row
        = [](const char *name, const Writing &write) { QTest::newRow(name) << write << true; };
    row("62 variants in a list of them are too many", nested(62));
    row("30 structures in 32 arrays are too many", nestedTypes(32, 30));
    row("a boolean is 0 or 1", [](WireWriter &out) {
        out.signature("b");
        out.fixed(2, 4);
    });
    row("so is one in a list", listed([](WireWriter &out) {
            out.signature("ab");
            const WireWriter::Array array = out.beginArray(4);
            out.fixed(2, 4);
            out.endArray(array);
        }));
    row("what is skipped for alignment is zero", [](WireWriter &out) {
        out.signature("i");
        out.bytes.append('\1');
        out.fixed(5, 4);
    });
    row("so it is in front of an array that is empty", [](WireWriter &out) {
        out.signature("a(x)");
        out.fixed(0, 4);
        out.bytes.append(4, '\1');
    });
    row("a text ends with a zero", [](WireWriter &out) {
        out.signature("s");
        out.fixed(1, 4);
        out.bytes.append("ab");
    });
    row("a text has no zero within", textOf(QByteArray("a\0b", 3)));
    row("a text is no longer than the message", wrongLength("s", 3, 3));
    row("no length makes a number go round", wrongLength("s", 3, 0xFFFFFFFF));
    row("a text has no half of a pair", textOf("\xED\xA0\x80"));
    row("a text has no character in too long a form", textOf("\xC0\x80"));
    row("nor in three bytes for two", textOf("\xE0\x9F\xBF"));
    row("nor in four for three", textOf("\xF0\x8F\xBF\xBF"));
    row("a text has no character beyond the last", textOf("\xF4\x90\x80\x80"));
    row("a text ends behind a character", textOf("\xE2\x82"));
    row("an object path begins with a slash", textOf("a", "o"));
    row("an object path does not end with one", textOf("/a/", "o"));
    row("an object path is not empty", textOf("", "o"));
    row("a signature is of complete types", textOf("a", "g"));
    row("an array is no longer than the message", wrongLength("ay", 3, 4));
    row("no length makes an array go round", wrongLength("ay", 3, 0xFFFFFFFF));
    row("an array ends behind an element", wrongLength("as", 5, 4));
    row("an array has whole numbers", wrongLength("au", 8, 6));
    row("a list of variants ends behind one", wrongLength("av", 3 + 5, 4));
    row("nothing stands behind the variant", [](WireWriter &out) {
        out.signature("y");
        out.bytes.append(2, '\1');
    });
    row("a variant has a value", zeros("y", 0));
}

/*!
 * Whether libdbus alone takes a message. QtDBus reads no more once one of more than 63 MiB
 * has come: it goes on in the thread that is done with it, where its notifiers cannot.
 */
bool isTakenByLibrary(const QByteArray &message)
{
    void *const library = dlopen("libdbus-1.so.3", RTLD_NOW);
    const auto read = reinterpret_cast<void *(*)(const char *, int, void *)>(
        dlsym(library, "dbus_message_demarshal"));
    const auto forget = reinterpret_cast<void (*)(void *)>(dlsym(library, "dbus_message_unref"));
    void *const taken = read(message.constData(), int(message.size()), nullptr);
    if (taken != nullptr) {
        forget(taken);
    }
    dlclose(library);
    return taken != nullptr;
}

//! How many descriptors a message says that it has, and how many travel with it.
using Travel = std::pair<int, int>;

//! A message that is a sound one but for what somebody does to it.
using Change = std::function<void(WireMessage &)>;

//! Sets one of a message's texts.
Change with(QByteArray WireMessage::*field, const QByteArray &text)
{
    return [=](WireMessage &message) { message.*field = text; };
}

void addRowsOfNames(const char *field, QByteArray WireMessage::*member,
                    std::initializer_list<const char *> right,
                    std::initializer_list<const char *> wrong)
{
    const auto add = [&](const QByteArray &name, bool isMalformed) {
        const QByteArray shown = name.size() < 50
            ? '"' + name + '"'
            : "of " + QByteArray::number(int(name.size())) + " characters";
        QTest::addRow("%s %s is %s", field, shown.constData(), isMalformed ? "malformed" : "read")
            << with(member, name) << isMalformed;
    };
    for (const char *const name : right) {
        add(name, false);
    }
    for (const char *const name : wrong) {
        add(name, true);
    }
    const QByteArray begin = member == &WireMessage::member ? "a" : "a.";
    add(begin.leftJustified(255, 'x'), false);
    add(begin.leftJustified(256, 'x'), true);
}

//! A field of a given number, with a value that somebody writes.
QByteArray withField(const WireMessage &message, int field, const Writing &write)
{
    WireMessage longer = message;
    longer.body.clear();
    longer.signature.clear();
    QByteArray bytes = longer.toBytes(1);
    WireWriter out;
    out.isBigEndian = message.isBigEndian;
    out.bytes = bytes;
    out.align(8);
    out.fixed(quint64(field), 1);
    write(out);
    // Behind the last field no padding counts.
    WireWriter length;
    length.isBigEndian = message.isBigEndian;
    length.fixed(quint64(out.bytes.size() - int(Wire::fixedSize)), 4);
    out.bytes.replace(12, 4, length.bytes);
    out.align(8);
    return out.bytes;
}

} // namespace

Q_DECLARE_METATYPE(Writing)
Q_DECLARE_METATYPE(Change)

class WireValueTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { collector.emplace(); }
    void cleanup() { collector.reset(); }
    void values_data();
    void values();
    void largeValues();
    void names_data();
    void names();
    void fields_data();
    void fields();
    void descriptors_data();
    void descriptors();
    void randomMessages();
    void damagedMessages();

private:
    bool agree(const QByteArray &message, bool isMalformed);

    std::optional<MessageCollector> collector;
    QtRoad qt;
};

bool WireValueTest::agree(const QByteArray &message, bool isMalformed)
{
    const Outcome own = ownOutcome(message);
    return areEqual(own, qt.take({{message}}), message) && own.isMalformed == isMalformed;
}

void WireValueTest::values_data()
{
    QTest::addColumn<Writing>("write");
    QTest::addColumn<bool>("isMalformed");
    addAcceptedRows();
    addRefusedTypes();
    addRefusedValues();
}

void WireValueTest::values()
{
    QFETCH(Writing, write);
    QFETCH(bool, isMalformed);
    for (const bool isBigEndian : {false, true}) {
        QVERIFY(agree(changeOf(write, isBigEndian).toBytes(1), isMalformed));
    }
}

void WireValueTest::largeValues()
{
    constexpr int most = 64 * 1024 * 1024;
    for (const bool isBigEndian : {false, true}) {
        const QByteArray largest = changeOf(bytesOf(most), isBigEndian).toBytes(1);
        QVERIFY(isTakenByLibrary(largest));
        QVERIFY(!ownOutcome(largest).isMalformed);
        const QByteArray tooLarge = changeOf(bytesOf(most + 1), isBigEndian).toBytes(1);
        QVERIFY(!isTakenByLibrary(tooLarge));
        QVERIFY(ownOutcome(tooLarge).isMalformed);
    }
}

void WireValueTest::names_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<bool>("isMalformed");
    addRowsOfNames("the interface", &WireMessage::interface, {"a.b", "_a._1", "a.b.c"},
                   {"", "a", ".a.b", "a.b.", "a..b", "a.1b", "1a.b", "a.b-c", "a.b c",
                    "org.freedesktop.DBus.Local"});
    addRowsOfNames("the member", &WireMessage::member, {"a", "_1"},
                   {"", "1", "a.b", "a-b", "\xC3\xBC"});
    addRowsOfNames("the sender", &WireMessage::sender,
                   {"a.b", "a-._-1", ":1.5", ":1", ":", ":.1", "-a.b"},
                   {"a", "a.1", "1.a", ".a", "a.b.", "a..b", ":1.", ":1..5", ":1:5", "a.b:c"});
    addRowsOfNames("the destination", &WireMessage::destination, {"a.b", ":1.5"}, {"a", "a.1"});
    QTest::newRow("the path of libdbus's own messages is malformed")
        << with(&WireMessage::path, "/org/freedesktop/DBus/Local") << true;
    QTest::newRow("a path is one") << with(&WireMessage::path, "/a//b") << true;
    QTest::newRow("a path is there") << with(&WireMessage::path, "") << true;
    QTest::newRow("an error has a name and an answer's number") << Change([](WireMessage &message) {
        message.type = WireMessage::Error;
        message.errorName = "a.b";
        message.replyTo = 1;
    }) << false;
    QTest::newRow("an error without a name is malformed") << Change([](WireMessage &message) {
        message.type = WireMessage::Error;
        message.replyTo = 1;
    }) << true;
    QTest::newRow("an error's name is one") << Change([](WireMessage &message) {
        message.type = WireMessage::Error;
        message.errorName = "a";
        message.replyTo = 1;
    }) << true;
    QTest::newRow("an answer answers something")
        << Change([](WireMessage &message) { message.type = WireMessage::Reply; }) << true;
    QTest::newRow("a call needs no interface") << Change([](WireMessage &message) {
        message.type = WireMessage::Call;
        message.flags = WireMessage::NoReply;
        message.interface.clear();
    }) << false;
    QTest::newRow("a message of an unknown type needs nothing") << Change([](WireMessage &message) {
        message = WireMessage();
        message.type = 5;
    }) << false;
    QTest::newRow("a message of no type is malformed")
        << Change([](WireMessage &message) { message.type = 0; }) << true;
}

void WireValueTest::names()
{
    QFETCH(Change, change);
    QFETCH(bool, isMalformed);
    for (const bool isBigEndian : {false, true}) {
        WireMessage message = unknownSignal(isBigEndian);
        change(message);
        QVERIFY(agree(message.toBytes(1), isMalformed));
    }
}

void WireValueTest::fields_data()
{
    QTest::addColumn<int>("field");
    QTest::addColumn<Writing>("write");
    QTest::addColumn<bool>("isMalformed");
    const auto number = [](quint32 value) {
        return Writing([=](WireWriter &out) {
            out.signature("u");
            out.fixed(value, 4);
        });
    };
    const auto text = [](const QByteArray &type, const QByteArray &content) {
        return Writing([=](WireWriter &out) {
            out.signature(type);
            type == "g" ? out.signature(content) : out.text(content);
        });
    };
    const auto variants = [](int count) {
        return Writing([=](WireWriter &out) {
            for (int i = 0; i < count; ++i) {
                out.signature("v");
            }
            out.signature("y");
            out.fixed(7, 1);
        });
    };
    QTest::newRow("a field has a number") << 0 << number(1) << true;
    QTest::newRow("an unknown one is left out") << 11 << number(1) << false;
    QTest::newRow("of any type") << 255 << Writing(listed(writeLists)) << false;
    QTest::newRow("but of one") << 11 << Writing(zeros("", 8)) << true;
    QTest::newRow("a value in it is read all the same") << 11 << text("s", "\xFF") << true;
    QTest::newRow("61 variants may lie in it") << 11 << variants(61) << false;
    QTest::newRow("62 are too many") << 11 << variants(62) << true;
    QTest::newRow("the path stands there once") << 1 << text("o", "/") << true;
    QTest::newRow("the member stands there once") << 3 << text("s", "member") << true;
    QTest::newRow("the sender is a text") << 7 << text("o", "/") << true;
    QTest::newRow("the answer's number is a number") << 5 << text("s", "1") << true;
    QTest::newRow("a signal may have one") << 5 << number(1) << false;
    QTest::newRow("it is not zero") << 5 << number(0) << true;
    QTest::newRow("no descriptors may be there") << 9 << number(0) << false;
    QTest::newRow("a container is a path") << 10 << text("o", "/") << false;
    QTest::newRow("a container is no text") << 10 << text("s", "/") << true;
    QTest::newRow("an empty signature is one") << 8 << text("g", "") << false;
    QTest::newRow("a signature has a body") << 8 << text("g", "y") << true;
    QTest::newRow("a signature is of complete types") << 8 << text("g", "a") << true;
}

void WireValueTest::fields()
{
    QFETCH(int, field);
    QFETCH(Writing, write);
    QFETCH(bool, isMalformed);
    for (const bool isBigEndian : {false, true}) {
        const WireMessage message = unknownSignal(isBigEndian);
        QVERIFY(agree(withField(message, field, write), isMalformed));
    }
}

void WireValueTest::descriptors_data()
{
    QTest::addColumn<QList<Travel>>("travels");
    QTest::addColumn<bool>("isMalformed");
    const auto row = [](const char *name, const QList<Travel> &travels, bool isMalformed) {
        QTest::newRow(name) << travels << isMalformed;
    };
    row("as many may travel as a message says", {{2, 2}, {0, 0}, {1, 1}}, false);
    row("so may the most that libdbus takes", {{16, 16}, {16, 16}}, false);
    row("not fewer", {{2, 2}, {2, 1}}, true);
    row("none are fewer than one", {{1, 0}}, true);
    row("no message has so many", {{0x7FFFFFFF, 1}}, true);
    row("more may", {{1, 3}, {0, 0}}, false);
    row("a message may say nothing of those that travel", {{0, 2}, {0, 0}}, false);
    row("what is left over is for the next ones", {{0, 3}, {2, 0}, {1, 0}}, false);
    row("but only once", {{0, 3}, {2, 0}, {2, 0}}, true);
}

//! How many of them come is not in the messages.
void WireValueTest::descriptors()
{
    QFETCH(QList<Travel>, travels);
    QFETCH(bool, isMalformed);
    WireMessage message = changeOf(emptyArray("av", 1), false);
    QList<QtRoad::Message> messages;
    for (const Travel &travel : travels) {
        message.descriptors = travel.first;
        messages.append({message.toBytes(1), travel.second});
    }
    message.descriptors = 0;
    message.interface = "org.example.unknown";
    messages.append({message.toBytes(1)});
    qt.startAnew(); // without any that are left over
    Outcome own = ownOutcome(messages);
    const Outcome other = qt.take(messages);
    QCOMPARE(other.isMalformed, isMalformed);
    if (isMalformed) {
        own.changes = other.changes; // QtDBus may not have got to those before
    }
    QVERIFY(areEqual(own, other, messages.constLast().bytes));
}

void WireValueTest::randomMessages()
{
    constexpr int atOnce = 50;
    const int count = numberFromEnvironment("SEL_WIRE_MESSAGES", 20000);
    const auto seed = quint32(numberFromEnvironment("SEL_SEED", 1));
    qInfo("SEL_WIRE_MESSAGES=%d SEL_SEED=%u", count, seed);
    Dice dice(seed, 0);
    RandomMessages messages(&dice);
    qint64 bytes = 0;
    qint64 changes = 0;
    for (int done = 0; done < count; done += atOnce) {
        QList<QtRoad::Message> sent;
        Outcome own;
        for (int i = 0; i < atOnce; ++i) {
            messages.setBigEndian(dice.chance(50));
            const WireMessage message = messages.signal();
            sent.append({message.toBytes(quint32(dice.between(1, 1000000))), message.descriptors});
            const Outcome one = ownOutcome(sent.constLast().bytes);
            own.isMalformed = own.isMalformed || one.isMalformed;
            own.changes += one.changes;
            bytes += sent.constLast().bytes.size();
        }
        changes += own.changes.size();
        const bool isSame = own == qt.take(sent);
        for (int i = 0; i < atOnce && !isSame; ++i) { // which one it is
            QVERIFY(areEqual(ownOutcome(sent[i].bytes), qt.take({sent[i]}), sent[i].bytes));
        }
        QVERIFY(isSame);
    }
    qInfo("%lld bytes, %lld status changes", bytes, changes);
    QVERIFY(changes > count / 2);
}

//! Without some of the body's last bytes.
static QByteArray shortened(const QByteArray &message, int bodyBegin, Dice &dice)
{
    const int size = dice.below(int(message.size()) - bodyBegin + 1);
    WireWriter length;
    length.isBigEndian = message.front() == 'B';
    length.fixed(quint64(size), 4);
    return message.left(bodyBegin + size).replace(4, 4, length.bytes);
}

//! Another message of the length that its fixed part says.
static QByteArray damaged(const QByteArray &message, Dice &dice)
{
    static const char odd[]
        = {0, 1, 2, 3, 4, 8, 127, '\x80', '\xFF', 'a', 'v', 's', '(', ')', '{', '}'};
    QByteArray bytes = message;
    const int size = int(bytes.size());
    const int fieldsEnd = size - int(Wire::readHead(viewOf(message))->body.size());
    for (int times = dice.between(1, 2); times > 0; --times) {
        const int at = dice.below(dice.chance(50) ? fieldsEnd : size);
        const bool isLength = (at >= 4 && at < 8) || (at >= 12 && at < 16);
        const int throwOf100 = dice.below(100);
        if (throwOf100 < 50 && !isLength) {
            bytes[at] = char(bytes[at] ^ (1 << dice.below(8)));
        } else if (throwOf100 < 75 && !isLength) {
            bytes[at] = dice.oneOf(odd);
        } else if (at >= int(Wire::fixedSize)) {
            const int moved = std::min(dice.between(1, 8), size - at);
            if (throwOf100 < 88) {
                bytes.remove(at, moved).append(moved, '\0');
            } else {
                bytes.insert(at, QByteArray(moved, dice.oneOf(odd))).truncate(size);
            }
        }
    }
    return dice.chance(90) ? bytes : shortened(bytes, fieldsEnd, dice);
}

void WireValueTest::damagedMessages()
{
    const int count = numberFromEnvironment("SEL_WIRE_MESSAGES", 20000) / 2;
    const auto seed = quint32(numberFromEnvironment("SEL_SEED", 1));
    Dice dice(seed, 1);
    RandomMessages messages(&dice);
    int ended = 0;
    for (int i = 0; i < count; ++i) {
        messages.setBigEndian(dice.chance(50));
        WireMessage whole = messages.signal();
        whole.descriptors = 0; // how many there are the bus counts
        const QByteArray original = whole.toBytes(1);
        const QByteArray bytes = damaged(original, dice);
        const auto size = Wire::messageSize(viewOf(bytes));
        if (size && *size != size_t(bytes.size())) {
            continue; // in the other order of bytes, for one: the other side waits for more
        }
        Outcome own = ownOutcome(bytes);
        const Outcome other = qt.take({{bytes}});
        const auto head = Wire::readHead(viewOf(bytes));
        const bool isBodyRead = !head || isStatusChange(*head)
            || (head->signature == viewOf(whole.signature) && head->body == viewOf(whole.body)
                && head->isBigEndian == whole.isBigEndian);
        if (!isBodyRead) {
            own.isMalformed = other.isMalformed; // which the intake leaves to the bus
        }
        QVERIFY(areEqual(own, other, bytes));
        ended += int(other.isMalformed);
    }
    qInfo("%d damaged messages, %d of them malformed", count, ended);
    QVERIFY(ended > count / 4 && ended < count);
}

QTEST_GUILESS_MAIN(WireValueTest)
#include "tst_wirevalue.moc"

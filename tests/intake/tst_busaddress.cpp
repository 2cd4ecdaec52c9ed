// SPDX-License-Identifier: Apache-2.0

// Which sockets a bus's addresses lead to, also as libdbus takes them apart.

#include "intake/busaddress.h"

#include <QByteArray>
#include <QList>
#include <QTest>

#include <optional>

#include <dlfcn.h>

namespace
{

//! An abstract socket's name begins with a zero byte, here shown as '@'.
QList<QByteArray> shown(const std::vector<std::string> &names)
{
    QList<QByteArray> result;
    for (const std::string &name : names) {
        QByteArray text(name.data(), int(name.size()));
        if (text.startsWith('\0')) {
            text[0] = '@';
        }
        result.append(text);
    }
    return result;
}

//! The library, loaded as long as this lives.
class Library
{
public:
    Library() = default;
    ~Library() { dlclose(handle); }
    Q_DISABLE_COPY_MOVE(Library)

    template <typename Function>
    Function *function(const char *name) const
    {
        return reinterpret_cast<Function *>(dlsym(handle, name));
    }

private:
    void *handle = dlopen("libdbus-1.so.3", RTLD_NOW);
};

//! What libdbus makes of addresses, none where it refuses them as a whole.
std::optional<QList<QByteArray>> namesByLibrary(const QByteArray &addresses)
{
    struct Entry;
    const Library library;
    const auto parse
        = library.function<quint32(const char *, Entry ***, int *, void *)>("dbus_parse_address");
    const auto method = library.function<const char *(Entry *)>("dbus_address_entry_get_method");
    const auto value
        = library.function<const char *(Entry *, const char *)>("dbus_address_entry_get_value");
    const auto forget = library.function<void(Entry **)>("dbus_address_entries_free");

    Entry **entries = nullptr;
    int count = 0;
    if (parse(addresses.constData(), &entries, &count, nullptr) == 0) {
        return std::nullopt;
    }
    QList<QByteArray> names;
    for (int i = 0; i < count; ++i) {
        const char *const path = value(entries[i], "path");
        const char *const abstract = value(entries[i], "abstract");
        if (QByteArray(method(entries[i])) == "unix"
            && (path != nullptr) != (abstract != nullptr)) {
            names.append(path != nullptr ? QByteArray(path) : QByteArray("@") + abstract);
        }
    }
    forget(entries);
    return names;
}

} // namespace

class BusAddressTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void socketNames_data();
    void socketNames();
    void systemBus_data();
    void systemBus();
};

void BusAddressTest::socketNames_data()
{
    QTest::addColumn<QByteArray>("addresses");
    QTest::addColumn<QList<QByteArray>>("names");
    QTest::addColumn<bool>("isWhollyRight"); // else libdbus takes nothing of it
    const auto row = [](const char *name, const char *addresses, const QList<QByteArray> &names,
                        bool isWhollyRight = true) {
        QTest::newRow(name) << QByteArray(addresses) << names << isWhollyRight;
    };
    const auto partly
        = [&](const char *name, const char *addresses, const QList<QByteArray> &names = {}) {
              row(name, addresses, names, false);
          };
    row("a path is one", "unix:path=/run/bus", {"/run/bus"});
    row("an abstract name begins with a zero", "unix:abstract=/tmp/bus", {"@/tmp/bus"});
    row("other keys are left out", "unix:path=/run/bus,guid=0123", {"/run/bus"});
    row("keys may come first", "unix:guid=0123,path=/run/bus", {"/run/bus"});
    row("of a key that comes twice the first counts", "unix:path=/a,path=/b", {"/a"});
    row("several keep their order", "unix:path=/a;unix:abstract=b;unix:path=/c",
        {"/a", "@b", "/c"});
    row("an unusable first leaves the second", "tcp:host=localhost,port=1;unix:path=/b", {"/b"});
    row("a separator may stand at the end", "unix:path=/a;", {"/a"});
    row("an escape is a byte", "unix:path=/a%20b%2Cc%2c%c3%BC", {"/a b,c,\xC3\xBC"});
    row("other sockets are left out", "tcp:host=a,port=1", {});
    row("what starts a bus is left out", "unixexec:path=/a", {});
    row("a folder is for those who listen", "unix:dir=/tmp", {});
    row("both names are one too many", "unix:path=/a,abstract=b", {});
    partly("an equals sign may stand as it is", "unix:path=/a=b", {"/a=b"});
    partly("an escape has two digits", "unix:path=/a%2");
    partly("an escape is not a lone percent sign", "unix:path=/a%");
    partly("an escape is hexadecimal", "unix:path=/a%2g");
    partly("a broken one leaves the others", "unix:path=/%;unix:path=/b", {"/b"});
    partly("a key has a value", "unix:path");
    partly("a transport has a colon", "/run/bus");
    partly("nothing leads nowhere", "");
}

void BusAddressTest::socketNames()
{
    QFETCH(QByteArray, addresses);
    QFETCH(bool, isWhollyRight);
    QTEST(shown(BusAddress::socketNames({addresses.constData(), size_t(addresses.size())})),
          "names");
    const auto other = namesByLibrary(addresses);
    QCOMPARE(other.has_value(), isWhollyRight);
    if (other) {
        QTEST(*other, "names");
    }
}

void BusAddressTest::systemBus_data()
{
    QTest::addColumn<QByteArray>("configured");
    QTest::addColumn<QByteArray>("address");
    const QByteArray wellKnown = "unix:path=/var/run/dbus/system_bus_socket";
    QTest::newRow("the environment says where it is")
        << QByteArray("unix:abstract=a") << QByteArray("unix:abstract=a");
    QTest::newRow("otherwise it is at its well-known place") << QByteArray() << wellKnown;
    QTest::newRow("so it is where the environment says nothing") << QByteArray("") << wellKnown;
}

void BusAddressTest::systemBus()
{
    QFETCH(QByteArray, configured);
    const char variable[] = "DBUS_SYSTEM_BUS_ADDRESS";
    configured.isNull() ? qunsetenv(variable) : qputenv(variable, configured);
    QTEST(QByteArray::fromStdString(BusAddress::ofSystemBus()), "address");
}

QTEST_GUILESS_MAIN(BusAddressTest)
#include "tst_busaddress.moc"

// SPDX-License-Identifier: Apache-2.0

// A bus that lets no second connection of the daemon in: status changes come over the first
// one, each once and in order, and over both as soon as they may.

#include "reliability/wirebus.h"
#include "support/device.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnectionInterface>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <algorithm>
#include <memory>

#include <unistd.h>

namespace
{

const auto daemonName = "com.tovel.systemeventlogger"_s;
const auto ownLines = "systemeventlogger:"_s;
const auto begun = "systemeventlogger: startet listening on dbus listening: true"_s;
const auto ended = "systemeventlogger: stopped listening on dbus listening: false"_s;
const auto warning
    = "The bus lets no second connection in: status changes come over the first one."_s;

//! How many connections a process has to the bus.
int connectionsOf(qint64 process)
{
    auto *const bus = QDBusConnection::systemBus().interface();
    const QStringList names = bus->registeredServiceNames();
    return int(std::count_if(names.begin(), names.end(), [&](const QString &name) {
        return name.startsWith(QLatin1Char(':')) && qint64(bus->servicePid(name)) == process;
    }));
}

//! Somebody who connects to a bus and never says who he is.
class SilentPeer
{
public:
    explicit SilentPeer(const QString &address)
        : descriptor(connectTo(address))
    {
    }
    ~SilentPeer() { close(descriptor); }
    Q_DISABLE_COPY_MOVE(SilentPeer)

private:
    int descriptor;
};

} // namespace

class OneConnectionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void fromTheStartOn();
    void switching_data();
    void switching();

private:
    void refuseMore(const QString &limit, int most);
    void letIn();
    [[nodiscard]] bool switchAnew();
    void announce();
    [[nodiscard]] QStringList heard();

    TestBus bus;
    std::unique_ptr<Device> device;
    std::unique_ptr<SilentPeer> peer;
    QStringList announced;
};

void OneConnectionTest::init()
{
    device = std::make_unique<Device>();
    announced.clear();
}

void OneConnectionTest::cleanup()
{
    letIn();
    device.reset();
}

void OneConnectionTest::refuseMore(const QString &limit, int most)
{
    bus.limit(limit, most);
    peer = std::make_unique<SilentPeer>(bus.address());
}

void OneConnectionTest::letIn()
{
    peer.reset();
    bus.limit({}, 0);
}

bool OneConnectionTest::switchAnew()
{
    return device->setProperty("logLocal"_s, false) && device->setProperty("logLocal"_s, true);
}

//! Events that can be told apart, every other one to the daemon alone.
void OneConnectionTest::announce()
{
    constexpr int events = 50;
    for (int i = 0; i < events; ++i) {
        const QString text = QString::number(announced.size());
        announced.append("Message "_s + text);
        if (i % 2 == 0) {
            device->change("/x"_s, 1002, {text});
            continue;
        }
        QDBusMessage directed = QDBusMessage::createTargetedSignal(
            daemonName, "/x"_s, "com.tovel.status"_s, "change"_s);
        directed << 1002 << QVariant::fromValue(QDBusVariant(QVariantList{text}));
        QDBusConnection::systemBus().send(directed);
    }
    device->settle();
}

//! What the log says of such events.
QStringList OneConnectionTest::heard()
{
    QStringList messages;
    if (device->fillBundle()) {
        const QJsonArray records = QJsonDocument::fromJson(device->json().toUtf8()).array();
        for (const auto &record : records) {
            messages.append(record.toObject().value("msg"_s).toString());
        }
    }
    return messages.filter("Message"_s);
}

void OneConnectionTest::fromTheStartOn()
{
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    bus.limit("max_connections_per_user"_s, 3); // two are of this process
    QVERIFY(device->start());
    QCOMPARE(connectionsOf(device->processId()), 1);
    announce();
    QCOMPARE(heard(), announced);
    QTRY_COMPARE(device->outputLines(warning), QStringList{warning});
    QCOMPARE(device->outputLines(ownLines), QStringList{begun});
}

void OneConnectionTest::switching_data()
{
    QTest::addColumn<QString>("limit");
    QTest::addColumn<int>("most");
    QTest::newRow("a user may have no more of them") << "max_connections_per_user"_s << 3;
    // For as long as the daemon waits; those that are in already may be more.
    QTest::newRow("the bus does not answer new ones") << "max_incomplete_connections"_s << 1;
}

void OneConnectionTest::switching()
{
    QFETCH(QString, limit);
    QFETCH(int, most);
    const auto connections = [this] { return connectionsOf(device->processId()); };
    QVERIFY(device->start());
    refuseMore(limit, most);
    QVERIFY(device->setProperty("logLocal"_s, true));
    QTRY_COMPARE(device->outputLines(warning).size(), 1);
    announce();
    QVERIFY(switchAnew());
    QTRY_COMPARE(device->outputLines(warning).size(), 2);
    QTRY_COMPARE(connections(), 1);
    announce();

    letIn();
    announce(); // over the first one still
    QVERIFY(switchAnew());
    QTRY_COMPARE(connections(), 2);
    announce();

    refuseMore(limit, most);
    QVERIFY(switchAnew());
    QTRY_COMPARE(device->outputLines(warning).size(), 3);
    QTRY_COMPARE(connections(), 1);
    announce();
    QCOMPARE(heard(), announced);
    QCOMPARE(device->outputLines(ownLines),
             (QStringList{begun, ended, begun, ended, begun, ended, begun}));
}

QTEST_GUILESS_MAIN(OneConnectionTest)
#include "tst_oneconnection.moc"

// SPDX-License-Identifier: Apache-2.0
//
// qtpeer ADDRESS EVENTS [FOLDER]: a receiver of status changes on QtDBus that only counts them, or
// stores them in plain C. qtpeer udp EVENTS PORT: their datagrams, sent by a QUdpSocket.
#include "stream.h"

#include <QtDBus>
#include <QtNetwork>

class Receiver : public QObject, protected QDBusContext
{
    Q_OBJECT
public Q_SLOTS:
    void change(int id, const QDBusVariant &values)
    {
        if (received++ == 0) {
            start();
        }
        if (writer.file > 0) {
            QVariantList all;
            values.variant().value<QDBusArgument>() >> all;
            const Event event{all.value(0).toBool(), all.value(1).toInt(), all.value(2).toDouble(),
                              makeText(all.value(3).toString().toUtf8().constData())};
            const Text path = makeText(message().path().toUtf8().constData());
            store(id, &path, &event);
        }
        if (received == events) {
            finishReceiver();
            QCoreApplication::quit();
        }
    }
};

static void sendDatagrams(int count, quint16 port)
{
    const QString text = QStringLiteral("Supply enabled %1, load %2 mA, level %3 V, unit %4");
    QUdpSocket socket;
    start();
    for (int n = 0; n < count; ++n) {
        const Event event = makeEvent(n);
        const QString message = text.arg(event.enabled)
                                    .arg(int(event.load))
                                    .arg(double(event.level))
                                    .arg(QString::fromLatin1(event.unit.text));
        QByteArray datagram = QDateTime::currentDateTime().toString(Qt::ISODate).toUtf8();
        datagram = "<28>1 " + datagram + "  bench - " + QByteArray::number(eventId);
        datagram += " - \xEF\xBB\xBF[/power/supply] " + message.toUtf8();
        if (socket.writeDatagram(datagram, QHostAddress::LocalHost, port) != datagram.size()) {
            fail("datagram");
        }
    }
    sayCost("cpu_us", count, count);
}

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList words = QCoreApplication::arguments();
    if (words.value(1) == QLatin1String("udp")) {
        sendDatagrams(words.value(2).toInt(), words.value(3).toUShort());
        return 0;
    }
    prepareReceiver(argc, argv);
    qRegisterMetaType<QDBusVariant>(); // or Qt 6 connects no slot that takes one
    Receiver receiver;
    QDBusConnection bus = QDBusConnection::connectToBus(words.value(1), QStringLiteral("peers"));
    if (!bus.connect({}, {}, QStringLiteral("com.tovel.status"), QStringLiteral("change"),
                     QStringLiteral("iv"), &receiver, SLOT(change(int, QDBusVariant)))
        || !bus.registerService(QStringLiteral("peers.Receiver"))) {
        fail("bus");
    }
    say("ready", 1);
    return QCoreApplication::exec();
}

#include "qtpeer.moc"

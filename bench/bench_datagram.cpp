// SPDX-License-Identifier: Apache-2.0
#include "stream.h"
#include "udp/udploginterface.h"

#include <QHostAddress>
#include <QUdpSocket>

#include <benchmark/benchmark.h>

namespace
{

//! Somewhere to send to. Nobody reads it: what no longer fits the kernel drops, after the sending.
class Receiver
{
public:
    Receiver()
    {
        if (!socket.bind(QHostAddress::LocalHost)) {
            qFatal("cannot bind on loopback");
        }
    }
    [[nodiscard]] quint16 port() const { return socket.localPort(); }

private:
    QUdpSocket socket;
};

//! One event as a datagram to loopback: header, text and sending.
void logEvent(benchmark::State &state)
{
    const Receiver receiver;
    UdpLogInterface log(&Stream::catalogue());
    log.setTarget(QStringLiteral("127.0.0.1"), receiver.port());
    const QList<QVariant> args = Stream::arguments(1);
    for (auto step : state) {
        (void)step;
        log.logEvent(Stream::eventId, args);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(logEvent);

//! What of that is the sending alone: a ready text of the same size through the same class.
void sendOnly(benchmark::State &state)
{
    const Receiver receiver;
    QUdpSocket socket;
    const QByteArray ready(150, 'x');
    for (auto step : state) {
        (void)step;
        socket.writeDatagram(ready, QHostAddress(QHostAddress::LocalHost), receiver.port());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(sendOnly);

} // namespace

// SPDX-License-Identifier: Apache-2.0
#include <QCoreApplication>
#include <QHostAddress>
#include <QNetworkDatagram>
#include <QUdpSocket>

#include <cstdio>

namespace
{

constexpr quint16 syslogPort = 514;

//! Writes what would be invisible or break the line as text.
QByteArray oneLine(QByteArray message)
{
    message.replace("\xEF\xBB\xBF", "<BOM>");
    message.replace('\n', "<LF>");
    return message + '\n';
}

//! Each line goes out at once: whoever reads the output waits for it.
void print(const QByteArray &line)
{
    (void)std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    (void)std::fflush(stdout);
}

} // namespace

//! demo-receiver: prints the datagrams that arrive at loopback port 514, a line each.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);

    QUdpSocket socket;
    QObject::connect(&socket, &QUdpSocket::readyRead, [&socket] {
        while (socket.hasPendingDatagrams()) {
            print(oneLine(socket.receiveDatagram().data()));
        }
    });
    if (!socket.bind(QHostAddress(QHostAddress::LocalHost), syslogPort)) {
        qCritical("cannot bind port %d: %s", int(syslogPort), qPrintable(socket.errorString()));
        return 1;
    }
    return QCoreApplication::exec();
}

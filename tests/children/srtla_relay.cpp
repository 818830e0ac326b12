// A stand-in for srtla_send: listens on UDP on the port of its first argument and relays datagrams both ways
// between whoever sends there and the host and port of its second and third. One sender at a time: answers go
// to the last. It doesn't bond anything.

#include <QCoreApplication>
#include <QHostInfo>
#include <QNetworkDatagram>
#include <QUdpSocket>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace {

int usage()
{
    std::fputs("usage: srtla_relay <local port> <host> <port>\n", stderr);
    return 2;
}

} // namespace

int main(int argc, char *argv[])
{
    std::signal(SIGTERM, [](int) { std::_Exit(0); });
    const QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 4)
        return usage();
    const quint16 localPort = arguments.at(1).toUShort();
    const quint16 port = arguments.at(3).toUShort();
    if (localPort == 0 || port == 0)
        return usage();

    const QHostInfo host = QHostInfo::fromName(arguments.at(2));
    if (host.addresses().isEmpty()) {
        std::fprintf(stderr, "srtla_relay: %s: %s\n", argv[2], qPrintable(host.errorString()));
        return 1;
    }
    const QHostAddress receiver = host.addresses().constFirst();

    QUdpSocket local;
    QUdpSocket link;
    if (!local.bind(QHostAddress::LocalHost, localPort, QUdpSocket::DontShareAddress) || !link.bind()) {
        std::fprintf(stderr, "srtla_relay: port %s: %s\n", argv[1], qPrintable(local.errorString()));
        return 1;
    }

    QHostAddress sender;
    quint16 senderPort = 0;
    QObject::connect(&local, &QUdpSocket::readyRead, &local, [&] {
        while (local.hasPendingDatagrams()) {
            const QNetworkDatagram datagram = local.receiveDatagram();
            sender = datagram.senderAddress();
            senderPort = static_cast<quint16>(datagram.senderPort());
            link.writeDatagram(datagram.data(), receiver, port);
        }
    });
    QObject::connect(&link, &QUdpSocket::readyRead, &link, [&] {
        while (link.hasPendingDatagrams()) {
            const QByteArray data = link.receiveDatagram().data();
            if (senderPort != 0)
                local.writeDatagram(data, sender, senderPort);
        }
    });
    std::fprintf(stderr, "srtla_relay: listening on port %d\n", int(localPort));
    return QCoreApplication::exec();
}

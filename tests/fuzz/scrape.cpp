#include "metrics/MetricsServer.h"

#include "tests/fuzz/Fuzz.h"

#include <QTcpSocket>

using namespace corvane;

// What any client of the scrape endpoint may send.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::application();
    static MetricsServer *const server = [] {
        auto *made = new MetricsServer(&fuzz::application());
        fuzz::expect(made->start([] { return QStringLiteral("corvane_up 1\n"); }, 0), "there is a port");
        return made;
    }();
    if (size == 0)
        return 0; // is waited for

    QTcpSocket client;
    client.connectToHost(QStringLiteral("127.0.0.1"), server->port());
    fuzz::expect(client.waitForConnected(), "it can be reached");
    client.write(fuzz::bytes(data, size));
    while (client.state() != QAbstractSocket::UnconnectedState)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const QByteArray answer = client.readAll();
    fuzz::expect(answer.startsWith("HTTP/1.1 200 OK\r\n"), "whatever was asked");
    return 0;
}

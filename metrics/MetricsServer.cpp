#include "metrics/MetricsServer.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <utility>

namespace corvane {

MetricsServer::MetricsServer(QObject *parent)
    : QObject(parent)
{
}

bool MetricsServer::start(std::function<QString()> provider, quint16 port)
{
    m_provider = std::move(provider);
    m_server = new QTcpServer(this);
    if (!m_server->listen(QHostAddress::LocalHost, port)) {
        m_server->deleteLater();
        m_server = nullptr;
        return false;
    }
    m_port = m_server->serverPort();
    connect(m_server, &QTcpServer::newConnection, this, &MetricsServer::accept);
    return true;
}

void MetricsServer::accept()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { respond(*socket); });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }
}

void MetricsServer::respond(QTcpSocket &socket) const
{
    socket.readAll();
    const QByteArray body = m_provider ? m_provider().toUtf8() : QByteArray();
    socket.write("HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4\r\nContent-Length: " +
                 QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
    socket.flush();
    socket.disconnectFromHost();
}

} // namespace corvane

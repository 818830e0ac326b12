#include "tests/support/HttpServer.h"

#include "tests/support/TestSupport.h"

#include <QFile>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

QByteArray certificateFile(const QString &name)
{
    QFile file(":/certificates/"_L1 + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QSslConfiguration configuration(HttpServer::Identity identity)
{
    QString name;
    switch (identity) {
    case HttpServer::Identity::Plain:
        break;
    case HttpServer::Identity::Trusted:
        name = u"trusted.pem"_s;
        break;
    case HttpServer::Identity::Expired:
        name = u"expired.pem"_s;
        break;
    case HttpServer::Identity::Elsewhere:
        name = u"elsewhere.pem"_s;
        break;
    case HttpServer::Identity::Stranger:
        name = u"stranger.pem"_s;
        break;
    }
    QSslConfiguration made = QSslConfiguration::defaultConfiguration();
    made.setLocalCertificate(QSslCertificate(certificateFile(name)));
    made.setPrivateKey(QSslKey(certificateFile(u"server.key"_s), QSsl::Rsa));
    return made;
}

/// Sends what is in the socket's own buffer and breaks the connection, without a word of TLS.
void cut(QSslSocket *socket)
{
    socket->flush();
    socket->abort();
}

} // namespace

HttpServer::HttpServer(Identity identity)
    : m_identity(identity)
{
    if (!listen(QHostAddress::LocalHost))
        qFatal("no loopback port: %s", qPrintable(errorString()));
}

QString HttpServer::url(const QString &path) const
{
    const auto scheme = m_identity == Identity::Plain ? "http"_L1 : "https"_L1;
    return u"%1://127.0.0.1:%2%3"_s.arg(scheme, QString::number(serverPort()), path);
}

void HttpServer::incomingConnection(qintptr descriptor)
{
    auto *socket = new QSslSocket(this);
    connect(socket, &QSslSocket::readyRead, this, [this, socket] { read(socket); });
    connect(socket, &QSslSocket::disconnected, socket, &QObject::deleteLater);
    connect(socket, &QObject::destroyed, this, [this, socket] { m_requests.remove(socket); });
    socket->setSocketDescriptor(descriptor);
    if (m_identity != Identity::Plain) {
        socket->setSslConfiguration(configuration(m_identity));
        socket->startServerEncryption();
    }
}

void HttpServer::read(QSslSocket *socket)
{
    QByteArray &request = m_requests[socket];
    request += socket->readAll();
    if (!request.contains("\r\n\r\n"))
        return;
    const QString path = QString::fromLatin1(request.split(' ').value(1));
    request.clear();
    m_asked << path;
    respond(socket, path);
}

void HttpServer::respond(QSslSocket *socket, const QString &path)
{
    HttpAnswer answer;
    answer.status = 404;
    answer = m_answers.value(path, answer);

    QByteArray head = "HTTP/1.1 " + QByteArray::number(answer.status) + " Answer\r\nConnection: close\r\n" +
                      "Content-Length: " +
                      QByteArray::number(answer.announced < 0 ? answer.body.size() : answer.announced) +
                      "\r\n";
    if (!answer.location.isEmpty())
        head += "Location: " + answer.location.toUtf8() + "\r\n";
    socket->write(head + "\r\n");

    switch (answer.end) {
    case HttpAnswer::End::Orderly:
        socket->write(answer.body);
        socket->disconnectFromHost();
        break;
    case HttpAnswer::End::Cut:
        socket->write(answer.body);
        cut(socket);
        break;
    case HttpAnswer::End::Held:
        const qsizetype half = answer.body.size() / 2;
        socket->write(answer.body.first(half));
        socket->flush();
        m_held.append({socket, answer.body.sliced(half)});
        break;
    }
}

void HttpServer::release()
{
    const auto held = std::exchange(m_held, {});
    for (const auto &[socket, rest] : held) {
        if (socket) {
            socket->write(rest);
            socket->disconnectFromHost();
        }
    }
}

namespace {

/// True if a handshake with a server of this process succeeds.
bool tlsServes()
{
    const HttpServer server(HttpServer::Identity::Trusted);
    QSslSocket client;
    bool over = false;
    QObject::connect(&client, &QSslSocket::encrypted, [&over] { over = true; });
    QObject::connect(&client, &QSslSocket::errorOccurred, [&over] { over = true; });
    client.setPeerVerifyMode(QSslSocket::VerifyNone);
    client.connectToHostEncrypted(u"127.0.0.1"_s, server.serverPort());
    return waitUntil([&over] { return over; }) && client.isEncrypted();
}

} // namespace

QString tlsProblem()
{
    if (!QSslSocket::supportsSsl())
        return u"this Qt finds no TLS library"_s;
    if (testAuthority().isEmpty())
        return u"the certificates of the tests need openssl when they are built"_s;
    static const bool serves = tlsServes();
    if (!serves)
        return u"the TLS of this system can't be a server, as under Wine"_s;
    return {};
}

QByteArray testAuthority()
{
    return certificateFile(u"ca.pem"_s);
}

void trustTestAuthority()
{
    QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
    trusting.setCaCertificates(QSslCertificate::fromData(testAuthority()));
    QSslConfiguration::setDefaultConfiguration(trusting);
}

} // namespace corvane::test

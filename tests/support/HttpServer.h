#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QPointer>
#include <QSslCertificate>
#include <QString>
#include <QStringList>
#include <QTcpServer>

class QSslSocket;

namespace corvane::test {

/// What an HttpServer sends for one path.
struct HttpAnswer
{
    enum class End {
        Orderly, ///< the connection is closed as it should be
        Cut,     ///< it breaks off after the last byte of the body
        Held,    ///< the body stops halfway until HttpServer::release()
    };

    QByteArray body;
    int status = 200;
    QString location;      ///< where a redirect leads
    qint64 announced = -1; ///< bytes that the head promises, if other than the body's
    End end = End::Orderly;
};

/// A small web server on a loopback port of its own, in the event loop of this thread: plain, or over TLS
/// with one of the certificates that the build has made. A path that it doesn't know is a 404.
class HttpServer : public QTcpServer
{
    Q_OBJECT

public:
    /// What the server shows to prove who it is.
    enum class Identity {
        Plain,     ///< nothing: plain HTTP
        Trusted,   ///< a certificate by the authority of trustTestAuthority()
        Expired,   ///< the same, of yesterday
        Elsewhere, ///< the same, for another host
        Stranger,  ///< by an authority that nobody trusts
    };

    explicit HttpServer(Identity identity);

    void put(const QString &path, const HttpAnswer &answer) { m_answers.insert(path, answer); }
    [[nodiscard]] QString url(const QString &path) const;

    /// Paths that were asked for, in order.
    [[nodiscard]] const QStringList &asked() const { return m_asked; }

    /// Lets the answers go on that are held.
    void release();

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    void read(QSslSocket *socket);
    void respond(QSslSocket *socket, const QString &path);

    Identity m_identity;
    QHash<QString, HttpAnswer> m_answers;
    QStringList m_asked;
    QHash<QSslSocket *, QByteArray> m_requests;            ///< heads that have begun
    QList<QPair<QPointer<QSslSocket>, QByteArray>> m_held; ///< what is still to be sent
};

/// Why this build or this machine has no TLS for a test; empty if it has.
[[nodiscard]] QString tlsProblem();

/// That authority's certificate as a PEM text.
[[nodiscard]] QByteArray testAuthority();

/// From now on this process trusts the authority of the tests, and no other.
void trustTestAuthority();

} // namespace corvane::test

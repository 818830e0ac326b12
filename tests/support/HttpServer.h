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

/// Response of an HttpServer for one path.
struct HttpAnswer
{
    enum class End {
        Orderly, ///< the connection is closed as it should be
        Cut,     ///< it breaks off after the last byte of the body
        Held,    ///< the body stops halfway until HttpServer::release()
    };

    QByteArray body;
    int status = 200;
    QString location;      ///< target of a redirect
    qint64 announced = -1; ///< bytes that the head announces, if other than the body's
    End end = End::Orderly;
};

/// A small web server on a loopback port of its own, in the event loop of this thread: plain, or over TLS
/// with one of the certificates that the build has created. An unknown path is a 404.
class HttpServer : public QTcpServer
{
    Q_OBJECT

public:
    /// Identity that the server proves.
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

    /// Resumes the responses that are held.
    void release();

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    void read(QSslSocket *socket);
    void respond(QSslSocket *socket, const QString &path);

    Identity m_identity;
    QHash<QString, HttpAnswer> m_answers;
    QStringList m_asked;
    QHash<QSslSocket *, QByteArray> m_requests;            ///< heads begun so far
    QList<QPair<QPointer<QSslSocket>, QByteArray>> m_held; ///< bytes still to be sent
};

/// Reason why this build or this machine has no TLS for a test; empty if it has.
[[nodiscard]] QString tlsProblem();

/// That authority's certificate as a PEM text.
[[nodiscard]] QByteArray testAuthority();

/// From now on this process trusts the authority of the tests, and no other.
void trustTestAuthority();

} // namespace corvane::test

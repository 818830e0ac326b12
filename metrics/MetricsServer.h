#pragma once

#include <QObject>
#include <QString>

#include <functional>

class QTcpServer;
class QTcpSocket;

namespace corvane {

/// Scrape endpoint on 127.0.0.1: any bytes from a client are answered with one 200 and the provider's text,
/// and the connection is closed.
///
/// A deliberately minimal HTTP/1.1 responder in the Prometheus text format, version 0.0.4: no request is
/// parsed. It knows nothing of pipelines. Thread of the event loop; writes are buffered, so no client can
/// block it. It listens until its destructor.
class MetricsServer : public QObject
{
    Q_OBJECT

public:
    explicit MetricsServer(QObject *parent = nullptr);

    /// Listens on `port` (0: one that the system chooses) and returns whether that succeeded. `provider`
    /// forms the body of each response; an empty function gives an empty body.
    bool start(std::function<QString()> provider, quint16 port);

    /// The bound port; 0 until start() has succeeded.
    [[nodiscard]] quint16 port() const { return m_port; }

private:
    void accept();
    void respond(QTcpSocket &socket) const;

    QTcpServer *m_server = nullptr; ///< null when not listening
    std::function<QString()> m_provider;
    quint16 m_port = 0;
};

} // namespace corvane

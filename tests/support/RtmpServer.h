#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace corvane::test {

/// A real RTMP server on loopback: nginx with its rtmp module, own configuration, own port, recording on. It
/// runs from start() to stop() or to the end of this object.
class RtmpServer
{
public:
    RtmpServer();
    ~RtmpServer();

    /// Missing part of its installation; empty if it can be started.
    [[nodiscard]] static QString missing();

    /// True if the server accepts connections; if not, error() has the reason.
    bool start();

    /// Serves again at the port that it had, and records anew. Same result as start().
    bool startAgain();

    /// Ends the server and with it the recording, which is whole from then on.
    void stop();

    [[nodiscard]] QString url(const QString &streamName) const;       ///< address to publish to
    [[nodiscard]] QString recording(const QString &streamName) const; ///< FLV file of the received stream
    [[nodiscard]] QString error() const { return m_error; }

private:
    bool serve();

    QTemporaryDir m_directory;
    std::unique_ptr<QProcess> m_nginx;
    quint16 m_port = 0;
    QString m_error;
};

} // namespace corvane::test

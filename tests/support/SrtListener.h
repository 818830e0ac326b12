#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace corvane::test {

/// A real SRT receiver on loopback: srt-live-transmit as listener on a port of its own, recording the
/// received stream. It runs from start() to stop() or to the end of this object.
class SrtListener
{
public:
    /// Credentials that a caller needs. Empty: none.
    struct Demands
    {
        QString passphrase;
        QString streamId; ///< srt-live-transmit can't demand one: tests/children/srt_gate listens instead
    };

    SrtListener();
    ~SrtListener();

    bool start() { return start({}); }

    /// True if the port is open; if not, error() has the reason.
    bool start(const Demands &demands);

    /// Listens again on the port that it had, and records anew. Same result as start().
    bool startAgain();

    /// Ends the listener; the recording is whole from then on.
    void stop();

    /// Kills the listener, without notice to the sender.
    void kill();

    [[nodiscard]] quint16 port() const { return m_port; }
    [[nodiscard]] QString url() const; ///< "srt://127.0.0.1:PORT"
    [[nodiscard]] QString recording() const;
    [[nodiscard]] qint64 bytesRecorded() const; ///< so far
    QString said();                             ///< everything on its standard error so far
    [[nodiscard]] QString error() const { return m_error; }

private:
    bool listen(const Demands &demands);

    QTemporaryDir m_directory;
    std::unique_ptr<QProcess> m_process;
    quint16 m_port = 0;
    QString m_said;
    QString m_error;
};

/// True if the machine has the tools that start() needs for these demands.
[[nodiscard]] bool srtListenerAvailable(const SrtListener::Demands &demands = {});

/// A UDP port that is free at the moment.
[[nodiscard]] quint16 freeUdpPort();

/// True if a process of this machine has the UDP port. Doesn't touch it.
[[nodiscard]] bool udpPortTaken(quint16 port);

} // namespace corvane::test

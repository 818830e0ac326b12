#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace corvane::test {

/// A real SRT receiver on loopback: srt-live-transmit as listener on a port of its own, recording what comes.
/// It runs from start() to stop() or to the end of this object.
class SrtListener
{
public:
    /// What a caller has to bring. Empty: anyone is welcome.
    struct Demands
    {
        QString passphrase;
        QString streamId; ///< srt-live-transmit can't demand one: tests/children/srt_gate listens instead
    };

    SrtListener();
    ~SrtListener();

    bool start() { return start({}); }

    /// Answers whether the port is open; if not, error() says why.
    bool start(const Demands &demands);

    /// Ends the listener; the recording is whole from then on.
    void stop();

    /// Ends the listener at once and without a word to the sender.
    void kill();

    [[nodiscard]] quint16 port() const { return m_port; }
    [[nodiscard]] QString url() const; ///< "srt://127.0.0.1:PORT"
    [[nodiscard]] QString recording() const;
    [[nodiscard]] qint64 bytesRecorded() const; ///< so far
    QString said();                             ///< everything on its standard error so far
    [[nodiscard]] QString error() const { return m_error; }

private:
    QTemporaryDir m_directory;
    std::unique_ptr<QProcess> m_process;
    quint16 m_port = 0;
    QString m_said;
    QString m_error;
};

/// Whether the machine has what start() needs for these demands.
[[nodiscard]] bool srtListenerAvailable(const SrtListener::Demands &demands = {});

/// A UDP port that nobody has at the moment.
[[nodiscard]] quint16 freeUdpPort();

/// Whether somebody on this machine has the UDP port. Doesn't touch it.
[[nodiscard]] bool udpPortTaken(quint16 port);

} // namespace corvane::test

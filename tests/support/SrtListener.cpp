#include "tests/support/SrtListener.h"

#include "tests/support/ChildLife.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QUdpSocket>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

constexpr int stopTimeoutMs = 5000;

QString gate()
{
#ifdef CORVANE_SRT_GATE
    return QStringLiteral(CORVANE_SRT_GATE);
#else
    return {};
#endif
}

} // namespace

quint16 freeUdpPort()
{
    QUdpSocket socket;
    return socket.bind() ? socket.localPort() : 0;
}

bool udpPortTaken(quint16 port)
{
    // Looked up in the system's table: an attempt to bind the port would be in the way of the process that is
    // to have it.
    const QByteArray ending = ':' + QByteArray::number(port, 16).rightJustified(4, '0').toUpper();
    for (const QString &path : {u"/proc/net/udp"_s, u"/proc/net/udp6"_s}) {
        QFile table(path);
        if (!table.open(QIODevice::ReadOnly))
            continue;
        const QByteArrayList lines = table.readAll().split('\n');
        for (const QByteArray &line : lines) {
            if (line.simplified().split(' ').value(1).endsWith(ending))
                return true;
        }
    }
    return false;
}

bool srtListenerAvailable(const SrtListener::Demands &demands)
{
    return !(demands.streamId.isEmpty() ? machineTool(u"srt-live-transmit"_s) : gate()).isEmpty();
}

SrtListener::SrtListener() = default;

SrtListener::~SrtListener()
{
    stop();
}

bool SrtListener::start(const Demands &demands)
{
    if (!srtListenerAvailable(demands)) {
        m_error = u"no SRT listener is installed"_s;
        return false;
    }
    for (int attempt = 0; attempt < serverStartAttempts; ++attempt) {
        m_port = freeUdpPort();
        if (listen(demands))
            return true;
    }
    return false;
}

bool SrtListener::startAgain()
{
    return listen({});
}

bool SrtListener::listen(const Demands &demands)
{
    m_process = std::make_unique<QProcess>();
    endWithParent(*m_process);
    m_process->setStandardOutputFile(recording());
    if (demands.streamId.isEmpty()) {
        QString source = u"srt://:%1?mode=listener"_s.arg(m_port);
        if (!demands.passphrase.isEmpty())
            source += "&passphrase="_L1 + demands.passphrase + "&pbkeylen=16"_L1;
        m_process->start(machineTool(u"srt-live-transmit"_s), {source, u"file://con"_s});
    } else {
        m_process->start(gate(), {QString::number(m_port), demands.streamId, demands.passphrase});
    }
    const bool decided =
        waitUntil([&] { return udpPortTaken(m_port) || m_process->state() == QProcess::NotRunning; },
                  serverStartTimeoutMs);
    if (decided && m_process->state() == QProcess::Running)
        return true;
    m_error = said();
    kill();
    return false;
}

void SrtListener::stop()
{
    if (!m_process)
        return;
    m_process->terminate();
    if (!m_process->waitForFinished(stopTimeoutMs))
        kill();
    said();
    m_process.reset();
}

void SrtListener::kill()
{
    if (!m_process)
        return;
    m_process->kill();
    m_process->waitForFinished();
    said();
    m_process.reset();
}

QString SrtListener::url() const
{
    return u"srt://127.0.0.1:%1"_s.arg(m_port);
}

QString SrtListener::recording() const
{
    return m_directory.filePath(u"received.ts"_s);
}

qint64 SrtListener::bytesRecorded() const
{
    return QFileInfo(recording()).size();
}

QString SrtListener::said()
{
    if (m_process)
        m_said += QString::fromUtf8(m_process->readAllStandardError());
    return m_said;
}

} // namespace corvane::test

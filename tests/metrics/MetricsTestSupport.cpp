#include "tests/metrics/MetricsTestSupport.h"

#include "tests/support/ChildLife.h"
#include "tests/support/TestSupport.h"

#include <QHostAddress>

#include <algorithm>
#include <chrono>

namespace corvane::test {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

Client::Client(quint16 port)
{
    connect(this, &QTcpSocket::readyRead, this, [this] { m_received += readAll(); });
    connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    waitUntil([this] { return state() == ConnectedState || state() == UnconnectedState; });
}

bool Client::waitForEnd(int timeoutMs)
{
    const bool ended = waitUntil([this] { return state() == UnconnectedState; }, timeoutMs);
    m_received += readAll();
    return ended;
}

QByteArray ask(quint16 port, const QByteArray &request)
{
    Client client(port);
    client.write(request);
    return client.waitForEnd() ? client.received() : QByteArray();
}

QByteArray bodyOf(const QByteArray &response)
{
    const qsizetype blankLine = response.indexOf("\r\n\r\n");
    return blankLine < 0 ? QByteArray() : response.sliced(blankLine + 4);
}

LoopWatch::LoopWatch()
{
    connect(&m_timer, &QTimer::timeout, this,
            [this] { m_longestMs = std::max(m_longestMs, m_sinceTurn.restart()); });
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.start(5ms);
    m_sinceTurn.start();
}

qint64 LoopWatch::longestTurnMs() const
{
    return std::max(m_longestMs, m_sinceTurn.elapsed());
}

ToolRun runTool(const QString &program, const QStringList &arguments, const QByteArray &input)
{
    QProcess tool;
    endWithParent(tool);
    tool.setProcessChannelMode(QProcess::MergedChannels);
    tool.start(program, arguments);
    tool.write(input);
    tool.closeWriteChannel();
    const bool ended = waitUntil([&] { return tool.state() == QProcess::NotRunning; }, 60000);
    const bool orderly =
        ended && tool.exitStatus() == QProcess::NormalExit && tool.error() != QProcess::FailedToStart;
    return {tool.readAll(), orderly ? tool.exitCode() : -1};
}

QString metricsHeader()
{
    return u"# HELP corvane_pipeline_up Pipeline em execução (1) ou não (0)\n"
           "# TYPE corvane_pipeline_up gauge\n"_s;
}

} // namespace corvane::test

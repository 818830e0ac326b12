#include "tests/support/TestSupport.h"

#include "tests/support/Processes.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QRegularExpression>
#include <QTimer>

#include <algorithm>

namespace corvane::test {

using namespace Qt::StringLiterals;

QString fakeFfmpeg()
{
    return QStringLiteral(CORVANE_FAKE_FFMPEG);
}

QString fakeTransport()
{
    return QStringLiteral(CORVANE_FAKE_TRANSPORT);
}

QString srtlaRelay()
{
    return QStringLiteral(CORVANE_SRTLA_RELAY);
}

QString corvaneProgram()
{
    return QStringLiteral(CORVANE_PROGRAM);
}

QString stepText(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toPercentEncoding());
}

PipelineConfig fakeConfig(const QString &steps)
{
    PipelineConfig config;
    config.id = u"cafe0001"_s;
    config.name = u"Teste"_s;
    OutputConfig output;
    output.url = "fake:"_L1 + steps;
    config.outputs = {output};
    return config;
}

void setEachFigure(Pipeline &pipeline)
{
    auto &figures = const_cast<Telemetry &>(pipeline.telemetry());
    figures.rttMs = 41.5;
    figures.sendRate = 42.5;
    figures.linkCapacity = 43.5;
    figures.sndDrop = 44;
    figures.retrans = 45;
    figures.rcvLoss = 46;
    figures.fps = 47.5;
    figures.dropped = 48;
    figures.bitrateKbps = 49.5;
    figures.loadPercent = 50.5;
    figures.thermalState = 51;
}

Pipeline::State launchedState()
{
    return startsAtOnce() ? Pipeline::State::Running : Pipeline::State::Starting;
}

QString stateName(Pipeline::State state)
{
    switch (state) {
    case Pipeline::State::Stopped:
        return u"stopped"_s;
    case Pipeline::State::Starting:
        return u"starting"_s;
    case Pipeline::State::Running:
        return u"running"_s;
    case Pipeline::State::Failed:
        return u"failed"_s;
    }
    return u"?"_s;
}

Recorder::Recorder(const Pipeline &pipeline)
{
    connect(&pipeline, &Pipeline::stateChanged, this,
            [this](Pipeline::State state) { add("state "_L1 + stateName(state)); });
    connect(&pipeline, &Pipeline::logLine, this, [this](const QString &line) { add("log "_L1 + line); });
    connect(&pipeline, &Pipeline::statsChanged, this,
            [this](const QString &stats) { add("stats "_L1 + stats); });
    connect(&pipeline, &Pipeline::circuitOpen, this,
            [this](const QString &reason) { add("circuit "_L1 + reason); });
    connect(&pipeline, &Pipeline::telemetryChanged, this, [this] { add(u"telemetry"_s); });
    connect(&pipeline, &Pipeline::qualityChanged, this, [this](int level, const QString &name) {
        add(u"quality %1 %2"_s.arg(QString::number(level), name));
    });
}

QStringList Recorder::logLines() const
{
    QStringList lines;
    for (const QString &event : m_events) {
        if (event.startsWith("log "_L1))
            lines << event.sliced(4);
    }
    return lines;
}

qsizetype Recorder::count(const QString &event) const
{
    return m_events.count(event);
}

bool Recorder::containsPart(const QString &part) const
{
    return std::any_of(m_events.begin(), m_events.end(),
                       [&](const QString &event) { return event.contains(part); });
}

void Recorder::add(const QString &event)
{
    m_events << event;
    Q_EMIT added();
}

bool waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    // A repeating timer wakes the loop for conditions that no event of this process announces, such as a file
    // that a child writes.
    QTimer wake;
    wake.start(10);
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}

void passTimersOf(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

QStringList outline(const Recorder &recorder)
{
    static const QRegularExpression pid(uR"(\(pid \d+\))"_s);
    QStringList lines;
    for (const QString &event : recorder.events()) {
        if (event.startsWith("stats "_L1) || event == "telemetry"_L1)
            continue;
        if (event.startsWith("log ffmpeg -hide_banner "_L1))
            lines << u"log ffmpeg <arguments>"_s;
        else
            lines << QString(event).replace(pid, u"(pid <pid>)"_s);
    }
    return lines;
}

qint64 lastPid(const Recorder &recorder)
{
    static const QRegularExpression started(uR"(^ffmpeg rodando \(pid (\d+)\)$)"_s);
    qint64 pid = 0;
    for (const QString &line : recorder.logLines()) {
        if (const auto match = started.match(line); match.hasMatch())
            pid = match.capturedView(1).toLongLong();
    }
    return pid;
}

} // namespace corvane::test

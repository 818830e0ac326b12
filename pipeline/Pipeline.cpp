#include "pipeline/Pipeline.h"

#include "builder/CommandBuilder.h"
#include "engine/host/Capabilities.h"
#include "engine/host/ChildProcess.h"
#include "engine/host/Clock.h"
#include "ndi/FramePipe.h"
#include "ndi/NdiReceiver.h"
#include "ndi/PumpPacing.h"
#include "pipeline/SrtTransmit.h"
#include "pipeline/SrtlaLauncher.h"

#include <QTimer>

#include <chrono>
#include <exception>
#include <utility>

namespace corvane {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int quitTimeoutMs = 3000;
constexpr int ndiProbeTimeoutMs = 3000;
constexpr auto hangCheckInterval = 2000ms;
constexpr auto qualityTickInterval = 1000ms;
constexpr auto relaunchDelay = 200ms;

} // namespace

Pipeline::Pipeline(PipelineConfig config, QString ffmpegPath, bool ffmpegHasSrt, QObject *parent)
    : QObject(parent)
    , m_config(std::move(config))
    , m_ffmpegPath(std::move(ffmpegPath))
    , m_ffmpegHasSrt(ffmpegHasSrt)
{
    qRegisterMetaType<State>("corvane::Pipeline::State");
}

Pipeline::~Pipeline()
{
    stop();
}

bool Pipeline::isTransmitting() const
{
    return m_state == State::Starting || m_state == State::Running;
}

void Pipeline::start()
{
    if (isTransmitting())
        return;

    m_stopRequested = false;
    setState(State::Starting);
    m_lastError.clear();

    openNdiSource();
    try {
        m_ffmpegArgs = CommandBuilder::build(m_config, m_ffmpegHasSrt);
    } catch (const std::exception &error) {
        m_lastError = QString::fromUtf8(error.what());
        Q_EMIT logLine("ERRO: "_L1 + m_lastError);
        setState(State::Failed);
        return;
    }

    startTransport();
    launchFfmpeg();
}

void Pipeline::openNdiSource()
{
    SourceConfig &source = m_config.source;
    if (source.kind != SourceKind::Ndi || !ndiRuntimeAvailable() || source.uri.isEmpty())
        return;

    // The receiver of a run that ended by itself stays a child of this object until the destructor.
    m_ndi = new NdiReceiver(source.uri, this);
    connect(m_ndi, &NdiReceiver::logLine, this,
            [this](const QString &line) { Q_EMIT logLine("[ndi] "_L1 + line); });
    const NdiFrameInfo info = m_ndi->probe(ndiProbeTimeoutMs);
    if (!info.valid) {
        Q_EMIT logLine(u"[ndi] sem frame da fonte — verifique se a fonte NDI está ativa"_s);
        return;
    }

    source.width = info.width;
    source.height = info.height;
    source.fps = wholeFrameRate(info);
    m_ndiPipe = framePipePath(m_config.id);
    if (m_ndi->createPipe(m_ndiPipe)) {
        source.ndiPipePath = m_ndiPipe;
    } else {
        Q_EMIT logLine(u"[ndi] falha ao criar named pipe; sem ingest NDI nativo"_s);
        m_ndiPipe.clear();
    }
}

void Pipeline::startTransport()
{
    for (const OutputConfig &output : std::as_const(m_config.outputs)) {
        if (!output.enabled)
            continue;
        if (output.kind == OutputKind::Srt && !m_ffmpegHasSrt)
            startBridge(output, u"[srt] "_s);
        else if (output.kind == OutputKind::Srtla && !m_srtla)
            startLauncher(output);
    }
}

void Pipeline::startBridge(const OutputConfig &output, const QString &prefix)
{
    auto *bridge = new SrtTransmit(output, this);
    connect(bridge, &SrtTransmit::logLine, this,
            [this, prefix](const QString &line) { Q_EMIT logLine(prefix + line); });
    bridge->start();
    m_srtBridges.append(bridge);
}

void Pipeline::startLauncher(const OutputConfig &output)
{
    // One launcher at most. A restart without stop() finds the stopped one and makes no other, on purpose:
    // bonding comes back with the operator's stop and start.
    m_srtla = new SrtlaLauncher(output, this);
    connect(m_srtla, &SrtlaLauncher::logLine, this,
            [this](const QString &line) { Q_EMIT logLine("[srtla] "_L1 + line); });
    m_srtla->start();
    if (m_ffmpegHasSrt)
        return;

    OutputConfig hop = output;
    hop.kind = OutputKind::Srt;
    hop.url = u"srt://127.0.0.1:%1"_s.arg(output.bondPort());
    hop.passphrase.clear();
    startBridge(hop, u"[srtla-bridge] "_s);
}

void Pipeline::launchFfmpeg()
{
    // The process of a run that ended by itself stays a child of this object until the destructor. One that
    // stop() has killed may still be ending, which doesn't concern this run.
    const auto older = findChildren<QProcess *>(Qt::FindDirectChildrenOnly);
    for (QProcess *process : older)
        process->disconnect(this);

    m_process = new ChildProcess(this);
    m_process->setProgram(m_ffmpegPath);
    m_process->setArguments(m_ffmpegArgs);

    QProcess *ffmpeg = m_process;
    connect(ffmpeg, &QProcess::readyReadStandardError, this, [this, ffmpeg] { readStandardError(*ffmpeg); });
    connect(ffmpeg, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        Q_EMIT logLine(u"ffmpeg errorOccurred: %1"_s.arg(static_cast<int>(error)));
    });
    connect(ffmpeg, &QProcess::started, this, [this, ffmpeg] { onStarted(*ffmpeg); });
    connect(ffmpeg, &QProcess::finished, this, &Pipeline::onFinished);

    Q_EMIT logLine("ffmpeg "_L1 + m_ffmpegArgs.join(u' '));
    ffmpeg->start(QIODevice::ReadWrite);
    if (m_ndi && !m_ndiPipe.isEmpty())
        m_ndi->start(m_ndiPipe);
}

void Pipeline::onStarted(const QProcess &ffmpeg)
{
    setState(State::Running);
    m_startedAtMs = nowMs();
    m_lastProgressMs = m_startedAtMs;
    Q_EMIT logLine(u"ffmpeg rodando (pid %1)"_s.arg(ffmpeg.processId()));

    if (!m_hangTimer) {
        m_hangTimer = new QTimer(this);
        m_hangTimer->setTimerType(Qt::PreciseTimer);
        connect(m_hangTimer, &QTimer::timeout, this, &Pipeline::checkForHang);
    }
    m_hangTimer->start(hangCheckInterval);

    if (m_baseBitrateKbps == 0)
        m_baseBitrateKbps = m_config.encoder.bitrate;

    if (!m_qualityTimer) {
        m_qualityTimer = new QTimer(this);
        m_qualityTimer->setTimerType(Qt::PreciseTimer);
        connect(m_qualityTimer, &QTimer::timeout, this, &Pipeline::onQualityTick);
    }
    m_qualityTimer->start(qualityTickInterval);
}

void Pipeline::onFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    stopTimers();
    stopTransport();

    if (m_qualityRestartPending) {
        m_qualityRestartPending = false;
        Q_EMIT logLine(u"aplicando novo bitrate (degradação) — restart imediato"_s);
        // The state stays `Running`, so start() does nothing, on purpose: the operator's stop and start
        // applies the rate.
        QTimer::singleShot(relaunchDelay, Qt::PreciseTimer, this, [this] {
            if (!m_stopRequested)
                start();
        });
        return;
    }

    const bool crashed = exitStatus == QProcess::CrashExit;
    if (!crashed && exitCode == 0) {
        setState(State::Stopped);
        return;
    }

    m_lastError =
        u"ffmpeg saiu (code=%1, %2)"_s.arg(QString::number(exitCode), crashed ? u"crash"_s : u"erro"_s);
    Q_EMIT logLine("ERRO: "_L1 + m_lastError);
    setState(State::Failed);
    considerRestart();
}

void Pipeline::considerRestart()
{
    if (m_stopRequested || !m_config.autoRestart || !m_config.restart.enabled)
        return;

    const RestartDecision decision = m_gate.onFailure(m_config.restart, m_startedAtMs, nowMs());
    if (decision.circuitOpen) {
        const QString reason =
            u"circuit breaker ABERTO: %1 restarts em %2s — parando auto-restart (intervenção necessária)"_s
                .arg(decision.failuresInWindow)
                .arg(m_config.restart.windowSec);
        Q_EMIT logLine("FATAL: "_L1 + reason);
        Q_EMIT circuitOpen(reason);
        return;
    }

    Q_EMIT logLine(u"auto-restart em %1ms (tentativa %2 na janela)"_s.arg(decision.delayMs)
                       .arg(decision.failuresInWindow));
    QTimer::singleShot(std::chrono::milliseconds(decision.delayMs), Qt::PreciseTimer, this, [this] {
        if (m_state == State::Failed)
            start();
    });
}

void Pipeline::stop()
{
    m_stopRequested = true;
    m_gate.clear();
    stopTimers();

    if (QProcess *ffmpeg = std::exchange(m_process, nullptr)) {
        // Waiting runs this process's handlers, onFinished() among them. Their signals may lead to another
        // stop().
        if (ffmpeg->state() != QProcess::NotRunning) {
            ffmpeg->write("q", 1);
            if (!ffmpeg->waitForFinished(quitTimeoutMs))
                ffmpeg->kill();
        }
        ffmpeg->deleteLater();
    }

    stopTransport();
    if (m_srtla) {
        m_srtla->deleteLater();
        m_srtla = nullptr;
    }
    for (SrtTransmit *bridge : std::as_const(m_srtBridges))
        bridge->deleteLater();
    m_srtBridges.clear();
    if (m_ndi) {
        m_ndi->deleteLater();
        m_ndi = nullptr;
    }

    setState(State::Stopped);
}

void Pipeline::stopTransport()
{
    if (m_srtla)
        m_srtla->stop();
    const QList<SrtTransmit *> bridges =
        m_srtBridges; // a line of theirs may lead to stop(), which clears the list
    for (SrtTransmit *bridge : bridges)
        bridge->stop();
    if (m_ndi)
        m_ndi->stop();
}

void Pipeline::stopTimers()
{
    if (m_hangTimer)
        m_hangTimer->stop();
    if (m_qualityTimer)
        m_qualityTimer->stop();
}

void Pipeline::readStandardError(QProcess &ffmpeg)
{
    const QStringList parts = standardErrorLines(ffmpeg.readAllStandardError());
    for (const QString &part : parts) {
        if (isProgressLine(part)) {
            m_lastProgressMs = nowMs();
            m_telemetry.readProgress(part);
            Q_EMIT statsChanged(part.trimmed());
        } else {
            Q_EMIT logLine(part.trimmed());
        }
    }
}

void Pipeline::checkForHang()
{
    if (m_state != State::Running || !m_process)
        return;
    const auto elapsed = hangDuration(m_lastProgressMs, nowMs(), m_config.restart.hangTimeoutMs);
    if (!elapsed)
        return;

    Q_EMIT logLine(u"HANG detectado: ffmpeg sem progresso há %1ms — reiniciando"_s.arg(*elapsed));
    m_hangTimer->stop();
    // A hung process wouldn't read a "q".
    if (m_process && m_process->state() != QProcess::NotRunning)
        m_process->kill();
}

void Pipeline::onQualityTick()
{
    if (m_state != State::Running)
        return;
    m_telemetry.thermalState = thermalState();
    const int newLevel = m_ladder.evaluate(m_telemetry);
    Q_EMIT telemetryChanged();
    if (newLevel != m_appliedLevel)
        applyQuality(newLevel);
}

void Pipeline::applyQuality(int newLevel)
{
    const QString name = QString::fromLatin1(qualityLevel(newLevel).name);
    const int bitrate = bitrateAtLevel(newLevel, m_baseBitrateKbps);
    Q_EMIT logLine(u"DEGRADAÇÃO: nível %1 (%2) — bitrate %3→%4 kbps"_s.arg(
        QString::number(newLevel), name, QString::number(m_config.encoder.bitrate),
        QString::number(bitrate)));

    m_config.encoder.bitrate = bitrate;
    m_appliedLevel = newLevel;
    Q_EMIT qualityChanged(newLevel, name);

    // ffmpeg can't change its rate while it runs.
    m_qualityRestartPending = true;
    if (m_process && m_process->state() != QProcess::NotRunning)
        m_process->kill();
}

void Pipeline::setState(State state)
{
    if (m_state == state)
        return;
    m_state = state;
    Q_EMIT stateChanged(state);
}

} // namespace corvane

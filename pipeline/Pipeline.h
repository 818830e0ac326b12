#pragma once

#include "engine/model/PipelineConfig.h"
#include "pipeline/QualityLadder.h"
#include "pipeline/RestartGate.h"
#include "pipeline/Telemetry.h"

#include <QObject>
#include <QProcess>
#include <QStringList>

class QTimer;

namespace corvane {

class NdiReceiver;
class SrtTransmit;
class SrtlaLauncher;

/// One transmission at run time: owns the one ffmpeg child, decides whether the transmission counts as up,
/// and restarts it after a failure.
///
///      ┌───────────────────exit with code 0────────────────────┐
///      ▼                                                       │
///   Stopped ──start()──▶ Starting ──ffmpeg has started──▶ Running ──┐ exit after
///                         ▲    │                            │  ▲────┘ a quality step
///     start(), back-off   │    │ can't be built             │
///     over                │    ▼                            │
///                         Failed ◀──────any other exit──────┘
///
/// stop() leads to `Stopped` from every state. An ffmpeg that it has to kill exits later, and this turns
/// `Stopped` into `Failed`, without a restart.
///
/// Only ffmpeg is supervised. A start probes the NDI source and creates its pipe, then starts the transport
/// children, then ffmpeg, then the NDI pump; a stop ends ffmpeg, then the bonding launcher, the bridges and
/// the NDI receiver. Outputs have no state of their own. The record is a copy into which a run writes: the
/// NDI format, the reduced bit rate.
///
/// Thread of the event loop, which is blocked by stop(), the destructor and an exit of ffmpeg: for up to 3 s
/// until ffmpeg leaves (not after an exit), up to 2 s for each transport child, up to 3 s for each of the NDI
/// receiver's two threads. With an NDI runtime start() blocks for up to 3 s, for the source's first frame.
class Pipeline : public QObject
{
    Q_OBJECT

public:
    enum class State {
        Stopped = 0,  ///< nothing runs; also the state of a fresh object
        Starting = 1, ///< start() has run, ffmpeg hasn't reported started
        Running = 2,  ///< the system has created the ffmpeg process
        Failed = 3,   ///< the last run ended badly or could not be built
    };
    Q_ENUM(State)

    /// Copies and initialises; starts nothing. `ffmpegHasSrt`: this ffmpeg sends SRT by itself.
    Pipeline(PipelineConfig config, QString ffmpegPath, bool ffmpegHasSrt, QObject *parent = nullptr);
    ~Pipeline() override;

    /// Builds the command and launches ffmpeg. In `Starting` and `Running` it does nothing. A record that
    /// can't be built gives `Failed` without a retry. Returns in `Starting`, on Windows in `Running`: there
    /// the system creates the process within the call. An ffmpeg that can't be launched leaves the state
    /// `Starting` until stop().
    void start();

    /// Asks ffmpeg to leave with "q", waits for up to 3000 ms, then kills it; then stops the transport
    /// children and the NDI receiver. Clears the restart history. Safe in every state and safe to repeat.
    void stop();

    [[nodiscard]] const PipelineConfig &config() const { return m_config; }
    [[nodiscard]] State state() const { return m_state; }
    [[nodiscard]] const Telemetry &telemetry() const { return m_telemetry; }
    [[nodiscard]] int level() const { return m_ladder.level; } ///< quality degradation, 0 (full) to 4

    /// True in `Starting` and `Running`: the one test of what counts as on air.
    [[nodiscard]] bool isTransmitting() const;

Q_SIGNALS:
    void stateChanged(State s);
    void logLine(QString line);       ///< without a time stamp
    void statsChanged(QString stats); ///< one progress line of ffmpeg, trimmed
    void circuitOpen(QString reason); ///< no further restart comes by itself
    void telemetryChanged();          ///< once a second while `Running`
    void qualityChanged(int level, QString name);

private:
    void setState(State state);
    void openNdiSource();
    void startTransport();
    void startBridge(const OutputConfig &output, const QString &prefix);
    void startLauncher(const OutputConfig &output);
    void launchFfmpeg();
    void onStarted(const QProcess &ffmpeg);
    void onFinished(int exitCode, QProcess::ExitStatus exitStatus);
    void stopTimers();
    void stopTransport();
    void readStandardError(QProcess &ffmpeg);
    void checkForHang();
    void onQualityTick();
    void applyQuality(int newLevel);
    void considerRestart();

    PipelineConfig m_config;
    QString m_ffmpegPath;
    bool m_ffmpegHasSrt;
    QProcess *m_process = nullptr;     ///< ffmpeg of the last start; null from the beginning of stop() on
    SrtlaLauncher *m_srtla = nullptr;  ///< kept until stop(), stopped or not
    QList<SrtTransmit *> m_srtBridges; ///< all made since the last stop(), stopped ones included
    NdiReceiver *m_ndi = nullptr;      ///< of the last start; kept until stop(), stopped or not
    QString m_ndiPipe;                 ///< path of the pipe that the receiver writes to
    RestartGate m_gate;
    bool m_stopRequested = false;
    qint64 m_startedAtMs = 0;
    QTimer *m_hangTimer = nullptr;
    qint64 m_lastProgressMs = 0;
    Telemetry m_telemetry;
    QualityLadder m_ladder;
    QTimer *m_qualityTimer = nullptr;
    int m_baseBitrateKbps = 0;
    int m_appliedLevel = 0;
    bool m_qualityRestartPending = false;
    State m_state = State::Stopped;
    QString m_lastError;
    QStringList m_ffmpegArgs;
};

} // namespace corvane

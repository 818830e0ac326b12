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
/// and brings it back after a failure.
///
/// Only ffmpeg is supervised: transport children are started before it and stopped after it, as is the NDI
/// receiver, and nothing watches them. Outputs have no life of their own. The record is a copy; a run may
/// write into it. A start in `Starting` or `Running` is refused without a word. All on the thread of the
/// event loop; stop() and the destructor block it for up to 3 s while ffmpeg leaves, then for up to 2 s for
/// each transport child. With an NDI runtime, start() blocks it for up to 3 s while it looks for the source's
/// first frame.
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

    /// Builds the command and launches ffmpeg; returns before it is up. A record that can't be built gives
    /// `Failed` with no retry. An ffmpeg that can't be launched leaves the state `Starting` until stop().
    void start();

    /// Asks ffmpeg to leave with "q", waits for up to 3000 ms, then kills it; then stops the transport
    /// children and the NDI receiver. Forgets the restart history. Safe in every state and safe to repeat.
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
    QProcess *m_process = nullptr;
    SrtlaLauncher *m_srtla = nullptr;  ///< the one of this pipeline; stopped or not, until stop()
    QList<SrtTransmit *> m_srtBridges; ///< every one made since the last stop()
    NdiReceiver *m_ndi = nullptr;      ///< the one of the last start, stopped or not, until stop()
    QString m_ndiPipe;                 ///< path of the pipe that the receiver serves
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

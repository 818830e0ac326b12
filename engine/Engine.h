#pragma once

#include "engine/host/LocalPorts.h"
#include "pipeline/Pipeline.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

namespace corvane {

class MetricsServer;

/// The one object that the interface talks to: registry of pipelines, log text, results of the environment
/// probe.
///
/// A pipeline's record is never edited in place. Every edit copies it, changes the copy and puts a new,
/// stopped Pipeline in the old one's position, so that an edit ends a running transmission. An unknown id or
/// an index out of range ends an operation silently. Main thread. An operation that stops pipelines blocks
/// for as long as Pipeline::stop() of each, one after the other: up to 3 s for ffmpeg and up to 2 s for each
/// transport tool.
class Engine : public QObject
{
    Q_OBJECT

    Q_PROPERTY(QString ffmpegPath READ ffmpegPath NOTIFY environmentChanged)
    Q_PROPERTY(bool ffmpegHasNdi READ ffmpegHasNdi NOTIFY environmentChanged)
    Q_PROPERTY(bool srtAvailable READ srtAvailable NOTIFY environmentChanged)
    Q_PROPERTY(bool srtlaAvailable READ srtlaAvailable NOTIFY environmentChanged)
    Q_PROPERTY(QStringList availableEncoders READ availableEncoders NOTIFY environmentChanged)
    Q_PROPERTY(QVariantList pipelines READ pipelines NOTIFY pipelinesChanged)
    Q_PROPERTY(QString log READ log NOTIFY logChanged)
    Q_PROPERTY(bool ndiSupported READ ndiSupported CONSTANT)
    Q_PROPERTY(bool decklinkSupported READ decklinkSupported CONSTANT)

public:
    /// Does all its work at once: probes the tools, which blocks for up to about 10 s with an ffmpeg that
    /// hangs, restores the stored pipelines and opens the metrics endpoint. Starts no pipeline.
    ///
    /// @param whileProbing work for the time that the first ffmpeg takes to answer; called once at most
    explicit Engine(QObject *parent = nullptr, const std::function<void()> &whileProbing = {});

    [[nodiscard]] QString ffmpegPath() const { return m_ffmpegPath; }
    [[nodiscard]] bool ffmpegHasNdi() const { return m_ffmpegHasNdi; }
    [[nodiscard]] bool srtAvailable() const { return m_srtAvailable; }
    [[nodiscard]] bool srtlaAvailable() const { return m_srtlaAvailable; }
    [[nodiscard]] QStringList availableEncoders() const { return m_availableEncoders; }
    [[nodiscard]] QString log() const { return m_log; }
    [[nodiscard]] bool ndiSupported() const;
    [[nodiscard]] bool decklinkSupported() const;

    /// One map per pipeline, in order of creation, rebuilt at every call: "id", "name", "outputs",
    /// "state", "fps", "bitrate" (kbit/s), "dropped", "rtt" (ms), "sndDrop", "level".
    [[nodiscard]] QVariantList pipelines() const;

    Q_INVOKABLE void clearLog();

    /// Adds a stopped pipeline with default settings and answers its id. An empty name becomes "Stream N".
    Q_INVOKABLE QString addPipeline(const QString &name);
    Q_INVOKABLE void removePipeline(const QString &id);
    Q_INVOKABLE void startPipeline(const QString &id);
    Q_INVOKABLE void stopPipeline(const QString &id);
    Q_INVOKABLE void startAll();
    Q_INVOKABLE void stopAll();

    /// Keys as in applySourceMap() and applyEncoderMap(). An empty map replaces the pipeline too.
    Q_INVOKABLE void configureSource(const QString &id, const QVariantMap &m);
    Q_INVOKABLE void configureEncoder(const QString &id, const QVariantMap &m);

    /// Outputs go to the end of the list. SRT outputs get a local port, bonded ones two.
    Q_INVOKABLE void addRtmpOutput(const QString &id, const QString &url);
    Q_INVOKABLE void addSrtOutput(const QString &id, const QString &url, int latencyMs,
                                  const QString &passphrase);
    Q_INVOKABLE void addSrtlaOutput(const QString &id, const QString &receiverHost, int receiverPort);
    Q_INVOKABLE void clearOutputs(const QString &id);
    Q_INVOKABLE void removeOutput(const QString &id, int index);
    Q_INVOKABLE void setOutputEnabled(const QString &id, int index, bool enabled);

    /// One map per output, in list order: "index", "enabled", "kind", "url", "srtLatencyMs".
    Q_INVOKABLE QVariantList outputsView(const QString &id) const;

    /// As the functions of the same names in Advice.h.
    Q_INVOKABLE QVariantMap bitrateAdvice(int width, int height, int fps) const;
    Q_INVOKABLE QVariantMap srtParamAdvice(const QString &scenario) const;
    Q_INVOKABLE void renamePipeline(const QString &id, const QString &name);
    Q_INVOKABLE void addSrtOutputFull(const QString &id, const QString &url, int latencyMs,
                                      const QString &passphrase, const QString &streamId, int oheadbw,
                                      int maxbw);

    /// corvane::encoderAdvice() for the encoders that this machine's ffmpeg lists.
    Q_INVOKABLE QVariantMap encoderAdvice(int width, int height, int fps) const;

    /// The command line as one unquoted text, always in the form for an ffmpeg without SRT of its own. A
    /// record that can't be built gives "(inválido: …)"; an unknown id an empty text.
    Q_INVOKABLE QString previewCommand(const QString &id) const;

    /// Names found by a discovery, which adds one line to the log. Empty without a runtime for such devices.
    Q_INVOKABLE QStringList ndiSources(int timeoutMs = 1500);
    Q_INVOKABLE QStringList decklinkDevices();

    Q_INVOKABLE bool audioBridgeAvailable() const;

    /// "installed", "active", "channels", "sampleRate", "buffered": all five keys, always.
    Q_INVOKABLE QVariantMap audioBridgeStatus() const;

    /// True while some pipeline is `Starting` or `Running`.
    [[nodiscard]] bool anyPipelineTransmitting() const;

    /// A free local UDP port from 8900 to 9200; see corvane::allocateLocalPort().
    int allocateLocalPort();

    /// One scrape; see corvane::metricsText().
    [[nodiscard]] QString metricsText() const;

    void appendLog(const QString &line);

Q_SIGNALS:
    void environmentChanged();
    void pipelinesChanged();
    void logChanged();

private:
    using Edit = std::function<void(PipelineConfig &)>;

    void detectEnvironment(const std::function<void()> &whileProbing);
    void loadPipelines();
    void savePipelines() const;
    void startMetrics();
    void evaluateKeepAwake();

    [[nodiscard]] qsizetype indexOf(const QString &id) const; ///< -1 for an unknown id
    [[nodiscard]] Pipeline *find(const QString &id) const;    ///< null for an unknown id

    /// A configuring operation: `edit` on a copy of the record, replacement, wiring, notice.
    void reconfigure(const QString &id, const Edit &edit);
    void editOutput(const QString &id, int index,
                    const Edit &edit); ///< reconfigure(), for a valid index only
    Pipeline *replace(qsizetype index, PipelineConfig config);
    Pipeline *makePipeline(PipelineConfig config); ///< stopped, without connections
    void registryEdited();

    QString m_ffmpegPath;
    bool m_ffmpegHasNdi = false;
    bool m_srtAvailable = false;
    bool m_ffmpegHasSrt = false;
    bool m_srtlaAvailable = false;
    QStringList m_availableEncoders;
    QList<Pipeline *> m_pipelines; ///< in order of creation; children of this object
    QString m_log;
    int m_nextLocalPort = firstLocalPort;
    MetricsServer *m_metrics = nullptr;
    bool m_noSleepHeld = false;
};

} // namespace corvane

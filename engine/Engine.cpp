#include "engine/Engine.h"

#include "builder/CommandBuilder.h"
#include "engine/Advice.h"
#include "engine/LogText.h"
#include "engine/MetricsText.h"
#include "engine/PipelineStore.h"
#include "engine/host/Capabilities.h"
#include "engine/host/EnvironmentProbe.h"
#include "engine/host/KeepAwake.h"
#include "engine/host/ShutdownBlock.h"
#include "metrics/MetricsServer.h"

#include <QTime>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

constexpr quint16 metricsPort = 9105;

QString stateText(Pipeline::State state)
{
    switch (state) {
    case Pipeline::State::Starting:
        return u"starting"_s;
    case Pipeline::State::Running:
        return u"running"_s;
    case Pipeline::State::Failed:
        return u"failed"_s;
    case Pipeline::State::Stopped:
    default:
        return u"stopped"_s;
    }
}

/// Names found by a discovery, as the log shows them.
QString foundNames(const QStringList &names, const QString &none)
{
    return names.isEmpty() ? none : u"— "_s + names.join(", "_L1);
}

QString targetText(const OutputConfig &output)
{
    return output.kind == OutputKind::Srtla
               ? u"%1:%2"_s.arg(output.receiverHost, QString::number(output.receiverPort))
               : output.url;
}

/// Moments at which the Engine connects signals of a Pipeline. An object's origin decides which of them it
/// passes; a replacement passes two.
enum Moment : unsigned {
    Added = 1,     ///< created by addPipeline()
    Restored = 2,  ///< created from the settings
    Replacing = 4, ///< created by an edit, while the old object still runs
    Replaced = 8,  ///< the same object, once the old one has stopped
};

struct Connection
{
    unsigned moments; ///< of Moment
    void (*make)(Engine &engine, Pipeline &pipeline);
};

// The gaps are part of the design: after an edit a pipeline's figures reach the interface only when its state
// changes, and "[qualidade]" and "[circuit]" come only from a pipeline that hasn't been edited since it was
// added.
constexpr Connection connections[] = {
    {Added | Restored | Replacing,
     [](Engine &engine, Pipeline &pipeline) {
         QObject::connect(&pipeline, &Pipeline::stateChanged, &engine, &Engine::pipelinesChanged);
     }},
    {Replacing,
     [](Engine &engine, Pipeline &pipeline) {
         QObject::connect(&pipeline, &Pipeline::logLine, &engine, [](const QString &) {});
     }},
    {Added | Restored | Replaced,
     [](Engine &engine, Pipeline &pipeline) {
         QObject::connect(&pipeline, &Pipeline::logLine, &engine, &Engine::appendLog);
     }},
    {Added | Restored | Replaced,
     [](Engine &engine, Pipeline &pipeline) {
         QObject::connect(&pipeline, &Pipeline::statsChanged, &engine,
                          [&engine](const QString &stats) { engine.appendLog("[stats] "_L1 + stats); });
     }},
    {Added | Restored,
     [](Engine &engine, Pipeline &pipeline) {
         QObject::connect(&pipeline, &Pipeline::telemetryChanged, &engine, &Engine::pipelinesChanged);
     }},
    {Added,
     [](Engine &engine, Pipeline &pipeline) {
         QObject::connect(
             &pipeline, &Pipeline::qualityChanged, &engine, [&engine](int level, const QString &name) {
                 engine.appendLog(u"[qualidade] nível %1 (%2)"_s.arg(QString::number(level), name));
             });
     }},
    {Added,
     [](Engine &engine, Pipeline &pipeline) {
         QObject::connect(&pipeline, &Pipeline::circuitOpen, &engine,
                          [&engine](const QString &reason) { engine.appendLog("[circuit] "_L1 + reason); });
     }},
};

void wire(Engine &engine, Pipeline &pipeline, Moment moment)
{
    for (const Connection &connection : connections) {
        if (connection.moments & moment)
            connection.make(engine, pipeline);
    }
}

} // namespace

Engine::Engine(QObject *parent, const std::function<void()> &whileProbing)
    : QObject(parent)
{
    detectEnvironment(whileProbing);
    loadPipelines();
    startMetrics();
    connect(this, &Engine::pipelinesChanged, this, &Engine::evaluateKeepAwake);
}

// --- Host machine

void Engine::detectEnvironment(const std::function<void()> &whileProbing)
{
    const EnvironmentProbe found = EnvironmentProbe::run(whileProbing);
    m_ffmpegPath = found.ffmpegPath;
    m_ffmpegHasNdi = found.ffmpegHasNdi;
    m_srtAvailable = found.srtAvailable;
    m_ffmpegHasSrt = found.ffmpegHasSrt;
    m_srtlaAvailable = found.srtlaAvailable;
    m_availableEncoders = found.availableEncoders;
    appendLog(found.summary());
    Q_EMIT environmentChanged();
}

bool Engine::ndiSupported() const
{
    return ndiRuntimeAvailable();
}

bool Engine::decklinkSupported() const
{
    return decklinkRuntimeAvailable();
}

QStringList Engine::ndiSources(int timeoutMs)
{
    QStringList sources = ndiSourceScan(timeoutMs);
    appendLog(
        u"NDI discovery: %1 fonte(s) %2"_s.arg(QString::number(sources.size()), foundNames(sources, {})));
    return sources;
}

QStringList Engine::decklinkDevices()
{
    QStringList devices = decklinkDeviceScan();
    appendLog(u"DeckLink: %1 dispositivo(s) %2"_s.arg(QString::number(devices.size()),
                                                      foundNames(devices, u"(driver/placa ausente?)"_s)));
    return devices;
}

bool Engine::audioBridgeAvailable() const
{
    return false;
}

QVariantMap Engine::audioBridgeStatus() const
{
    // This build has no audio bridge; callers rely on the five keys.
    return {
        {u"installed"_s, audioBridgeAvailable()},
        {u"active"_s, false},
        {u"channels"_s, 0},
        {u"sampleRate"_s, 0},
        {u"buffered"_s, 0},
    };
}

int Engine::allocateLocalPort()
{
    const LocalPort found = corvane::allocateLocalPort(m_nextLocalPort);
    if (found.exhausted)
        appendLog(u"AVISO: nenhuma porta UDP local livre na faixa 8900-9200"_s);
    return found.port;
}

void Engine::startMetrics()
{
    m_metrics = new MetricsServer(this);
    if (m_metrics->start([this] { return metricsText(); }, metricsPort))
        appendLog(u"métricas Prometheus em http://127.0.0.1:%1/metrics"_s.arg(m_metrics->port()));
}

QString Engine::metricsText() const
{
    return corvane::metricsText(m_pipelines);
}

void Engine::evaluateKeepAwake()
{
    const bool transmitting = anyPipelineTransmitting();
    if (transmitting == m_noSleepHeld)
        return;

    m_noSleepHeld = transmitting;
    if (transmitting) {
        preventSleep();
        blockShutdown();
        appendLog(u"no-sleep ATIVO (transmitindo)"_s);
    } else {
        allowSleep();
        allowShutdown();
        appendLog(u"no-sleep liberado (ocioso)"_s);
    }
}

// --- Advice

QVariantMap Engine::bitrateAdvice(int width, int height, int fps) const
{
    return corvane::bitrateAdvice(width, height, fps);
}

QVariantMap Engine::srtParamAdvice(const QString &scenario) const
{
    return corvane::srtParamAdvice(scenario);
}

QVariantMap Engine::encoderAdvice(int width, int height, int fps) const
{
    return corvane::encoderAdvice(m_availableEncoders, width, height, fps);
}

// --- Log

void Engine::appendLog(const QString &line)
{
    appendLogLine(m_log, line, QTime::currentTime());
    Q_EMIT logChanged();
}

void Engine::clearLog()
{
    m_log.clear();
    Q_EMIT logChanged();
}

// --- Views

QVariantList Engine::pipelines() const
{
    QVariantList view;
    view.reserve(m_pipelines.size());
    for (const Pipeline *pipeline : m_pipelines) {
        const PipelineConfig &config = pipeline->config();
        const Telemetry &figures = pipeline->telemetry();
        view.append(QVariantMap{
            {u"id"_s, config.id},
            {u"name"_s, config.name},
            {u"outputs"_s, qint64(config.outputs.size())},
            {u"state"_s, stateText(pipeline->state())},
            {u"fps"_s, figures.fps},
            {u"bitrate"_s, figures.bitrateKbps},
            {u"dropped"_s, double(figures.dropped)},
            {u"rtt"_s, figures.rttMs},
            {u"sndDrop"_s, double(figures.sndDrop)},
            {u"level"_s, pipeline->level()},
        });
    }
    return view;
}

QVariantList Engine::outputsView(const QString &id) const
{
    QVariantList view;
    const Pipeline *pipeline = find(id);
    if (!pipeline)
        return view;
    const QList<OutputConfig> &outputs = pipeline->config().outputs;
    for (int index = 0; index < outputs.size(); ++index) {
        const OutputConfig &output = outputs.at(index);
        view.append(QVariantMap{
            {u"index"_s, index},
            {u"enabled"_s, output.enabled},
            {u"kind"_s, outputKindText(output.kind)},
            {u"url"_s, targetText(output)},
            {u"srtLatencyMs"_s, output.srtLatencyMs},
        });
    }
    return view;
}

QString Engine::previewCommand(const QString &id) const
{
    const Pipeline *pipeline = find(id);
    if (!pipeline)
        return {};
    try {
        return m_ffmpegPath + u' ' + CommandBuilder::build(pipeline->config(), false).join(u' ');
    } catch (const std::runtime_error &error) {
        return u"(inválido: %1)"_s.arg(QString::fromUtf8(error.what()));
    }
}

// --- Registry

qsizetype Engine::indexOf(const QString &id) const
{
    const auto found = std::find_if(m_pipelines.begin(), m_pipelines.end(),
                                    [&id](const Pipeline *pipeline) { return pipeline->config().id == id; });
    return found == m_pipelines.end() ? -1 : found - m_pipelines.begin();
}

Pipeline *Engine::find(const QString &id) const
{
    return m_pipelines.value(indexOf(id), nullptr);
}

bool Engine::anyPipelineTransmitting() const
{
    return std::any_of(m_pipelines.begin(), m_pipelines.end(),
                       [](const Pipeline *pipeline) { return pipeline->isTransmitting(); });
}

Pipeline *Engine::makePipeline(PipelineConfig config)
{
    return new Pipeline(std::move(config), m_ffmpegPath, m_ffmpegHasSrt, this);
}

void Engine::registryEdited()
{
    Q_EMIT pipelinesChanged();
    savePipelines();
}

void Engine::loadPipelines()
{
    const QList<PipelineConfig> stored = PipelineStore::load();
    for (const PipelineConfig &config : stored) {
        Pipeline *pipeline = makePipeline(config);
        wire(*this, *pipeline, Restored);
        m_pipelines.append(pipeline);
    }
    Q_EMIT pipelinesChanged();
}

void Engine::savePipelines() const
{
    QList<PipelineConfig> configs;
    configs.reserve(m_pipelines.size());
    for (const Pipeline *pipeline : m_pipelines)
        configs.append(pipeline->config());
    PipelineStore::save(configs);
}

QString Engine::addPipeline(const QString &name)
{
    PipelineConfig config;
    config.id = newPipelineId();
    config.name = pipelineName(name, m_pipelines.size());

    Pipeline *pipeline = makePipeline(config);
    wire(*this, *pipeline, Added);
    m_pipelines.append(pipeline);
    registryEdited();
    return config.id;
}

Pipeline *Engine::replace(qsizetype index, PipelineConfig config)
{
    Pipeline *replacement = makePipeline(std::move(config));
    wire(*this, *replacement, Replacing);
    Pipeline *old = std::exchange(m_pipelines[index], replacement);
    old->stop();
    old->deleteLater(); // its connections last until then
    return replacement;
}

void Engine::reconfigure(const QString &id, const Edit &edit)
{
    const qsizetype index = indexOf(id);
    if (index < 0)
        return;
    PipelineConfig config = m_pipelines.at(index)->config();
    edit(config);
    wire(*this, *replace(index, std::move(config)), Replaced);
    registryEdited();
}

void Engine::removePipeline(const QString &id)
{
    Pipeline *pipeline = find(id);
    if (!pipeline)
        return;
    pipeline->stop();
    m_pipelines.removeOne(pipeline);
    pipeline->deleteLater();
    registryEdited();
}

void Engine::startPipeline(const QString &id)
{
    if (Pipeline *pipeline = find(id))
        pipeline->start();
}

void Engine::stopPipeline(const QString &id)
{
    if (Pipeline *pipeline = find(id))
        pipeline->stop();
}

void Engine::startAll()
{
    const QList<Pipeline *> all = m_pipelines;
    for (Pipeline *pipeline : all)
        pipeline->start();
}

void Engine::stopAll()
{
    const QList<Pipeline *> all = m_pipelines;
    for (Pipeline *pipeline : all)
        pipeline->stop();
}

void Engine::renamePipeline(const QString &id, const QString &name)
{
    reconfigure(id, [&](PipelineConfig &config) { config.name = name; });
}

void Engine::configureSource(const QString &id, const QVariantMap &m)
{
    reconfigure(id, [&](PipelineConfig &config) { applySourceMap(config.source, m); });
}

void Engine::configureEncoder(const QString &id, const QVariantMap &m)
{
    reconfigure(id, [&](PipelineConfig &config) { applyEncoderMap(config.encoder, m); });
}

// --- Outputs

void Engine::addRtmpOutput(const QString &id, const QString &url)
{
    reconfigure(id, [&](PipelineConfig &config) {
        OutputConfig output;
        output.kind = OutputKind::Rtmp;
        output.url = url;
        config.outputs.append(output);
    });
}

void Engine::addSrtOutput(const QString &id, const QString &url, int latencyMs, const QString &passphrase)
{
    const OutputConfig defaults;
    addSrtOutputFull(id, url, latencyMs, passphrase, defaults.streamId, defaults.oheadbw, defaults.maxbw);
}

void Engine::addSrtOutputFull(const QString &id, const QString &url, int latencyMs, const QString &passphrase,
                              const QString &streamId, int oheadbw, int maxbw)
{
    reconfigure(id, [&](PipelineConfig &config) {
        OutputConfig output;
        output.kind = OutputKind::Srt;
        output.url = url;
        output.srtLatencyMs = latencyMs;
        output.passphrase = passphrase;
        output.streamId = streamId;
        output.oheadbw = oheadbw;
        output.maxbw = maxbw;
        output.localPort = allocateLocalPort();
        config.outputs.append(output);
    });
}

void Engine::addSrtlaOutput(const QString &id, const QString &receiverHost, int receiverPort)
{
    reconfigure(id, [&](PipelineConfig &config) {
        OutputConfig output;
        output.kind = OutputKind::Srtla;
        output.receiverHost = receiverHost;
        output.receiverPort = receiverPort;
        output.localPort = allocateLocalPort();
        output.localPort2 = allocateLocalPort();
        config.outputs.append(output);
    });
}

void Engine::clearOutputs(const QString &id)
{
    reconfigure(id, [](PipelineConfig &config) { config.outputs.clear(); });
}

void Engine::editOutput(const QString &id, int index, const Edit &edit)
{
    const Pipeline *pipeline = find(id);
    if (pipeline && index >= 0 && index < pipeline->config().outputs.size())
        reconfigure(id, edit);
}

void Engine::removeOutput(const QString &id, int index)
{
    editOutput(id, index, [&](PipelineConfig &config) { config.outputs.removeAt(index); });
}

void Engine::setOutputEnabled(const QString &id, int index, bool enabled)
{
    editOutput(id, index, [&](PipelineConfig &config) { config.outputs[index].enabled = enabled; });
}

} // namespace corvane

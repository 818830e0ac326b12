#include "engine/MetricsText.h"

#include "pipeline/Pipeline.h"

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

struct Sample
{
    QLatin1StringView name;
    double (*value)(const Pipeline &pipeline);
};

constexpr Sample samples[] = {
    {"corvane_pipeline_up"_L1,
     [](const Pipeline &p) { return p.state() == Pipeline::State::Running ? 1.0 : 0.0; }},
    {"corvane_fps"_L1, [](const Pipeline &p) { return p.telemetry().fps; }},
    {"corvane_bitrate_kbps"_L1, [](const Pipeline &p) { return p.telemetry().bitrateKbps; }},
    {"corvane_dropped_frames"_L1, [](const Pipeline &p) { return double(p.telemetry().dropped); }},
    {"corvane_srt_rtt_ms"_L1, [](const Pipeline &p) { return p.telemetry().rttMs; }},
    {"corvane_srt_pkt_snd_drop"_L1, [](const Pipeline &p) { return double(p.telemetry().sndDrop); }},
    {"corvane_srt_pkt_retrans"_L1, [](const Pipeline &p) { return double(p.telemetry().retrans); }},
    {"corvane_degradation_level"_L1, [](const Pipeline &p) { return double(p.level()); }},
    {"corvane_thermal_state"_L1, [](const Pipeline &p) { return double(p.telemetry().thermalState); }},
};

} // namespace

QString metricsText(const QList<Pipeline *> &pipelines)
{
    QString text = u"# HELP corvane_pipeline_up Pipeline em execução (1) ou não (0)\n"
                   "# TYPE corvane_pipeline_up gauge\n"_s;
    for (const Pipeline *pipeline : pipelines) {
        for (const Sample &sample : samples)
            // One substitution for all three: an id from the settings may hold a "%".
            text += u"%1{pipeline=\"%2\"} %3\n"_s.arg(sample.name, pipeline->config().id,
                                                      u"%1"_s.arg(sample.value(*pipeline)));
    }
    return text;
}

} // namespace corvane

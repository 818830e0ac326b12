#include "engine/Advice.h"

#include "engine/model/Wrapping.h"

#include <algorithm>
#include <iterator>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

constexpr int pixels720p = 1280 * 720;
constexpr int pixels1080p = 1920 * 1080;
constexpr int highFrameRate = 31;

struct EncoderChoice
{
    QLatin1StringView encoder;
    QLatin1StringView hwLabel;
    QLatin1StringView presetHint;
};

// Best first. The last row is the default and isn't searched for.
constexpr EncoderChoice h264Choices[] = {
    {"h264_nvenc"_L1, "NVIDIA NVENC"_L1, "p4 (low-latency)"_L1},
    {"h264_videotoolbox"_L1, "Apple VideoToolbox"_L1, "realtime"_L1},
    {"h264_qsv"_L1, "Intel QSV"_L1, "4 (balanced)"_L1},
    {"h264_amf"_L1, "AMD AMF"_L1, "speed"_L1},
    {"libx264"_L1, "CPU (x264)"_L1, "veryfast"_L1},
};

constexpr QLatin1StringView hevcChoices[] = {"hevc_nvenc"_L1, "hevc_videotoolbox"_L1, "hevc_qsv"_L1,
                                             "hevc_amf"_L1, "libx265"_L1};

constexpr QLatin1StringView av1Choices[] = {"av1_nvenc"_L1, "av1_qsv"_L1, "libsvtav1"_L1};

struct SrtScenario
{
    QLatin1StringView scenario;
    int latency;
    int oheadbw;
    QLatin1StringView description;
};

constexpr SrtScenario srtScenarios[] = {
    {"studio"_L1, 120, 25, "Estudio/LAN fibra: latencia minima, banda sobrando"_L1},
    {"internet"_L1, 500, 25, "Internet fibra: latencia moderada pra absorver jitter"_L1},
    {"irl"_L1, 1500, 50, "IRL 4G/5G campo: latencia alta, overhead 50% pra links lossy"_L1},
    {"bonding"_L1, 2000, 50, "Bonding srtla: latencia 2s p/ agregacao de multiplos links"_L1},
    {"relay"_L1, 250, 25, "Relay servidor: recebe e repassa, latencia baixa entre servidores"_L1},
};

constexpr SrtScenario genericScenario{{}, 500, 25, "Padrao generico"_L1};

constexpr int srtBufferBytes = 0xB80000;

QVariantMap platformLimit(int maxBitrate, const QString &maxRes)
{
    return {{u"maxBitrate"_s, maxBitrate}, {u"maxRes"_s, maxRes}};
}

/// First of `choices` that is available; empty if none is.
template <std::size_t N>
QString firstAvailable(const QLatin1StringView (&choices)[N], const QStringList &availableEncoders)
{
    const auto found = std::find_if(std::begin(choices), std::end(choices),
                                    [&](QLatin1StringView name) { return availableEncoders.contains(name); });
    return found == std::end(choices) ? QString() : QString(*found);
}

} // namespace

QVariantMap bitrateAdvice(int width, int height, int fps)
{
    const int pixels = wrappingProduct(width, height);
    const int base = pixels <= pixels720p ? 2500 : pixels <= pixels1080p ? 5000 : 20000;
    const int recommended = static_cast<int>(base * (fps >= highFrameRate ? 1.5 : 1.0));
    const int audioBitrate = pixels > pixels1080p ? 256 : fps >= highFrameRate ? 192 : 128;
    return {
        {u"recommended"_s, recommended},
        {u"min"_s, static_cast<int>(recommended * 0.6)},
        {u"max"_s, static_cast<int>(recommended * 1.5)},
        {u"bufsize"_s, 2 * recommended},
        {u"keyint"_s, wrappingProduct(2, fps)},
        {u"audioBitrate"_s, audioBitrate},
        {u"platforms"_s, QVariantMap{{u"twitch"_s, platformLimit(6000, u"1080p60"_s)},
                                     {u"youtube"_s, platformLimit(51000, u"4K60"_s)},
                                     {u"facebook"_s, platformLimit(4000, u"1080p30"_s)}}},
    };
}

QVariantMap encoderAdvice(const QStringList &availableEncoders, int width, int height, int fps)
{
    const auto h264 =
        std::find_if(std::begin(h264Choices), std::prev(std::end(h264Choices)),
                     [&](const EncoderChoice &choice) { return availableEncoders.contains(choice.encoder); });
    const QString hevc = firstAvailable(hevcChoices, availableEncoders);
    const QString av1 = firstAvailable(av1Choices, availableEncoders);

    QVariantMap advice{
        {u"encoder"_s, QString(h264->encoder)},
        {u"hwLabel"_s, QString(h264->hwLabel)},
        {u"presetHint"_s, QString(h264->presetHint)},
        {u"hevcAvailable"_s, !hevc.isEmpty()},
        {u"av1Available"_s, !av1.isEmpty()},
        {u"bitrate"_s, bitrateAdvice(width, height, fps)},
        {u"zeroLatency"_s, true},
        {u"bFrames"_s, false},
        {u"tip"_s, u"Para live: zeroLatency=true, bFrames=false, CBR, GOP=2s. Para gravacao/VOD: considere "
                   "bFrames=true, preset mais lento."_s},
    };
    if (!hevc.isEmpty()) {
        advice.insert(u"hevcEncoder"_s, hevc);
        advice.insert(u"hevcNote"_s,
                      u"HEVC: ~30% menos bitrate para mesma qualidade. Ideal para 4K ou banda limitada."_s);
    }
    if (!av1.isEmpty()) {
        advice.insert(u"av1Encoder"_s, av1);
        advice.insert(u"av1Note"_s, u"AV1: ~50% menos bitrate que H.264. Requer GPU moderna ou CPU forte."_s);
    }
    return advice;
}

QVariantMap srtParamAdvice(const QString &scenario)
{
    const auto found = std::find_if(std::begin(srtScenarios), std::end(srtScenarios),
                                    [&](const SrtScenario &row) { return row.scenario == scenario; });
    const SrtScenario &row = found == std::end(srtScenarios) ? genericScenario : *found;
    return {
        {u"latency"_s, row.latency},
        {u"oheadbw"_s, row.oheadbw},
        {u"maxbw"_s, -1},
        {u"description"_s, QString(row.description)},
        {u"pbkeylen"_s, 0},
        {u"passphrase"_s, QString()},
        {u"streamid"_s, QString()},
        {u"rcvbuf"_s, srtBufferBytes},
        {u"sndbuf"_s, srtBufferBytes},
    };
}

} // namespace corvane

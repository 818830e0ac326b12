#include "engine/model/PipelineConfig.h"

#include <QUuid>

#include <algorithm>
#include <iterator>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

struct TextForm
{
    QLatin1StringView text;
    int value;
};

// The value of an unknown text is the row that is missing here: each caller names it.
constexpr TextForm sourceKinds[] = {
    {"ndi"_L1, SourceKind::Ndi},
    {"srt"_L1, SourceKind::Srt},
    {"decklink"_L1, SourceKind::Decklink},
    {"capture"_L1, SourceKind::Capture},
    {"testpattern"_L1, SourceKind::TestPattern},
    {"file"_L1, SourceKind::File},
};

constexpr TextForm outputKinds[] = {
    {"rtmp"_L1, OutputKind::Rtmp},         {"srt"_L1, OutputKind::Srt},   {"srtla"_L1, OutputKind::Srtla},
    {"decklink"_L1, OutputKind::Decklink}, {"file"_L1, OutputKind::File},
};

constexpr TextForm videoCodecs[] = {
    {"h264"_L1, VideoCodec::H264},
    {"hevc"_L1, VideoCodec::Hevc},
    {"av1"_L1, VideoCodec::Av1},
};

constexpr TextForm encoderFamilies[] = {
    {"auto"_L1, HwAccel::Auto}, {"x264"_L1, HwAccel::X264}, {"nvenc"_L1, HwAccel::Nvenc},
    {"qsv"_L1, HwAccel::Qsv},   {"amf"_L1, HwAccel::Amf},   {"videotoolbox"_L1, HwAccel::VideoToolbox},
};

constexpr TextForm encoderPresets[] = {
    {"auto"_L1, EncoderPreset::Auto},           {"ultrafast"_L1, EncoderPreset::Ultrafast},
    {"superfast"_L1, EncoderPreset::Superfast}, {"veryfast"_L1, EncoderPreset::Veryfast},
    {"fast"_L1, EncoderPreset::Fast},           {"medium"_L1, EncoderPreset::Medium},
    {"slow"_L1, EncoderPreset::Slow},
};

template <std::size_t N>
int valueOf(const TextForm (&table)[N], const QString &text, int unknown)
{
    const auto row = std::find_if(std::begin(table), std::end(table),
                                  [&](const TextForm &form) { return form.text == text; });
    return row == std::end(table) ? unknown : row->value;
}

template <typename Use>
void ifPresent(const QVariantMap &m, const char *key, Use use)
{
    if (const auto entry = m.constFind(QString::fromLatin1(key)); entry != m.constEnd())
        use(*entry);
}

} // namespace

QString newPipelineId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).first(8);
}

QString pipelineName(const QString &given, qsizetype existingPipelines)
{
    return given.isEmpty() ? u"Stream %1"_s.arg(existingPipelines + 1) : given;
}

QString outputKindText(int kind)
{
    const auto row = std::find_if(std::begin(outputKinds), std::end(outputKinds),
                                  [kind](const TextForm &form) { return form.value == kind; });
    return row == std::end(outputKinds) ? outputKinds[0].text : row->text;
}

void applySourceMap(SourceConfig &source, const QVariantMap &m)
{
    ifPresent(m, "kind", [&](const QVariant &v) {
        source.kind = valueOf(sourceKinds, v.toString(), SourceKind::TestPattern);
    });
    ifPresent(m, "uri", [&](const QVariant &v) { source.uri = v.toString(); });
    ifPresent(m, "width", [&](const QVariant &v) { source.width = v.toInt(); });
    ifPresent(m, "height", [&](const QVariant &v) { source.height = v.toInt(); });
    ifPresent(m, "fps", [&](const QVariant &v) { source.fps = v.toInt(); });
    ifPresent(m, "danteDevice", [&](const QVariant &v) {
        source.danteDevice = v.toString();
        source.danteEnabled = true;
    });
    ifPresent(m, "channelMap", [&](const QVariant &v) { source.channelMap = v.toString(); });
}

void applyEncoderMap(EncoderConfig &encoder, const QVariantMap &m)
{
    ifPresent(m, "codec", [&](const QVariant &v) {
        encoder.codec = valueOf(videoCodecs, v.toString(), VideoCodec::H264);
    });
    ifPresent(m, "bitrate", [&](const QVariant &v) { encoder.bitrate = v.toInt(); });
    ifPresent(m, "audioCodec", [&](const QVariant &v) { encoder.audioCodec = v.toString(); });
    ifPresent(m, "audioBitrate", [&](const QVariant &v) { encoder.audioBitrate = v.toInt(); });
    ifPresent(m, "zeroLatency", [&](const QVariant &v) { encoder.zeroLatency = v.toBool(); });
    ifPresent(m, "bFrames", [&](const QVariant &v) { encoder.bFrames = v.toBool(); });
    ifPresent(m, "keyintSec", [&](const QVariant &v) { encoder.keyintSec = v.toInt(); });
    ifPresent(m, "preset", [&](const QVariant &v) {
        encoder.preset = valueOf(encoderPresets, v.toString(), EncoderPreset::Auto);
    });
    ifPresent(m, "hw",
              [&](const QVariant &v) { encoder.hw = valueOf(encoderFamilies, v.toString(), HwAccel::Auto); });
}

} // namespace corvane

#pragma once

#include "engine/model/Wrapping.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

/// The records that describe one pipeline: what it reads, how it encodes and where it sends.
///
/// Plain values with public fields and without validation; their only function is a reading one. Enumerators
/// are plain integers, because stored settings may hold numbers outside the tables and those are kept as they
/// are. The numbers below are part of the stored format.
namespace corvane {

namespace SourceKind {
enum Kind : int { Ndi = 0, Srt = 1, Decklink = 2, Capture = 3, TestPattern = 4, File = 5 };
} // namespace SourceKind

namespace OutputKind {
enum Kind : int { Rtmp = 0, Srt = 1, Srtla = 2, Decklink = 3, File = 4 };
} // namespace OutputKind

namespace VideoCodec {
enum Codec : int { H264 = 0, Hevc = 1, Av1 = 2 };
} // namespace VideoCodec

/// Encoder family. `Auto` is the software encoder of the codec.
namespace HwAccel {
enum Family : int { Auto = 0, X264 = 1, Nvenc = 2, Qsv = 3, Amf = 4, VideoToolbox = 5 };
} // namespace HwAccel

namespace EncoderPreset {
enum Preset : int { Auto = 0, Ultrafast = 1, Superfast = 2, Veryfast = 3, Fast = 4, Medium = 5, Slow = 6 };
} // namespace EncoderPreset

/// `Lanczos` and `LanczosAlt` give the same filter.
namespace ScalerKind {
enum Kind : int { None = 0, Lanczos = 1, Cuda = 2, Placebo = 3, LanczosAlt = 4 };
} // namespace ScalerKind

struct SourceConfig
{
    int kind = SourceKind::TestPattern;
    QString uri;               ///< NDI source name, srt:// URL, device name or file path, by kind
    int width = 1920;          ///< pixels
    int height = 1080;         ///< pixels
    int fps = 30;              ///< whole frames per second
    bool danteEnabled = false; ///< audio from a Dante virtual sound device; nothing clears it again
    QString danteDevice;       ///< empty: the builder's default device
    QString channelMap;        ///< kept with the record, read by nothing
    QString ndiPipePath;       ///< local raw-video pipe; empty: ffmpeg reads NDI itself
};

struct ScalerConfig
{
    int kind = ScalerKind::None;
    int width = 0;  ///< pixels; 0 beside a non-zero height: keep the aspect ratio
    int height = 0; ///< pixels; 0 beside a non-zero width: keep the aspect ratio
};

struct EncoderConfig
{
    int codec = VideoCodec::H264;
    int hw = HwAccel::Auto;
    int preset = EncoderPreset::Auto;
    int bitrate = 6000; ///< video, kbit/s
    int keyintSec = 2;  ///< seconds between key frames
    bool zeroLatency = true;
    bool bFrames = false;
    QString audioCodec = QStringLiteral("aac"); ///< as ffmpeg names it
    int audioBitrate = 160;                     ///< kbit/s
};

struct OutputConfig
{
    int kind = OutputKind::Rtmp;
    QString url; ///< destination URL or path; not used by `Srtla`
    bool enabled = true;
    int srtLatencyMs = 120;
    QString passphrase; ///< empty: no encryption
    QString streamId;   ///< literal, not percent-encoded
    int oheadbw = 25;   ///< percent; shown and advised on, reaches no command line
    int maxbw = -1;     ///< bytes per second; shown and advised on, reaches no command line
    int groupMode = 0;  ///< 1 adds the connection-group parameters to the SRT URL
    QStringList extraSrtList;
    QString receiverHost;    ///< `Srtla`: host of the bonding receiver
    int receiverPort = 5000; ///< `Srtla`: port of the bonding receiver
    QStringList extraSrtlaList;
    int localPort = 0;  ///< local UDP port of the first hop; 0 until allocated
    int localPort2 = 0; ///< `Srtla`: local port of the second hop; below 1: `localPort` + 1

    /// Port at which the bonding launcher of a `Srtla` output listens.
    [[nodiscard]] int bondPort() const { return localPort2 >= 1 ? localPort2 : wrappingSum(localPort, 1); }
};

/// Limits of the automatic restart and of the hang watchdog.
struct RestartPolicy
{
    bool enabled = true; ///< a restart takes this and `PipelineConfig::autoRestart`
    int initialBackoffMs = 1000;
    int maxBackoffMs = 30000;
    int maxRestartsInWindow = 6; ///< restarts within the window before the circuit opens
    int windowSec = 120;
    int hangTimeoutMs = 8000; ///< time without progress after which ffmpeg counts as hung
};

struct PipelineConfig
{
    QString id;   ///< 8 lower-case hexadecimal digits; never changes
    QString name; ///< free text for the operator; may repeat
    SourceConfig source;
    ScalerConfig scaler;
    EncoderConfig encoder;
    QList<OutputConfig> outputs; ///< in the order of addition
    bool autoRestart = true;
    RestartPolicy restart;
};

/// A fresh pipeline id: the first 8 characters of a random UUID. Collisions are not looked for.
[[nodiscard]] QString newPipelineId();

/// `given`, or "Stream " and the number of existing pipelines plus 1 where it is empty.
[[nodiscard]] QString pipelineName(const QString &given, qsizetype existingPipelines);

/// Text form of an `OutputKind`; "rtmp" for a number outside the table.
[[nodiscard]] QString outputKindText(int kind);

/// Sets the fields whose keys are present in `m`: "kind", "uri", "width", "height", "fps", "danteDevice",
/// "channelMap". Other keys are ignored. Texts match case-sensitively and an unknown one selects the test
/// pattern; a text that is no number reads as 0; a fraction is rounded to the nearest whole number.
/// "danteDevice" also turns Dante audio on, whatever its text; no key turns it off.
void applySourceMap(SourceConfig &source, const QVariantMap &m);

/// Sets the fields whose keys are present in `m`: "codec", "bitrate", "audioCodec", "audioBitrate",
/// "zeroLatency", "bFrames", "keyintSec", "preset", "hw". Same rules; an unknown text selects enumerator 0.
void applyEncoderMap(EncoderConfig &encoder, const QVariantMap &m);

} // namespace corvane

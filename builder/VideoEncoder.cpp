#include "builder/CommandBuilder.h"

#include <QStringBuilder>

#include <array>

namespace corvane::CommandBuilder {

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype usualLength = 24; ///< holds every list of this file

/// Encoder names of one family, by codec.
struct EncoderNames
{
    int hw;
    QLatin1StringView h264;
    QLatin1StringView hevc;
    QLatin1StringView av1;
};

constexpr EncoderNames hardwareEncoders[] = {
    {HwAccel::Nvenc, "h264_nvenc"_L1, "hevc_nvenc"_L1, "av1_nvenc"_L1},
    {HwAccel::Qsv, "h264_qsv"_L1, "hevc_qsv"_L1, "av1_qsv"_L1},
    {HwAccel::Amf, "h264_amf"_L1, "hevc_amf"_L1, "av1_amf"_L1},
    {HwAccel::VideoToolbox, "h264_videotoolbox"_L1, "hevc_videotoolbox"_L1, "av1_videotoolbox"_L1},
};

constexpr EncoderNames softwareEncoders{HwAccel::X264, "libx264"_L1, "libx265"_L1, "libsvtav1"_L1};

QLatin1StringView encoderNameFor(int hw, int codec)
{
    const EncoderNames *names = &softwareEncoders;
    for (const EncoderNames &family : hardwareEncoders) {
        if (family.hw == hw)
            names = &family;
    }
    switch (codec) {
    case VideoCodec::H264:
        return names->h264;
    case VideoCodec::Av1:
        return names->av1;
    default:
        return names->hevc;
    }
}

/// One preset in each family's own words, for the families that take one.
///
/// The operator chooses in x264's vocabulary. On SVT-AV1 a higher number is faster; the QSV column rises with
/// the slowness of the name.
struct PresetRow
{
    QLatin1StringView x264;
    QLatin1StringView nvenc;
    int qsv;
    int svtAv1;
};

constexpr std::array<PresetRow, 7> presets{{
    {"veryfast"_L1, "p4"_L1, 4, 10}, // Auto, and any number not listed
    {"ultrafast"_L1, "p1"_L1, 1, 12},
    {"superfast"_L1, "p2"_L1, 2, 11},
    {"veryfast"_L1, "p3"_L1, 3, 10},
    {"fast"_L1, "p4"_L1, 4, 8},
    {"medium"_L1, "p5"_L1, 5, 6},
    {"slow"_L1, "p7"_L1, 7, 4},
}};

const PresetRow &presetRow(int preset)
{
    const bool listed = preset >= 0 && preset < static_cast<int>(presets.size());
    return presets[listed ? static_cast<std::size_t>(preset) : 0];
}

/// 32-bit product that wraps around, as records hold any number.
int product(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

QString kilobits(int rate)
{
    return QString::number(rate) % u'k';
}

// Each family adds its own flags to the list.

void addSoftware(QStringList &args, const EncoderConfig &encoder, const QString &rate)
{
    args << u"-preset"_s << presetRow(encoder.preset).x264;
    if (encoder.zeroLatency)
        args << u"-tune"_s << u"zerolatency"_s;
    // Strict constant bit rate comes from pairing this with "-maxrate".
    args << u"-minrate"_s << rate;
}

void addNvenc(QStringList &args, const EncoderConfig &encoder)
{
    args << u"-preset"_s << presetRow(encoder.preset).nvenc;
    if (encoder.zeroLatency)
        args << u"-tune"_s << u"ll"_s;
    args << u"-rc"_s << u"cbr"_s << u"-strict_gop"_s << u"1"_s;
    if (encoder.zeroLatency)
        args << u"-delay"_s << u"0"_s << u"-zerolatency"_s << u"1"_s;
}

void addQsv(QStringList &args, const EncoderConfig &encoder)
{
    args << u"-preset"_s << QString::number(presetRow(encoder.preset).qsv);
    if (encoder.zeroLatency)
        args << u"-low_delay"_s << u"1"_s << u"-look_ahead"_s << u"0"_s;
}

void addAmf(QStringList &args, const EncoderConfig &encoder)
{
    args << u"-rc"_s << u"cbr"_s;
    // The later "-bufsize" counts: 100 ms of buffer in place of two seconds.
    if (encoder.zeroLatency)
        args << u"-bufsize"_s << kilobits(encoder.bitrate / 10) << u"-quality"_s << u"speed"_s;
}

void addVideoToolbox(QStringList &args)
{
    args << u"-realtime"_s << u"true"_s << u"-allow_sw"_s << u"0"_s << u"-prio_speed"_s << u"true"_s;
}

void addSvtAv1(QStringList &args, const EncoderConfig &encoder)
{
    args << u"-preset"_s << QString::number(presetRow(encoder.preset).svtAv1);
    if (encoder.zeroLatency)
        args << u"-svtav1-params"_s << u"tune=0:enable-overlays=0:scd=0"_s;
}

void addFamily(QStringList &args, const EncoderConfig &encoder, const QString &rate)
{
    switch (encoder.hw) {
    case HwAccel::Nvenc:
        return addNvenc(args, encoder);
    case HwAccel::Qsv:
        return addQsv(args, encoder);
    case HwAccel::Amf:
        return addAmf(args, encoder);
    case HwAccel::VideoToolbox:
        return addVideoToolbox(args);
    default:
        return encoder.codec == VideoCodec::Av1 ? addSvtAv1(args, encoder) : addSoftware(args, encoder, rate);
    }
}

} // namespace

QStringList videoEncoderArgs(const EncoderConfig &encoder, int fps)
{
    const int gop = product(fps > 0 ? fps : 30, encoder.keyintSec);
    const QString rate = kilobits(encoder.bitrate);

    // Average and ceiling are the same number, and the buffer holds two seconds at that rate.
    QStringList args;
    args.reserve(usualLength);
    args << u"-c:v"_s << encoderNameFor(encoder.hw, encoder.codec);
    args << u"-b:v"_s << rate << u"-maxrate"_s << rate << u"-bufsize"_s
         << kilobits(product(2, encoder.bitrate));
    args << u"-g"_s << QString::number(gop) << u"-pix_fmt"_s << u"yuv420p"_s;
    if (!encoder.bFrames)
        args << u"-bf"_s << u"0"_s;
    addFamily(args, encoder, rate);
    return args;
}

} // namespace corvane::CommandBuilder

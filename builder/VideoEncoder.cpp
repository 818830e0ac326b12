#include "builder/CommandBuilder.h"

#include "engine/model/Wrapping.h"

#include <QStringBuilder>

#include <algorithm>
#include <array>

namespace corvane::CommandBuilder {

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype usualBlockLength = 24; ///< holds every list of this file

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

QString kilobits(int rate)
{
    return QString::number(rate) % u'k';
}

// Flags of each family, added behind the common block.

void addSvtAv1(QStringList &args, const EncoderConfig &encoder)
{
    args << u"-preset"_s << QString::number(presetRow(encoder.preset).svtAv1);
    if (encoder.zeroLatency)
        args << u"-svtav1-params"_s << u"tune=0:enable-overlays=0:scd=0"_s;
}

void addX264(QStringList &args, const EncoderConfig &encoder)
{
    args << u"-preset"_s << presetRow(encoder.preset).x264;
    if (encoder.zeroLatency)
        args << u"-tune"_s << u"zerolatency"_s;
    // Strict constant bit rate comes from pairing this with "-maxrate".
    args << u"-minrate"_s << kilobits(encoder.bitrate);
}

void addSoftware(QStringList &args, const EncoderConfig &encoder)
{
    if (encoder.codec == VideoCodec::Av1)
        addSvtAv1(args, encoder);
    else
        addX264(args, encoder);
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

void addVideoToolbox(QStringList &args, const EncoderConfig & /*encoder*/)
{
    args << u"-realtime"_s << u"true"_s << u"-allow_sw"_s << u"0"_s << u"-prio_speed"_s << u"true"_s;
}

/// One encoder family: its number, its encoder for each codec, its flags.
struct EncoderFamily
{
    int hw;
    QLatin1StringView h264;
    QLatin1StringView hevc;
    QLatin1StringView av1;
    void (*addFlags)(QStringList &args, const EncoderConfig &encoder);

    [[nodiscard]] constexpr QLatin1StringView encoderFor(int codec) const
    {
        switch (codec) {
        case VideoCodec::H264:
            return h264;
        case VideoCodec::Av1:
            return av1;
        default: // a number outside the table counts as HEVC
            return hevc;
        }
    }
};

constexpr EncoderFamily families[] = {
    {HwAccel::X264, "libx264"_L1, "libx265"_L1, "libsvtav1"_L1, addSoftware}, // Auto, any number not listed
    {HwAccel::Nvenc, "h264_nvenc"_L1, "hevc_nvenc"_L1, "av1_nvenc"_L1, addNvenc},
    {HwAccel::Qsv, "h264_qsv"_L1, "hevc_qsv"_L1, "av1_qsv"_L1, addQsv},
    {HwAccel::Amf, "h264_amf"_L1, "hevc_amf"_L1, "av1_amf"_L1, addAmf},
    {HwAccel::VideoToolbox, "h264_videotoolbox"_L1, "hevc_videotoolbox"_L1, "av1_videotoolbox"_L1,
     addVideoToolbox},
};

const EncoderFamily &familyOf(int hw)
{
    const auto *const found = std::find_if(std::begin(families), std::end(families),
                                           [hw](const EncoderFamily &family) { return family.hw == hw; });
    return found == std::end(families) ? families[0] : *found;
}

} // namespace

QStringList videoEncoderArgs(const EncoderConfig &encoder, int fps)
{
    const EncoderFamily &family = familyOf(encoder.hw);
    const int gop = wrappingProduct(fps > 0 ? fps : 30, encoder.keyintSec);
    const QString rate = kilobits(encoder.bitrate);

    QStringList args;
    args.reserve(usualBlockLength);
    args << u"-c:v"_s << family.encoderFor(encoder.codec);
    // Constant bit rate: "-maxrate" equals "-b:v" on purpose, and the buffer holds two seconds at that rate.
    args << u"-b:v"_s << rate << u"-maxrate"_s << rate << u"-bufsize"_s
         << kilobits(wrappingProduct(2, encoder.bitrate));
    args << u"-g"_s << QString::number(gop) << u"-pix_fmt"_s << u"yuv420p"_s;
    if (!encoder.bFrames)
        args << u"-bf"_s << u"0"_s;
    family.addFlags(args, encoder);
    return args;
}

} // namespace corvane::CommandBuilder

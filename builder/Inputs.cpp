#include "builder/CommandBuilder.h"

#include <QStringBuilder>

namespace corvane::CommandBuilder {

using namespace Qt::StringLiterals;

namespace {

/// Device of DirectShow, the capture system of Windows; the name is the same on every platform on purpose.
const auto defaultDanteDevice = "Dante Virtual Soundcard"_L1;

QStringList ndiInputArgs(const SourceConfig &source)
{
    if (source.ndiPipePath.isEmpty()) {
        return {u"-f"_s, u"libndi_newtek"_s, u"-flags"_s, u"low_delay"_s, u"-analyzeduration"_s, u"0"_s,
                u"-i"_s, source.uri};
    }
    return {u"-f"_s,
            u"rawvideo"_s,
            u"-pixel_format"_s,
            u"uyvy422"_s,
            u"-video_size"_s,
            u"%1x%2"_s.arg(source.width).arg(source.height),
            u"-framerate"_s,
            QString::number(source.fps),
            u"-i"_s,
            source.ndiPipePath};
}

} // namespace

QStringList inputArgs(const SourceConfig &source)
{
    switch (source.kind) {
    case SourceKind::Ndi:
        return ndiInputArgs(source);
    case SourceKind::Srt:
        return {u"-fflags"_s, u"nobuffer"_s, u"-i"_s, source.uri};
    case SourceKind::Decklink:
        return {u"-f"_s, u"decklink"_s, u"-i"_s, source.uri};
    case SourceKind::Capture:
        return {u"-f"_s, u"dshow"_s, u"-i"_s, "video="_L1 + source.uri};
    case SourceKind::File:
        return {u"-re"_s, u"-stream_loop"_s, u"-1"_s, u"-i"_s, source.uri};
    case SourceKind::TestPattern:
    default:
        return {u"-re"_s, u"-f"_s, u"lavfi"_s, u"-i"_s,
                "testsrc=size="_L1 % QString::number(source.width) % u'x' % QString::number(source.height) %
                    ":rate="_L1 % QString::number(source.fps)};
    }
}

QStringList audioInputArgs(const SourceConfig &source)
{
    if (source.danteEnabled) {
        const QString device =
            source.danteDevice.isEmpty() ? QString(defaultDanteDevice) : source.danteDevice;
        return {u"-f"_s, u"dshow"_s, u"-i"_s, "audio="_L1 + device};
    }
    if (source.kind == SourceKind::TestPattern) {
        return {u"-f"_s, u"lavfi"_s, u"-i"_s, u"anullsrc=channel_layout=stereo:sample_rate=48000"_s};
    }
    return {};
}

} // namespace corvane::CommandBuilder

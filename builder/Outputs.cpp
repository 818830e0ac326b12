#include "builder/CommandBuilder.h"

#include <QUrl>

namespace corvane::CommandBuilder {

using namespace Qt::StringLiterals;

namespace {

/// Loopback UDP target that srt-live-transmit reads; a datagram holds seven 188-byte transport packets.
QString localUdpTarget(const OutputConfig &output)
{
    return u"udp://127.0.0.1:%1?pkt_size=1316"_s.arg(output.localPort);
}

/// Target of ffmpeg for a stream that leaves by SRT, bonded or not.
QString transportTarget(const OutputConfig &output, bool ffmpegHasSrt)
{
    if (!ffmpegHasSrt)
        return localUdpTarget(output);
    if (output.kind == OutputKind::Srtla)
        return u"srt://127.0.0.1:%1?mode=caller"_s.arg(output.bondPort());
    return srtUrl(output);
}

bool leavesBySrt(const OutputConfig &output)
{
    return output.kind == OutputKind::Srt || output.kind == OutputKind::Srtla;
}

} // namespace

QStringList singleOutputArgs(const OutputConfig &output, bool ffmpegHasSrt)
{
    switch (output.kind) {
    case OutputKind::Rtmp:
        return {u"-f"_s, u"flv"_s, output.url};
    case OutputKind::Srt:
    case OutputKind::Srtla:
        return {u"-f"_s, u"mpegts"_s, transportTarget(output, ffmpegHasSrt)};
    case OutputKind::Decklink:
        return {u"-f"_s, u"decklink"_s, output.url};
    default:
        return {output.url};
    }
}

QStringList teeOutputArgs(const QList<OutputConfig> &outputs, bool ffmpegHasSrt)
{
    // The tee muxer reads the backslash, which keeps the colon inside the option. "flv" is the format of
    // everything that doesn't leave by SRT, on purpose also where singleOutputArgs() gives another or none.
    const auto slave =
        u"[f=%1:use_fifo=1:fifo_options=queue_size=120\\:drop_pkts_on_overflow=1:onfail=ignore]%2"_s;

    QStringList slaves;
    for (const OutputConfig &output : outputs) {
        if (!output.enabled)
            continue;
        slaves << (leavesBySrt(output) ? slave.arg(u"mpegts"_s, transportTarget(output, ffmpegHasSrt))
                                       : slave.arg(u"flv"_s, output.url));
    }
    return {u"-f"_s, u"tee"_s, slaves.join(u'|')};
}

QString srtUrl(const OutputConfig &output)
{
    // One number for two units, on purpose: srt-live-transmit reads milliseconds, ffmpeg microseconds.
    QStringList parameters{u"latency=%1"_s.arg(output.srtLatencyMs)};
    if (!output.passphrase.isEmpty())
        parameters << "passphrase="_L1 + output.passphrase << u"pbkeylen=16"_s;
    if (!output.streamId.isEmpty())
        parameters << "streamid="_L1 + QString::fromLatin1(QUrl::toPercentEncoding(output.streamId));
    if (output.groupMode == 1)
        parameters << u"mode=caller"_s << u"groupconnect=1"_s;

    const QChar separator = output.url.contains(u'?') ? u'&' : u'?';
    return output.url + separator + parameters.join(u'&');
}

} // namespace corvane::CommandBuilder

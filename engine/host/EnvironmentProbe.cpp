#include "engine/host/EnvironmentProbe.h"

#include "engine/host/Capabilities.h"
#include "engine/host/ChildProcess.h"
#include "engine/host/ToolResolver.h"

#include <algorithm>

namespace corvane {

using namespace Qt::StringLiterals;

namespace {

constexpr int answerTimeoutMs = 5000;

constexpr const char *knownEncoders[] = {
    "libx264", "libx265",  "h264_nvenc", "hevc_nvenc", "av1_nvenc",         "h264_qsv",          "hevc_qsv",
    "av1_qsv", "h264_amf", "hevc_amf",   "av1_amf",    "h264_videotoolbox", "hevc_videotoolbox", "libsvtav1",
};

/// Standard output of `ffmpeg -hide_banner <question>`; empty if ffmpeg doesn't finish in time. `meanwhile`
/// is called while it is at work. Its time doesn't count: an answer longer than a pipe holds waits for it.
QString ask(const QString &ffmpegPath, const QString &question, const std::function<void()> &meanwhile = {})
{
    ChildProcess ffmpeg; // its destructor ends an ffmpeg that hangs
    ffmpeg.start(ffmpegPath, {u"-hide_banner"_s, question}, QIODevice::ReadOnly);
    if (meanwhile)
        meanwhile();
    if (!ffmpeg.waitForFinished(answerTimeoutMs))
        return {};
    return QString::fromUtf8(ffmpeg.readAllStandardOutput());
}

QString yesNo(bool yes)
{
    return yes ? u"sim"_s : u"não"_s;
}

} // namespace

QStringList encodersIn(const QString &listing)
{
    QStringList found;
    for (const char *name : knownEncoders) {
        if (listing.contains(QLatin1String(name)))
            found.append(QLatin1String(name));
    }
    return found;
}

bool listsSrtProtocol(const QString &listing)
{
    const QStringList lines = listing.split(u'\n');
    return std::any_of(lines.begin(), lines.end(),
                       [](const QString &line) { return line.trimmed() == "srt"_L1; });
}

EnvironmentProbe EnvironmentProbe::run(const std::function<void()> &meanwhile)
{
    EnvironmentProbe found;
    found.ffmpegPath = resolveTool(u"ffmpeg"_s);
    if (!found.ffmpegPath.isEmpty()) {
        found.availableEncoders = encodersIn(ask(found.ffmpegPath, u"-encoders"_s, meanwhile));
        found.ffmpegHasSrt = listsSrtProtocol(ask(found.ffmpegPath, u"-protocols"_s));
    }
    found.ffmpegHasNdi = ndiRuntimeAvailable();
    found.srtAvailable = found.ffmpegHasSrt || !resolveTool(u"srt-live-transmit"_s).isEmpty();
    found.srtlaAvailable = !resolveTool(u"srtla_send"_s).isEmpty();
    return found;
}

QString EnvironmentProbe::summary() const
{
    return u"ffmpeg=%1 | NDI=%2 | SRT(srt-live-transmit)=%3 | srtla=%4 | encoders=%5"_s.arg(
        ffmpegPath.isEmpty() ? u"NÃO ENCONTRADO"_s : ffmpegPath, yesNo(ffmpegHasNdi), yesNo(srtAvailable),
        yesNo(srtlaAvailable), availableEncoders.join(", "_L1));
}

} // namespace corvane

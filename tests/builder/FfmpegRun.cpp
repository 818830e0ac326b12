#include "tests/builder/FfmpegRun.h"

#include "engine/host/ChildProcess.h"
#include "tests/support/TestSupport.h"

#include <QRegularExpression>
#include <QStandardPaths>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

constexpr int patienceMs = 60000;

} // namespace

std::optional<FfmpegTools> ffmpegOnPath()
{
    FfmpegTools tools{QStandardPaths::findExecutable(u"ffmpeg"_s),
                      QStandardPaths::findExecutable(u"ffprobe"_s)};
    if (tools.ffmpeg.isEmpty() || tools.ffprobe.isEmpty())
        return std::nullopt;
    return tools;
}

FfmpegRun runFfmpeg(const QString &ffmpeg, const QStringList &arguments)
{
    FfmpegRun run; // outlives the process, which may write until its last moment
    ChildProcess process;
    QObject::connect(&process, &QProcess::readyReadStandardError, &process,
                     [&] { run.said += process.readAllStandardError(); });
    process.start(ffmpeg, arguments);
    if (!process.waitForStarted()) {
        run.said = process.errorString().toUtf8();
        return run;
    }

    // One picture at least has to be on its way before the end, or the file is empty. B-frames and the
    // encoder's look-ahead hold the first ones back.
    static const QRegularExpression progress(u"frame= *[1-9][0-9]* fps="_s);
    const auto ended = [&] { return process.state() == QProcess::NotRunning; };
    const auto onAir = [&] { return progress.match(QString::fromUtf8(run.said)).hasMatch(); };
    waitUntil([&] { return onAir() || ended(); }, patienceMs);
    const bool running = !ended();
    process.write("q");
    const bool left = waitUntil(ended, patienceMs);
    run.onAir = running && onAir();
    run.clean = left && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    return run;
}

QStringList streamsOf(const QString &ffprobe, const QString &path)
{
    ChildProcess probe;
    probe.start(ffprobe, {u"-v"_s, u"error"_s, u"-show_entries"_s,
                          u"stream=codec_name,codec_type,width,height"_s, u"-of"_s, u"csv=p=0"_s, path});
    if (!probe.waitForFinished(patienceMs) || probe.exitStatus() != QProcess::NormalExit)
        return {u"ffprobe did not answer"_s};
    QStringList streams = QString::fromUtf8(probe.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    streams.removeDuplicates(); // a transport stream's come once by themselves and once in their program
    return streams;
}

} // namespace corvane::test

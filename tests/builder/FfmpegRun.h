#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

/// Runs of the machine's real ffmpeg with argument lists of the builder.
namespace corvane::test {

/// Paths of the two programs.
struct FfmpegTools
{
    QString ffmpeg;
    QString ffprobe;
};

/// Those on the search path; nothing unless both are there.
[[nodiscard]] std::optional<FfmpegTools> ffmpegOnPath();

/// One run from start to end.
struct FfmpegRun
{
    bool onAir = false; ///< progress showed a picture before the end
    bool clean = false; ///< it ended by itself on "q", with exit code 0
    QByteArray said;    ///< its standard error, or the reason why it doesn't start
};

/// Runs ffmpeg until its progress shows a picture, then ends it by "q"; the event loop runs meanwhile.
[[nodiscard]] FfmpegRun runFfmpeg(const QString &ffmpeg, const QStringList &arguments);

/// Streams of a file by ffprobe: one text each, "h264,video,320,180" or "aac,audio".
[[nodiscard]] QStringList streamsOf(const QString &ffprobe, const QString &path);

} // namespace corvane::test

#pragma once

#include <QString>
#include <QStringList>

namespace corvane {

/// What the outside tools of this machine can do, as a value. `run()` is the one way to fill it.
struct EnvironmentProbe
{
    QString ffmpegPath; ///< empty if there is none
    bool ffmpegHasNdi = false;
    bool ffmpegHasSrt = false; ///< ffmpeg itself speaks SRT
    bool srtAvailable = false; ///< ffmpeg speaks SRT, or srt-live-transmit is there
    bool srtlaAvailable = false;
    QStringList availableEncoders; ///< known encoders that this ffmpeg lists, in a fixed order

    /// Finds the tools and asks ffmpeg. Blocks the calling thread: two questions, each waited for up to
    /// 5000 ms. A question that isn't answered in time, or an ffmpeg that can't be started, counts as one
    /// that lists nothing. Needs an application object.
    [[nodiscard]] static EnvironmentProbe run();

    /// The findings in one line for the log.
    [[nodiscard]] QString summary() const;
};

/// The known encoders whose name stands anywhere in the output of `ffmpeg -encoders`. A name that is a prefix
/// of another encoder's name counts too.
[[nodiscard]] QStringList encodersIn(const QString &listing);

/// True if a line of the output of `ffmpeg -protocols` is "srt", apart from blanks around it.
[[nodiscard]] bool listsSrtProtocol(const QString &listing);

} // namespace corvane

#pragma once

#include <QString>
#include <QStringList>

#include <functional>

namespace corvane {

/// Outside tools of this machine and what they can do, as a value. run() fills it from the machine.
struct EnvironmentProbe
{
    QString ffmpegPath; ///< empty if there is none
    bool ffmpegHasNdi = false;
    bool ffmpegHasSrt = false; ///< ffmpeg itself speaks SRT
    bool srtAvailable = false; ///< ffmpeg speaks SRT, or srt-live-transmit is there
    bool srtlaAvailable = false;
    QStringList availableEncoders; ///< known encoders that this ffmpeg lists, in a fixed order

    /// Searches the tools and runs ffmpeg twice, for its encoders and its protocols. Waits for it for up to
    /// 5000 ms each time. An ffmpeg that doesn't finish in time or can't be started counts
    /// as one that lists nothing. Needs an application object.
    ///
    /// @param meanwhile work for the time that ffmpeg takes: called once, when the first has been started.
    ///     Without an ffmpeg it isn't called.
    [[nodiscard]] static EnvironmentProbe run(const std::function<void()> &meanwhile = {});

    /// The record as one line for the log.
    [[nodiscard]] QString summary() const;
};

/// Known encoders whose name stands anywhere in the output of `ffmpeg -encoders`. A name that is part of
/// another encoder's name counts too, on purpose.
[[nodiscard]] QStringList encodersIn(const QString &listing);

/// True if a line of the output of `ffmpeg -protocols` is "srt", apart from blanks around it.
[[nodiscard]] bool listsSrtProtocol(const QString &listing);

} // namespace corvane

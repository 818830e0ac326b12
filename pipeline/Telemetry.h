#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <optional>

namespace corvane {

/// Latest figures of one transmission. A plain value: all zero at first, never reset between runs.
///
/// The SRT figures and the load have no source yet and read 0.
struct Telemetry
{
    double rttMs = 0;
    double sendRate = 0;
    double linkCapacity = 0;
    qint32 sndDrop = 0;
    qint32 retrans = 0;
    qint32 rcvLoss = 0; ///< read by nothing
    double fps = 0;
    qint32 dropped = 0; ///< total since this ffmpeg started
    double bitrateKbps = 0;
    double loadPercent = 0;
    qint32 thermalState = 0;
    bool valid = false; ///< a figure has been read from a progress line

    /// Reads the figures of one progress line of ffmpeg ("fps=", "bitrate=…kbits/s", "drop="). A figure that
    /// the line lacks stays as it was; a number that doesn't convert reads as 0. Of several updates in one
    /// line the oldest counts.
    void readProgress(const QString &line);
};

/// Lines of one chunk of ffmpeg's standard error, without the empty ones. A chunk stands by itself: a line
/// that two of them share is two.
[[nodiscard]] QStringList standardErrorLines(const QByteArray &chunk);

/// True for a line that shows ffmpeg at work: it holds "frame=" or "bitrate=".
[[nodiscard]] bool isProgressLine(const QString &line);

/// Milliseconds since the last progress line if that is a hang, which takes more than `hangTimeoutMs`;
/// nothing otherwise. `lastProgressMs` and `now` in ms since the epoch.
[[nodiscard]] std::optional<qint64> hangDuration(qint64 lastProgressMs, qint64 now, qint64 hangTimeoutMs);

} // namespace corvane

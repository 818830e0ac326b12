#pragma once

#include <QString>

namespace corvane {

/// The latest figures of one transmission. A plain value: all zero at first, never reset between runs.
///
/// Nothing feeds the SRT figures or the load: they read 0 until a source for them exists.
struct Telemetry
{
    double rttMs = 0;
    double sendRate = 0;
    double linkCapacity = 0;
    qint32 sndDrop = 0;
    qint32 retrans = 0;
    qint32 rcvLoss = 0; ///< read by nothing
    double fps = 0;
    qint32 dropped = 0; ///< ffmpeg's running total
    double bitrateKbps = 0;
    double loadPercent = 0;
    qint32 thermalState = 0;
    bool valid = false; ///< a figure has been read from a progress line

    /// Takes over the figures that a line of ffmpeg's progress holds ("fps=", "bitrate=…kbits/s", "drop=");
    /// one that it doesn't hold stays as it was. A number that doesn't convert reads as 0.
    void readProgress(const QString &line);
};

/// True for a line that shows ffmpeg at work: it holds "frame=" or "bitrate=".
[[nodiscard]] bool isProgressLine(const QString &line);

} // namespace corvane

#pragma once

#include "ndi/NdiFrameInfo.h"

#include <QtGlobal>

/// The numbers by which the pump works. Pure: the caller brings the time.
namespace corvane {

/// Frames per second of the pump.
struct PumpRate
{
    double reported = 30.0; ///< what the source says, as the log shows it
    double paced = 30.0;    ///< what the pump keeps: a source at 1 or less isn't believed
};

[[nodiscard]] PumpRate pumpRate(const NdiFrameInfo &info);

/// Milliseconds from one frame to the next, truncated: the pump runs a little fast, and the reader takes up
/// the difference.
[[nodiscard]] int pumpIntervalMs(double pacedRate);

/// The source's rate as a whole number, rounded to the nearest: a pipeline's record knows no fractions.
[[nodiscard]] int wholeFrameRate(const NdiFrameInfo &info);

/// Bytes of a slate. A `frameStride` (bytes per line) below 1 is not known; what isn't known is taken from
/// the record, and after that from 1920 by 1080.
[[nodiscard]] int slateSize(const NdiFrameInfo &info, int frameStride);

/// Milliseconds to sleep at `nowMs` after the frame of `tickStartMs`, at most `intervalMs`; 0 or less: the
/// next one is due. Only the low 32 bits of the clock values count. A clock that is set back would otherwise
/// hold up the frames for as long as it was set back by.
[[nodiscard]] int pumpSleepMs(int intervalMs, qint64 tickStartMs, qint64 nowMs);

/// Tells a source that has stopped sending from one that is only slow.
struct FreezeRule
{
    bool frozen = false;

    /// For a frame that arrived at `lastFrameMs` and goes out at `tickStartMs`; true at the beginning of each
    /// freeze, once. Not to be asked about a slate.
    [[nodiscard]] bool begins(qint64 tickStartMs, qint64 lastFrameMs);
};

} // namespace corvane

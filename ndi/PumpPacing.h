#pragma once

#include "ndi/NdiFrameInfo.h"

#include <QtGlobal>

/// Rates, sizes and pauses of the pump. Pure: the caller brings the time.
namespace corvane {

/// Frames per second of the pump.
struct PumpRate
{
    double reported = 30.0; ///< rate that the source reports, for the log
    double paced = 30.0;    ///< rate of the pump: 30 for a source that reports 1 or less
};

[[nodiscard]] PumpRate pumpRate(const NdiFrameInfo &info);

/// Milliseconds from one frame to the next, truncated on purpose: the pump runs slightly fast, and the reader
/// absorbs the difference.
[[nodiscard]] int pumpIntervalMs(double pacedRate);

/// The source's rate rounded to the nearest whole number, as a pipeline's record holds no fractions.
[[nodiscard]] int wholeFrameRate(const NdiFrameInfo &info);

/// Bytes of a slate. `frameStride`: bytes per line; below 1 it is unknown, and the record's width is used
/// instead. A size that the record lacks is that of 1920 by 1080.
[[nodiscard]] int slateSize(const NdiFrameInfo &info, int frameStride);

/// Milliseconds to sleep at `nowMs` after the frame of `tickStartMs`, at most `intervalMs`; 0 or less if the
/// next one is due. Only the low 32 bits of the clock values count. Without the limit, a clock that is set
/// back would hold up the frames for as long as it was set back by.
[[nodiscard]] int pumpSleepMs(int intervalMs, qint64 tickStartMs, qint64 nowMs);

/// Distinguishes a source that has stopped sending from one that is slow.
struct FreezeRule
{
    bool frozen = false;

    /// True once at the beginning of each freeze, for a frame that arrived at `lastFrameMs` and goes out at
    /// `tickStartMs`. Not called for a slate.
    [[nodiscard]] bool begins(qint64 tickStartMs, qint64 lastFrameMs);
};

} // namespace corvane

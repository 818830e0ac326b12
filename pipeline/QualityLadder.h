#pragma once

#include <QString>

namespace corvane {

struct Telemetry;

/// One row of the quality table.
struct QualityLevel
{
    const char *name;
    double factor; ///< of the pipeline's base bit rate
    int maxFps;    ///< 0: no limit; read by nothing, on purpose
    int maxHeight; ///< 0: no limit; read by nothing, on purpose
};

inline constexpr int lowestQuality = 4;

/// Row of `level`, which is clamped to 0..4.
[[nodiscard]] const QualityLevel &qualityLevel(int level);

/// Video bit rate of `level` in kbit/s: the base's share, truncated, but at least 300.
[[nodiscard]] int bitrateAtLevel(int level, int baseBitrateKbps);

/// Hysteresis over one tick a second that lowers and raises the quality level: down after three bad ticks in
/// a row, up after ten good ones. Pure: figures in, level out.
struct QualityLadder
{
    double rttLimitMs = 800.0;
    double loadLimit = 88.0;
    qint32 badTicksDown = 3;
    qint32 goodTicksUp = 10;
    qint32 level = 0; ///< 0 (full) to 4
    qint32 badTicks = 0;
    qint32 goodTicks = 0;
    qint32 lastSndDrop = 0;
    qint32 lastDropped = 0;
    bool primed = false; ///< a tick has been evaluated

    /// Evaluates the figures of one tick and returns the level, which moves by one step at most.
    qint32 evaluate(const Telemetry &figures);

private:
    [[nodiscard]] bool isBad(const Telemetry &figures) const;
};

} // namespace corvane

#pragma once

#include <cstdint>

namespace corvane::air {

/// When a silent encoder counts as hung: after four seconds without a progress line, of a machine that ran
/// meanwhile. Pure: the caller brings the time, in milliseconds of a clock that doesn't jump.
struct HangRule
{
    static constexpr std::int64_t silenceMs = 4000;
    static constexpr int firstLines = 2;            ///< before them the program's own patience holds
    static constexpr std::int64_t stoppedMs = 1000; ///< a tick that is this late: the machine had stopped

    /// The encoder has printed a progress line.
    void onProgress(std::int64_t now)
    {
        ++lines;
        quietSince = now;
    }

    /// To be asked several times a second. True if the encoder has been silent for too long. Time for which
    /// nobody asked isn't counted: the asker itself was stopped.
    [[nodiscard]] bool isHungAt(std::int64_t now)
    {
        if (lastTick >= 0 && now - lastTick >= stoppedMs)
            quietSince += now - lastTick;
        lastTick = now;
        return lines >= firstLines && now - quietSince >= silenceMs;
    }

    int lines = 0;
    std::int64_t quietSince = 0;
    std::int64_t lastTick = -1; ///< -1: not asked yet
};

} // namespace corvane::air

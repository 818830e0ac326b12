#include "ndi/PumpPacing.h"

#include "engine/model/Wrapping.h"

#include <algorithm>
#include <cmath>

namespace corvane {

namespace {

constexpr double usualRate = 30.0;
constexpr qint64 freezeAfterMs = 1000;
constexpr int usualLineLength = 3840; // 1920 pixels of 2 bytes
constexpr int usualHeight = 1080;

double reportedRate(const NdiFrameInfo &info)
{
    return info.frameRateD == 0 ? usualRate : static_cast<double>(info.frameRateN) / info.frameRateD;
}

} // namespace

PumpRate pumpRate(const NdiFrameInfo &info)
{
    if (!info.valid)
        return {};
    const double rate = reportedRate(info);
    return {rate, rate > 1.0 ? rate : usualRate};
}

int pumpIntervalMs(double pacedRate)
{
    return static_cast<int>(1000.0 / pacedRate);
}

int wholeFrameRate(const NdiFrameInfo &info)
{
    return static_cast<int>(std::trunc(reportedRate(info) + 0.5));
}

int slateSize(const NdiFrameInfo &info, int frameStride)
{
    int lineLength = usualLineLength;
    if (frameStride >= 1)
        lineLength = frameStride;
    else if (info.width > 0)
        lineLength = wrappingProduct(2, info.width);
    return wrappingProduct(lineLength, info.height >= 1 ? info.height : usualHeight);
}

int pumpSleepMs(int intervalMs, qint64 tickStartMs, qint64 nowMs)
{
    const auto sleepMs = static_cast<int>(static_cast<quint32>(intervalMs) +
                                          static_cast<quint32>(tickStartMs) - static_cast<quint32>(nowMs));
    return std::min(sleepMs, intervalMs);
}

bool FreezeRule::begins(qint64 tickStartMs, qint64 lastFrameMs)
{
    const bool wasFrozen = frozen;
    frozen = tickStartMs - lastFrameMs > freezeAfterMs;
    return frozen && !wasFrozen;
}

} // namespace corvane

#include "pipeline/QualityLadder.h"

#include "pipeline/Telemetry.h"

#include <algorithm>

namespace corvane {

namespace {

constexpr QualityLevel levels[] = {
    {"full", 1.0, 0, 0},
    {"bitrate-75", 0.75, 0, 0},
    {"bitrate-50+fps30", 0.5, 30, 0},
    {"bitrate-35+720p", 0.35, 30, 720},
    {"bitrate-25+540p", 0.25, 24, 540},
};

constexpr int floorKbps = 300;

} // namespace

const QualityLevel &qualityLevel(int level)
{
    return levels[std::clamp(level, 0, lowestQuality)];
}

int bitrateAtLevel(int level, int baseBitrateKbps)
{
    return std::max(static_cast<int>(baseBitrateKbps * qualityLevel(level).factor), floorKbps);
}

bool QualityLadder::isBad(const Telemetry &figures) const
{
    // Only the encoder's drops wait for a first tick, on purpose: a total from before it doesn't count.
    return figures.sndDrop > lastSndDrop || (primed && figures.dropped > lastDropped) ||
           figures.rttMs > rttLimitMs || figures.loadPercent > loadLimit || figures.thermalState == 2 ||
           figures.thermalState == 3 ||
           (figures.linkCapacity > 0 && figures.sendRate > 0 &&
            figures.sendRate > figures.linkCapacity * 0.9);
}

qint32 QualityLadder::evaluate(const Telemetry &figures)
{
    if (isBad(figures)) {
        ++badTicks;
        goodTicks = 0;
    } else {
        ++goodTicks;
        badTicks = 0;
    }

    if (badTicks >= badTicksDown && level < lowestQuality) {
        ++level;
        badTicks = 0;
    } else if (goodTicks >= goodTicksUp && level > 0) {
        --level;
        goodTicks = 0;
    }

    lastSndDrop = figures.sndDrop;
    lastDropped = figures.dropped;
    primed = true;
    return level;
}

} // namespace corvane

#include "tools/air/LegMeter.h"

#include <numeric>

namespace corvane::air {

void LegMeter::add(std::int64_t now, std::int64_t bytes)
{
    m_bytes += bytes;
    // What comes at once counts as one: the stream comes in clusters, and a cluster in pieces.
    if (!m_bursts.empty() && now - m_bursts.back().first < 50)
        m_bursts.back().second += bytes;
    else
        m_bursts.emplace_back(now, bytes);
    while (now - m_bursts.front().first > windowMs)
        m_bursts.pop_front();
}

double LegMeter::kbitsPerSecond() const
{
    if (m_bursts.size() < 2)
        return 0;
    // From the first burst to the last: what the first holds came in before.
    const auto taken =
        std::accumulate(std::next(m_bursts.begin()), m_bursts.end(), std::int64_t{0},
                        [](std::int64_t sum, const auto &burst) { return sum + burst.second; });
    const auto span = m_bursts.back().first - m_bursts.front().first;
    return static_cast<double>(taken) * 8 / static_cast<double>(span);
}

} // namespace corvane::air

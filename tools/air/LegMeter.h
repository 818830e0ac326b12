#pragma once

#include <cstdint>
#include <deque>
#include <utility>

namespace corvane::air {

/// Figures of what the destinations took. Pure: the caller brings the time, in milliseconds.
class LegMeter
{
public:
    static constexpr std::int64_t windowMs = 10000;

    /// `bytes` of the stream went out.
    void add(std::int64_t now, std::int64_t bytes);

    /// No destination takes anything: the rate is zero until more goes out.
    void clear() { m_bursts.clear(); }

    [[nodiscard]] std::int64_t bytes() const { return m_bytes; } ///< all that went out

    /// Kilobits a second over the last ten seconds, as of the last addition; 0 before there are two of them.
    [[nodiscard]] double kbitsPerSecond() const;

private:
    std::deque<std::pair<std::int64_t, std::int64_t>> m_bursts; ///< time, bytes; oldest first
    std::int64_t m_bytes = 0;
};

} // namespace corvane::air

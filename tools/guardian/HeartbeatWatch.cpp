#include "tools/guardian/HeartbeatWatch.h"

#include <utility>

namespace corvane::guardian {

HeartbeatWatch::HeartbeatWatch(Marks marks)
    : m_marks(std::move(marks))
{
    begin();
}

void HeartbeatWatch::begin()
{
    m_last = m_marks.heartbeat();
    m_beats = 0;
    m_sinceBegin.start();
    m_sinceBeat.start();
}

void HeartbeatWatch::look()
{
    const std::optional<qint64> beat = m_marks.heartbeat();
    if (!beat || beat == m_last)
        return;
    m_last = beat;
    ++m_beats;
    m_sinceBeat.start();
}

bool HeartbeatWatch::isLive(std::chrono::milliseconds silence) const
{
    return m_beats > 0 && sinceBeat() <= silence;
}

std::chrono::milliseconds HeartbeatWatch::sinceBegin() const
{
    return std::chrono::milliseconds(m_sinceBegin.elapsed());
}

std::chrono::milliseconds HeartbeatWatch::sinceBeat() const
{
    return std::chrono::milliseconds(m_sinceBeat.elapsed());
}

} // namespace corvane::guardian

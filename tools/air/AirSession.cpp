#include "tools/air/AirSession.h"

#include <utility>

namespace corvane::air {

AirSession::AirSession(const CorvaneList &list, const std::string &recordings,
                       std::function<void(std::string_view)> print)
    : m_watch(list)
    , m_print(std::move(print))
    , m_recording(recordings, m_print)
{
}

void AirSession::onStream(std::string_view bytes, std::int64_t now)
{
    m_recording.add(bytes);
    m_watch.onStream(static_cast<std::int64_t>(bytes.size()), now);
}

void AirSession::onTick(std::int64_t now)
{
    m_watch.onTick(now);
    print();
}

std::optional<int> AirSession::finish(std::optional<int> code)
{
    m_recording.finish(patienceWithTheDiskMs);
    std::optional<int> result = m_watch.verdict();
    if (!result && code)
        result = m_watch.exitCodeFor(*code);
    print();
    return result;
}

void AirSession::print()
{
    for (const std::string &part : m_watch.takeOutput())
        m_print(part);
}

} // namespace corvane::air

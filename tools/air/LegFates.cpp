#include "tools/air/LegFates.h"

#include <algorithm>

namespace corvane::air {

namespace {

using Line = FfmpegLine;

bool isOf(const Line &line, std::string_view name)
{
    return line.context.starts_with(name) && line.context.substr(name.size()).starts_with(" @ ");
}

/// The connection of RTMP; that of SRT and UDP shows when the stream's header is written. Wherever it stands:
/// ffmpeg writes some lines in pieces, and one of another thread comes in between without what should stand
/// before it.
bool showsConnection(const Line &line)
{
    return line.text.find("Successfully connected to ") != std::string_view::npos ||
           line.text.find("muxrate ") != std::string_view::npos;
}

} // namespace

LegFates::LegFates(const std::vector<Leg> &legs)
{
    for (const Leg &leg : legs)
        m_legs.emplace_back().target = leg.target;
}

LegFates::State *LegFates::ofQueue(std::string_view queue)
{
    const auto known =
        std::find_if(m_legs.begin(), m_legs.end(), [&](const State &leg) { return leg.queue == queue; });
    if (known != m_legs.end())
        return &*known;
    const auto isFree = [](const State &leg) { return leg.queue.empty(); };
    if (std::count_if(m_legs.begin(), m_legs.end(), isFree) != 1)
        return nullptr;
    return &*std::find_if(m_legs.begin(), m_legs.end(), isFree);
}

LegFates::State *LegFates::named(const Line &line)
{
    constexpr std::string_view opening = "Error opening ";
    if (!line.text.starts_with(opening))
        return nullptr;
    const std::string_view rest = line.text.substr(opening.size());
    const auto found = std::find_if(m_legs.begin(), m_legs.end(), [&](const State &leg) {
        return rest.starts_with(leg.target) && rest.substr(leg.target.size()).starts_with(": ") &&
               (leg.queue.empty() || leg.queue == line.context);
    });
    if (found == m_legs.end())
        return nullptr;
    found->queue = line.context;
    std::erase(m_nameless, found->queue);
    return &*found;
}

std::optional<LegFates::Event> LegFates::lose(State &leg, std::int64_t now)
{
    if (leg.away)
        return {};
    leg.away = true;
    leg.awayAt = now;
    leg.proven = leg.proven || (connected() && now - m_connectedAt >= provenMs);
    const bool nothingStands = std::all_of(m_legs.begin(), m_legs.end(),
                                           [](const State &each) { return each.away && !each.proven; });
    const auto kind = nothingStands ? Event::Kind::StartFailed : Event::Kind::Lost;
    return Event{kind, static_cast<std::size_t>(&leg - m_legs.data()), 0};
}

std::optional<LegFates::Event> LegFates::recover(std::string_view queue, std::int64_t now)
{
    State *const leg = ofQueue(queue);
    if (!leg)
        return std::erase(m_nameless, queue) > 0 ? std::optional(Event{Event::Kind::Flickered, 0, 0})
                                                 : std::nullopt;
    if (!leg->away)
        return {};
    leg->away = false;
    leg->proven = true;
    return Event{Event::Kind::Back, static_cast<std::size_t>(leg - m_legs.data()), now - leg->awayAt};
}

std::optional<LegFates::Event> LegFates::read(const Line &line, std::int64_t now)
{
    m_outputsOpen = m_outputsOpen || isOf(line, "tee"); // what connects before is a source
    if (showsConnection(line)) {
        if (m_outputsOpen && !connected())
            m_connectedAt = now;
        return {};
    }
    if (!isOf(line, "fifo"))
        return {};
    if (State *const leg = named(line))
        return lose(*leg, now);
    if (line.text.starts_with("Recovery successful"))
        return recover(line.context, now);
    if (!line.text.starts_with("Recovery attempt ") && !line.text.starts_with("Recovery failed"))
        return {};
    if (State *const leg = ofQueue(line.context))
        return lose(*leg, now);
    if (std::find(m_nameless.begin(), m_nameless.end(), line.context) == m_nameless.end())
        m_nameless.emplace_back(line.context);
    return {};
}

bool LegFates::anyUp() const
{
    return connected() &&
           std::any_of(m_legs.begin(), m_legs.end(), [](const State &leg) { return !leg.away; });
}

bool LegFates::anyAway() const
{
    return !m_nameless.empty() ||
           std::any_of(m_legs.begin(), m_legs.end(), [](const State &leg) { return leg.away; });
}

} // namespace corvane::air

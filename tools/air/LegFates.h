#pragma once

#include "tools/air/CorvaneList.h"
#include "tools/air/FfmpegWords.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace corvane::air {

/// What becomes of the destinations, read from the messages of ffmpeg's queues, muxers and protocols. Pure:
/// the caller brings the time, in milliseconds.
///
/// A queue is known by its address alone until it names its URL in an error. With one destination there is
/// nothing to guess; of several, one that fails and recovers without an error of its own stays nameless.
class LegFates
{
public:
    /// A destination that fails this soon after a connection has been accepted was refused: servers reject a
    /// stream key only when the stream is there.
    static constexpr std::int64_t provenMs = 3000;

    struct Event
    {
        enum class Kind {
            StartFailed, ///< no destination is on air, and none ever was
            Lost,
            Back,
            Flickered, ///< lost and back, of a destination that can't be named
        };
        Kind kind = Kind::Lost;
        std::size_t leg = 0;     ///< index; without meaning for StartFailed and Flickered
        std::int64_t awayMs = 0; ///< of Back: for how long
        bool operator==(const Event &) const = default;
    };

    explicit LegFates(const std::vector<Leg> &legs);

    /// What this line makes known.
    std::optional<Event> read(const FfmpegLine &line, std::int64_t now);

    [[nodiscard]] bool connected() const { return m_connectedAt >= 0; } ///< some destination has accepted
    [[nodiscard]] bool anyUp() const;   ///< some destination is connected, and not lost meanwhile
    [[nodiscard]] bool anyAway() const; ///< some destination is lost, or its queue in recovery

private:
    struct State
    {
        std::string target;
        std::string queue; ///< address of its queue; empty: not known yet
        bool away = false;
        bool proven = false;
        std::int64_t awayAt = 0;
    };

    State *named(const FfmpegLine &line);
    State *ofQueue(std::string_view queue);
    std::optional<Event> lose(State &leg, std::int64_t now);
    std::optional<Event> recover(std::string_view queue, std::int64_t now);

    std::vector<State> m_legs;
    std::vector<std::string> m_nameless; ///< queues in recovery whose destination isn't known
    bool m_outputsOpen = false;
    std::int64_t m_connectedAt = -1;
};

} // namespace corvane::air

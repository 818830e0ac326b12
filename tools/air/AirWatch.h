#pragma once

#include "tools/air/CorvaneList.h"
#include "tools/air/HangRule.h"
#include "tools/air/LegFates.h"
#include "tools/air/LegMeter.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::air {

/// Everything that the companion decides while an encoder runs. It is told what the encoder writes and what
/// the program asks for, and answers with what to print and when to end the encoder. Pure: no process, no
/// file, no clock; time comes in as milliseconds of a clock that doesn't jump.
///
///     encoding ──"q"──> asked to stop ──encoder's end──> code of the encoder
///        │                   └──stopMs passed─────────> verdict 0
///        ├──start failed, hung, end of a live source──> verdict 1
///        └──end of a file──drainMs passed─────────────> verdict 0
class AirWatch
{
public:
    static constexpr std::int64_t stopMs = 2000; ///< for the goodbyes; the program waits for three seconds
    static constexpr std::int64_t drainMs = 1000;

    explicit AirWatch(const CorvaneList &list);

    /// Bytes of the encoder's standard error.
    void onErrorBytes(std::string_view bytes, std::int64_t now);

    /// Its standard error has ended: what has no line's end yet goes out too.
    void onErrorEnd(std::int64_t now);

    /// Bytes of the program for the encoder.
    void onInput(std::string_view bytes, std::int64_t now);

    /// Bytes of the stream, as they went to the destinations.
    void onStream(std::int64_t bytes, std::int64_t now);

    /// The encoder is about to end its outputs. It waits until it is let through.
    void onEnding(std::int64_t now);

    /// To be called several times a second.
    void onTick(std::int64_t now);

    /// Text to print, each part in one write, in order. It is given once.
    [[nodiscard]] std::vector<std::string> takeOutput();

    /// True as soon as the encoder may end its outputs in order, which takes leave of the servers.
    [[nodiscard]] bool letsThrough() const { return m_askedToStopAt >= 0; }

    /// Exit code with which the encoder is to be ended now, without leave.
    [[nodiscard]] std::optional<int> verdict() const { return m_verdict; }

    /// Exit code of the companion when the encoder has left by itself with `code`.
    int exitCodeFor(int code);

private:
    void onLine(std::string_view line, std::int64_t now);
    void onProgressLine(std::string_view line, std::int64_t now);
    void onFate(const LegFates::Event &event);
    [[nodiscard]] bool passes(const FfmpegLine &line, bool away);
    [[nodiscard]] bool holdsATarget(std::string_view text) const;
    void say(const std::string &line);
    void condemn(int code);

    std::vector<Leg> m_legs;
    bool m_liveSource;
    LegFates m_fates;
    HangRule m_hang;
    LegMeter m_meter;
    std::string m_partial;      ///< line without its end
    bool m_afterReturn = false; ///< the last byte was a carriage return: a line's end, or half of one
    bool m_lastPassed = false;  ///< the last line was printed
    std::set<std::string, std::less<>> m_said;
    std::vector<std::string> m_output;
    std::optional<int> m_verdict;
    std::int64_t m_askedToStopAt = -1; ///< -1: no "q" yet
    std::int64_t m_endingAt = -1;      ///< -1: not ending
};

} // namespace corvane::air

#include "tools/air/AirRewrite.h"

#include "tools/air/TeeRewrite.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace corvane::air {

namespace {

// Five seconds of sixty pictures and their sound: more than a write may hang.
constexpr auto boundedQueue = R"(queue_size=600\\\:drop_pkts_on_overflow=1)";
constexpr auto recovery =
    R"(\\\:attempt_recovery=1\\\:recover_any_error=1\\\:recovery_wait_time=0.5\\\:restart_with_keyframe=1)";

// What tells the start of a write from its end would hang with it; an Adler sum costs next to nothing.
constexpr auto silentUntilTheEnd = "[f=hash:hash=adler32]";

/// Text that the tee muxer takes as it stands: what it splits slaves at is escaped, and so are blanks, which
/// it would cut off at the end.
std::string escaped(std::string_view target)
{
    std::string result;
    for (const char c : target) {
        if (std::string_view("\\'| \t\n\r").find(c) != std::string_view::npos)
            result += '\\';
        result += c;
    }
    return result;
}

std::string timeouts(const Leg &leg)
{
    if (leg.target.starts_with("srt:"))
        return ":connect_timeout=" + std::to_string(legTimeoutSeconds * 1000); // milliseconds
    if (leg.target.starts_with("udp:"))
        return {};                                                       // neither connects nor waits
    return ":rw_timeout=" + std::to_string(legTimeoutSeconds * 1000000); // microseconds
}

std::string slave(const Leg &leg)
{
    return "|[f=" + leg.format + timeouts(leg) + ":use_fifo=1:fifo_options=" + boundedQueue + recovery +
           ":onfail=ignore]" + escaped(leg.target);
}

} // namespace

std::vector<std::string> rewrittenForAir(const CorvaneList &list, std::vector<std::string> arguments,
                                         const Plumbing &plumbing)
{
    std::string slaves =
        silentUntilTheEnd + escaped(plumbing.signal) + '|' + silentUntilTheEnd + escaped(plumbing.gate);
    for (const Leg &leg : list.legs)
        slaves += slave(leg);
    // Short clusters: an interrupted recording lacks no more than one of them.
    slaves +=
        std::string("|[f=matroska:live=1:cluster_time_limit=1000:flush_packets=1:use_fifo=1:fifo_options=") +
        boundedQueue + ":onfail=ignore]" + escaped(plumbing.meter);

    arguments[list.formatAt + 1] = "tee";
    arguments[list.formatAt + 2] = std::move(slaves);
    const auto level = std::find(arguments.begin(), arguments.end(), "-loglevel");
    *std::next(level) = "level+verbose";
    return rewriteTee(std::move(arguments));
}

} // namespace corvane::air

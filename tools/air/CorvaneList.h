#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::air {

/// One destination of an argument list.
struct Leg
{
    std::string format; ///< "flv" or "mpegts"
    std::string target; ///< URL as it stands in the list, with its key
};

/// What the companion has to know of an argument list that CORVANE wrote.
struct CorvaneList
{
    std::size_t formatAt = 0; ///< position of the "-f" before the format of the output
    bool severalOutputs = false;
    bool liveSource = false; ///< its end is a failure: neither a file nor the test pattern
    std::vector<Leg> legs;
};

/// Reads ffmpeg arguments (without the program name). Nothing, unless they have CORVANE's form from the first
/// to the last: its head, no "-map", one output, and every destination on the network (RTMP, SRT or UDP).
[[nodiscard]] std::optional<CorvaneList> readCorvaneList(const std::vector<std::string> &arguments);

/// Host and port of a URL, as a line of the log may name it: never user, path or query. "?" without a host.
/// A port that isn't named is that of the scheme, if it has a usual one.
[[nodiscard]] std::string hostAndPort(std::string_view url);

/// `text` with scheme, host and port in the place of each destination's URL, and with "…" in the place of a
/// stream key that stands there alone, as servers quote it. A key of fewer than six bytes stays: it may be
/// any other word.
[[nodiscard]] std::string withoutSecrets(std::string text, const std::vector<Leg> &legs);

} // namespace corvane::air

#pragma once

#include "tools/air/CorvaneList.h"

#include <string>
#include <vector>

namespace corvane::air {

/// Where the encoder writes what is meant for the companion; names as ffmpeg opens them, such as "pipe:3".
struct Plumbing
{
    std::string meter;  ///< the whole stream as Matroska: it is measured, and recorded
    std::string signal; ///< a line, as soon as the encoder begins to end its outputs
    std::string gate;   ///< a line after that one; the encoder ends nothing else before it is taken
};

/// Seconds that a network leg may hang in a connection attempt or in a write before it counts as lost.
constexpr int legTimeoutSeconds = 2;

/// The arguments with which ffmpeg stays up while its destinations come and go. All destinations become
/// slaves of one tee, so that rewriteTee's additions stand in front of it, and every one has
///
/// - a queue that recovers from any error, after half a second, at a key frame, without end, and drops
///   packets when it is full, so that it never holds up the encoder;
/// - a time-out, as a line that goes dead without a reset would stay unnoticed. SRT has one of its own for
/// what
///   was connected, and gets one for connecting.
///
/// Two slaves stand before them that write nothing before the end: the muxer ends its slaves in order, and
/// waits for the second until the companion takes what it has written. Messages are asked for in detail and
/// with their level; FfmpegWords reads them, and only what "warning" prints is passed on.
[[nodiscard]] std::vector<std::string>
rewrittenForAir(const CorvaneList &list, std::vector<std::string> arguments, const Plumbing &plumbing);

} // namespace corvane::air

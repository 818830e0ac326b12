#pragma once

#include <string>
#include <vector>

namespace corvane::air {

/// ffmpeg arguments (UTF-8, without the program name) as its tee muxer takes them. A list without "-f" "tee"
/// comes back as it is. In one with it:
///
/// - streams are mapped, as the tee muxer chooses none by itself: the first video of the first input; the
/// first
///   audio of the second input if there is one, else of the first if it has any;
/// - an audio encoder is named where none is, not even one for all streams: "aac", which FLV and MPEG-TS both
///   carry;
/// - encoders are asked for global headers, which FLV needs and which only the single form asks for by
///   itself;
/// - a colon that is escaped once inside a slave's options is escaped once more: the muxer unescapes when it
///   splits the slaves and again when it splits a slave's options.
///
/// What the list already has (a "-map", a "-flags" with global_header) isn't added again.
[[nodiscard]] std::vector<std::string> rewriteTee(std::vector<std::string> arguments);

} // namespace corvane::air

#pragma once

#include <string>
#include <string_view>

namespace corvane::air {

/// One line of ffmpeg at "-loglevel level+…", taken apart. Views into the line.
struct FfmpegLine
{
    enum class Level { None, Silent, Shown }; ///< without a level, below "warning", from "warning" on

    Level level = Level::None;
    std::string_view context; ///< innermost, as in "fifo @ 0x55d0"; empty: none
    std::string_view text;    ///< without contexts and level
};

/// `line` without its end.
[[nodiscard]] FfmpegLine readFfmpegLine(std::string_view line);

/// The line as ffmpeg prints it without the flag "level".
[[nodiscard]] std::string withoutLevel(std::string_view line);

/// True for one of the lines by which ffmpeg shows its progress.
[[nodiscard]] bool isProgress(std::string_view text);

/// True if `context` is a muxer or protocol of a destination, which says the same again at each new attempt.
[[nodiscard]] bool isOfALeg(std::string_view context);

} // namespace corvane::air

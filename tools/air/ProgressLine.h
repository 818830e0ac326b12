#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::air {

/// A progress line of ffmpeg with figures where it prints "N/A": `bytes` and `kbitsPerSecond` in the places
/// and widths in which ffmpeg prints those of a plain output. The rest stays as it is, and so does a line
/// that has figures.
[[nodiscard]] std::string withFigures(std::string_view line, std::int64_t bytes, double kbitsPerSecond);

} // namespace corvane::air

#pragma once

#include <string>

namespace corvane::air {

/// Path of the ffmpeg that this call is for: the first on PATH that is neither this program nor a copy of it
/// that has handed the call on already. Empty if there is none. Notes in the environment that this program
/// has had the call: two copies on PATH would pass it to each other for ever.
///
/// `passOver`, if given, is asked for every other candidate, and one of which it is true isn't taken.
[[nodiscard]] std::string nextFfmpeg(bool (*passOver)(const std::string &file) = nullptr);

} // namespace corvane::air

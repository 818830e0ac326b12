#pragma once

#include <string>

namespace corvane::air {

/// Path of the ffmpeg that this call is for: the first on PATH that is neither this program nor a copy of it
/// that has handed the call on already. Empty if there is none. Notes in the environment that this program
/// has had the call: two copies on PATH would pass it to each other for ever.
[[nodiscard]] std::string nextFfmpeg();

} // namespace corvane::air

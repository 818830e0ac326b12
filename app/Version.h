#pragma once

namespace corvane {

/// The version that the program calls itself.
[[nodiscard]] const char *version();

} // namespace corvane

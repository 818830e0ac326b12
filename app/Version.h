#pragma once

namespace corvane {

/// Version of the program, CORVANE_VERSION of its build.
[[nodiscard]] const char *version();

} // namespace corvane

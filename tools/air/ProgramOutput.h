#pragma once

#include <string>
#include <vector>

namespace corvane::air {

/// Standard output of a program, called with these arguments (the program first) and without input; empty if
/// it can't be run. Waits for its end.
[[nodiscard]] std::string programOutput(const std::vector<std::string> &call);

} // namespace corvane::air

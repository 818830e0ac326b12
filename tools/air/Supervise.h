#pragma once

#include "tools/air/CorvaneList.h"

#include <optional>
#include <string>
#include <vector>

namespace corvane::air {

/// Runs the encoder `ffmpeg` with the list that CORVANE wrote and stays between until it has left. Standard
/// streams go through; `recordings` is the file that switches recording on. Returns the exit code of the
/// companion; an encoder that a signal has ended ends the companion by the same. Nothing: it couldn't be run,
/// and the system's last error says why. Threads may stay behind: the process is to be left without its
/// destructors.
std::optional<int> supervise(const std::string &ffmpeg, const CorvaneList &list,
                             std::vector<std::string> arguments, const std::string &recordings);

} // namespace corvane::air

#pragma once

#include <filesystem>
#include <string>

namespace corvane::air {

// What differs between systems in an installation.

extern const char *const programFile; ///< name of the program's file
extern const char
    *const companionFile; ///< name of the companion's file as it is built; beside the program it is "ffmpeg"

/// What to add to the message of a failure of a file that may be in use; empty where that fails nothing.
extern const char *const hintOfUse;

/// Folder of the running program; empty if it isn't known.
[[nodiscard]] std::filesystem::path ownFolder();

/// Writes UTF-8 to standard output, or to standard error, in the characters of whoever reads it.
void printText(const std::string &text, bool toError);

} // namespace corvane::air

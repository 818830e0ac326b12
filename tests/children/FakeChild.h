#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// Functions that the stand-ins for child programs share. Plain C++: they link nothing that a test could
/// break.
namespace corvane::fake {

/// Resolves "%2C" and the like.
[[nodiscard]] std::string decoded(std::string_view text);

[[nodiscard]] std::vector<std::string> split(const std::string &text, char separator);

/// Writes the bytes unchanged and at once.
void writeAll(std::FILE *stream, const std::string &bytes);

/// Appends `line` and a line feed to the file at `path` in one piece, whoever else writes there.
void appendLine(const std::string &path, const std::string &line);

/// Writes `lines` to the file at `path`, each ended by a line feed.
void writeLines(const std::string &path, const std::vector<std::string> &lines);

/// Microseconds since the Unix epoch.
[[nodiscard]] long long clockMicroseconds();

[[nodiscard]] long processId();

/// Dies of SIGSEGV and leaves no core file.
[[noreturn]] void crash();

/// Standard streams carry bytes as they are.
void useBinaryStreams();

/// Has `handler` called, on a thread of its own, when this process is asked to terminate; the process lives
/// on. To be called before any other thread is started. On Windows such a request reaches windows alone: with
/// `window` false there is none, as in a console program, and `handler` is never called.
void onTerminate(std::function<void()> handler, bool window = true);

} // namespace corvane::fake

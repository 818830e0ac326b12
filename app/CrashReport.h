#pragma once

#include <cstddef>

/// Handlers, reports and paths of CrashGuard: the part that runs in a dying process. No Qt, no heap, no
/// stdio; each platform's file has the calls that are safe there.
namespace corvane::CrashReport {

inline constexpr std::size_t directorySize = 1024; ///< with the terminating zero
inline constexpr std::size_t pathSize = 1100;      ///< with the terminating zero

// Written before the handlers are installed and never after. UTF-8.
extern char crashDir[directorySize];
extern char runningPath[pathSize];
extern char crashLogPath[pathSize];
extern char crashDumpPath[pathSize];

/// Appends one report: banner, `reason` (may be null), " sig=" and `signal` unless that is 0, end mark.
void append(const char *reason, int signal);

/// Name of a signal that has a handler, "signal" for any other.
[[nodiscard]] const char *reasonOf(int signal);

/// Installs the signal and terminate handlers; on Windows the exception filter too.
void installHandlers();

// The platform's raw descriptor calls.
[[nodiscard]] int openForAppend(const char *path); ///< created if missing; negative if that fails
void write(int file, const char *text, std::size_t size);
void close(int file);
void writeSentinel();                        ///< at runningPath, with its 8 bytes
[[nodiscard]] bool exists(const char *path); ///< anything at all
void remove(const char *path);

} // namespace corvane::CrashReport

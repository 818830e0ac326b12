#pragma once

#include <QLatin1String>
#include <QString>

#include <chrono>

namespace corvane {

// Shared knowledge of the program and its guardian: under which names the program is known, where
// it keeps its runtime directory, which marks it leaves there, which feed it asks. The files of an update are
// in UpdateFiles.

inline constexpr QLatin1StringView applicationName{"CORVANE"};
inline constexpr QLatin1StringView organizationName{"halvorndev"};

/// Gives the application object the names under which settings and directories are found: application,
/// organization and the domain that the build was given.
void setApplicationIdentity();

/// CORVANE_RUNTIME_DIR as it stands if it isn't empty, else "runtime" in the application's data directory,
/// for which setApplicationIdentity() has to have been called. Nothing is created.
[[nodiscard]] QString runtimeDirectory();

/// Address of the update manifest: CORVANE_UPDATE_FEED if it is set, even if it is empty, else the build's.
[[nodiscard]] QString updateFeed();

/// Time between two heartbeats.
inline constexpr std::chrono::milliseconds heartbeatInterval{2000};

/// Milliseconds since the epoch as decimal digits, replaced in place at every beat.
[[nodiscard]] QString heartbeatPath(const QString &runtimeDir);
/// Empty; made or emptied at every orderly exit and never removed by the program.
[[nodiscard]] QString cleanExitPath(const QString &runtimeDir);
[[nodiscard]] QString crashDirectory(const QString &runtimeDir);
/// Sentinel in the crash directory `crashDir`: a run is up, or the last one ended in any way but the orderly.
[[nodiscard]] QString sentinelPath(const QString &crashDir);

} // namespace corvane

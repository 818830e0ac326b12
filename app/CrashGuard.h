#pragma once

class QString;

/// Leaves a record behind when the process dies, and lets the next start know that it did.
///
/// A sentinel file says that this process is up; only a normal end removes it. Crash handlers append a short
/// report to a file whose name is fixed at install time. Free functions over static storage: the handlers run
/// on the faulting thread, when neither the heap nor any object can be trusted, so they allocate nothing and
/// make only calls that are safe there. Nothing restarts anything, and every step fails silently.
namespace corvane::CrashGuard {

/// Makes `crashDir` and the sentinel in it and installs the handlers. Called once, with an application
/// object. Where the directory can't be made the run goes on unguarded.
void install(const QString &crashDir);

/// True if the sentinel was there already: the previous run never reached its end. Valid after install().
[[nodiscard]] bool previousRunAbnormal();

/// Removes the sentinel. Without an install() it does nothing.
void markCleanExit();

} // namespace corvane::CrashGuard

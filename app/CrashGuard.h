#pragma once

class QString;

/// Crash reports, and a sentinel file by which the next start learns of an abnormal end.
///
/// The sentinel exists while the process runs; only a normal end removes it. Crash handlers append a short
/// report to a file whose name is fixed at install time. Free functions over static storage: the handlers run
/// on the faulting thread, where neither the heap nor any object can be trusted, so they allocate nothing and
/// make only calls that are safe there. Nothing is restarted, and every step fails silently.
namespace corvane::CrashGuard {

/// Creates `crashDir` and the sentinel in it and installs the handlers. Called once, with an application
/// object. Without the directory the run goes on, and its reports are lost.
void install(const QString &crashDir);

/// True if the sentinel existed before install(): the previous run didn't end normally. Valid after
/// install().
[[nodiscard]] bool previousRunAbnormal();

/// Removes the sentinel. Without an install() it does nothing.
void markCleanExit();

} // namespace corvane::CrashGuard

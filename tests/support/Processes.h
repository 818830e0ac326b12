#pragma once

#include <QList>
#include <QStringList>
#include <QtGlobal>

/// What tests ask of the system about processes.
namespace corvane::test {

/// True as long as `pid` is in the process table; a child that has ended and isn't reaped yet counts.
[[nodiscard]] bool processExists(qint64 pid);

/// Exit code that QProcess gives for a child that was killed.
[[nodiscard]] int killedExitCode();

/// Exit code that QProcess gives for a child that ran into a segmentation fault.
[[nodiscard]] int crashedExitCode();

// The rest is for tests that are built on POSIX systems alone.

/// Holds `pid`, which lives on but does nothing any more, until it is killed.
void suspendProcess(qint64 pid);

/// Sends `pid` the signal of that number.
void sendSignal(qint64 pid, int signal);

/// Ends `pid` at once.
void killProcess(qint64 pid);

/// Children of this process, those that have ended and aren't reaped included.
[[nodiscard]] QList<qint64> childProcesses();

/// Program and arguments of `pid`; empty if there is no such process, or if it has ended.
[[nodiscard]] QStringList processCommand(qint64 pid);

/// While it lives, file permissions hold for this process even if root runs it: it has nobody's rights.
class Unprivileged
{
public:
    Unprivileged();
    ~Unprivileged();
    Q_DISABLE_COPY_MOVE(Unprivileged)
};

/// Number of this process's open file descriptors.
[[nodiscard]] qsizetype openDescriptors();

} // namespace corvane::test

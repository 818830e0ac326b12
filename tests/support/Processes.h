#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

class QProcess;

/// Queries and operations of tests on processes.
namespace corvane::test {

/// True as long as `pid` is in the process table; a child that has ended and isn't reaped yet counts.
[[nodiscard]] bool processExists(qint64 pid);

/// Exit code that QProcess gives for a child that was killed.
[[nodiscard]] int killedExitCode();

/// Exit code that QProcess gives for a child that ran into a segmentation fault.
[[nodiscard]] int crashedExitCode();

/// True if a child has started by the time that QProcess::start() returns; elsewhere it takes a turn of the
/// event loop.
[[nodiscard]] bool startsAtOnce();

/// Value for `PATH` with which a copy of a program that uses Qt starts from any place and finds no other tool
/// than in `directory`: the libraries are searched there too on Windows.
[[nodiscard]] QString pathForCopies(const QString &directory);

/// True if the system reports a connection that the other side resets. Wine doesn't.
[[nodiscard]] bool resetsAreTold();

/// True if the system takes a large response from a socket at once, however slow its reader.
[[nodiscard]] bool sendsWithoutLimit();

/// Standard error of a program itself: with line feeds alone, and without Wine's own messages.
[[nodiscard]] QByteArray ownWords(const QByteArray &standardError);

/// Suspends `pid`, which then exists without doing anything, until it is killed.
void suspendProcess(qint64 pid);

/// True if a process can be sent a signal. If not, sendSignal() does nothing.
[[nodiscard]] bool signalsCanBeSent();

/// Sends `pid` the signal of that number.
void sendSignal(qint64 pid, int signal);

/// Exit code as a parent receives it: some systems keep its low byte alone.
[[nodiscard]] int seenExitCode(int code);

/// Kills `pid`.
void killProcess(qint64 pid);

/// Children of this process, or of `parent`, those that have ended and aren't reaped included. Windows tells
/// those of a parent that has ended too.
[[nodiscard]] QList<qint64> childProcesses(qint64 parent = 0);

/// Program and arguments of `pid`; empty if there is no such process, or if it has ended.
[[nodiscard]] QStringList processCommand(qint64 pid);

/// While it lives, the permissions of files bind this thread even if root runs it, which stays their owner:
/// folders on the way needn't be open to others. What it starts has its rights again.
class Unprivileged
{
public:
    Unprivileged();
    ~Unprivileged();
    Q_DISABLE_COPY_MOVE(Unprivileged)

private:
    quint32 m_former = 0;
};

/// Binds what `process` starts to the permissions of files, even if root runs it. Linux alone.
void bindToPermissions(QProcess &process);

/// Number of this process's open file descriptors, or handles.
[[nodiscard]] qsizetype openDescriptors();

} // namespace corvane::test

#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

class QProcess;

namespace corvane::guardian {

/// A process that runs the program, as this user may see it.
struct ProgramProcess
{
    qint64 id = 0;
    QString runtimeDirectory; ///< where it leaves its marks; empty: that can't be seen from here
};

/// Processes that run the program file `path`. Those that have ended and are only waited for don't count, and
/// those of other users can't be seen everywhere.
[[nodiscard]] QList<ProgramProcess> processesOf(const QString &path);

/// Ids of the processes whose program lies in `folder` or below.
[[nodiscard]] QList<qint64> processesWithin(const QString &folder);

/// Names of the programs that the process `id` has started and that still run, without copies of itself (a
/// moment before they become another program) and without those that the system gives to every program of the
/// console.
[[nodiscard]] QStringList childrenOf(qint64 id);

/// A process in the system's list.
struct ListedProcess
{
    qint64 id = 0;
    qint64 parent = 0; ///< id of the process that has started it; on Windows that one may have ended
    quint64 start = 0; ///< moment of its start: the higher, the later
    QString name;      ///< empty: the system is about to make it, and nobody knows yet of what program
    QString program;   ///< path of its file; empty: that can't be seen from here
};

/// childrenOf() in a list. An id is used again once its process has ended, and that one's children keep it as
/// their parent's: what is older than the process `id` isn't its child.
[[nodiscard]] QStringList childrenAmong(const QList<ListedProcess> &processes, qint64 id);

/// Ends a process without asking it.
void endProcess(qint64 id);

/// Has `process` start without a window of the console, where there are such windows.
void startWithoutConsole(QProcess &process);

} // namespace corvane::guardian

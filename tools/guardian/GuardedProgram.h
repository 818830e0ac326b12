#pragma once

#include "tools/guardian/Marks.h"
#include "tools/guardian/Permission.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

class QProcessEnvironment;

namespace corvane::guardian {

/// One run of the program after the other: a child that was started here, or a run that was found and is only
/// watched. Never asks the program to end, and leaves a child running if this process dies. On the thread of
/// the event loop.
class GuardedProgram : public QObject
{
    Q_OBJECT

public:
    /// The program file `path`, started with `arguments`; `marks` are those that it leaves.
    GuardedProgram(QString path, QStringList arguments, Marks marks, QObject *parent = nullptr);

    /// Processes that run the file at this moment, by whom they belong to; nothing is known of the marks.
    [[nodiscard]] Runs runs() const;

    /// Watches the own runs that are there already; false if there is none.
    [[nodiscard]] bool attach();
    /// Starts one. ended() follows also if it can't be started.
    void start(const QProcessEnvironment &environment);
    /// Ends the run at once; ended() follows. No process is touched that isn't the guardian's own.
    void kill();
    /// Looks whether a watched run is still there; to be called now and then.
    void look();

    [[nodiscard]] bool isRunning() const { return m_child || m_attached; }
    /// Names of what the run has started itself and still runs: its encoders and transport tools.
    [[nodiscard]] QStringList tools() const;

Q_SIGNALS:
    /// The run is over; `orderly` if exit code and marks say so, `how` in words if not.
    void ended(bool orderly, const QString &how);

private:
    void onFinished(int exitCode, QProcess::ExitStatus status);
    void end(bool inOrder, const QString &how);

    QString m_path;
    QStringList m_arguments;
    Marks m_marks;
    QProcess *m_child = nullptr;
    bool m_attached = false;
    QDateTime m_cleanExitBefore;
};

} // namespace corvane::guardian

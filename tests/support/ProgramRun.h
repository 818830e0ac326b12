#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace corvane::test {

class ProgramSandbox;
class XServer;

/// The built program on a display, from its start to its end. Both arguments outlive it.
class ProgramRun
{
public:
    ProgramRun(ProgramSandbox &sandbox, const XServer &display, const QStringList &arguments = {});

    /// True as soon as the window "CORVANE" is on the screen; false if the program ends without one.
    [[nodiscard]] bool start(int timeoutMs = 20000);

    /// Closes the window and waits for the end; the exit code, or -1 if there was no orderly end.
    [[nodiscard]] int close();

    /// Kills the program, as a power cut would.
    [[nodiscard]] bool kill();

    [[nodiscard]] QString standardError(); ///< everything printed so far

    QProcess program;
    qint64 startedAtMs = 0; ///< since the epoch

private:
    const XServer &m_display;
    QByteArray m_standardError;
};

} // namespace corvane::test

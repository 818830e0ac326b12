#include "tests/support/ProgramRun.h"
#include "tests/support/Files.h"

#include "tests/support/Processes.h"
#include "tests/support/ProgramSandbox.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QDateTime>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

const auto title = u"CORVANE"_s;

} // namespace

ProgramRun::ProgramRun(ProgramSandbox &sandbox, const XServer &display, const QStringList &arguments)
    : m_display(display)
{
    sandbox.environment().insert(u"DISPLAY"_s, display.display());
    sandbox.prepare(program, arguments);
}

bool ProgramRun::start(int timeoutMs)
{
    startedAtMs = QDateTime::currentMSecsSinceEpoch();
    program.start();
    return waitUntil([&] { return m_display.showsWindow(title) || program.state() == QProcess::NotRunning; },
                     timeoutMs) &&
           m_display.showsWindow(title);
}

int ProgramRun::close()
{
    if (!m_display.closeWindow(title))
        return -1;
    const bool ended = waitUntil([&] { return program.state() == QProcess::NotRunning; });
    return ended && program.exitStatus() == QProcess::NormalExit ? program.exitCode() : -1;
}

bool ProgramRun::kill()
{
    program.kill();
    return waitUntil([&] { return program.state() == QProcess::NotRunning; });
}

QString ProgramRun::standardError()
{
    m_standardError += program.readAllStandardError();
    return QString::fromUtf8(ownWords(m_standardError));
}

} // namespace corvane::test

#include "tools/guardian/GuardedProgram.h"

#include "tools/guardian/ProgramProcesses.h"

#include <QProcessEnvironment>

#include <utility>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

GuardedProgram::GuardedProgram(QString path, QStringList arguments, Marks marks, QObject *parent)
    : QObject(parent)
    , m_path(std::move(path))
    , m_arguments(std::move(arguments))
    , m_marks(std::move(marks))
{
}

Runs GuardedProgram::runs() const
{
    return sortRuns(processesOf(m_path), m_child ? m_child->processId() : 0, m_marks.runtimeDirectory);
}

bool GuardedProgram::attach()
{
    if (m_child || runs().own.isEmpty())
        return false;
    m_cleanExitBefore = m_marks.cleanExit();
    m_attached = true;
    return true;
}

void GuardedProgram::start(const QProcessEnvironment &environment)
{
    m_cleanExitBefore = m_marks.cleanExit();
    m_child = new QProcess(this);
    m_child->setProcessChannelMode(QProcess::ForwardedChannels);
    m_child->setStandardInputFile(QProcess::nullDevice());
    m_child->setProcessEnvironment(environment);
    startWithoutConsole(*m_child);
    connect(m_child, &QProcess::finished, this, &GuardedProgram::onFinished);
    connect(m_child, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            end(false, u"it can't be started: %1"_s.arg(m_child->errorString()));
    });
    m_child->start(m_path, m_arguments);
}

void GuardedProgram::kill()
{
    if (m_child) {
        m_child->kill();
        return;
    }
    const QList<qint64> own = runs().own;
    for (const qint64 id : own)
        endProcess(id);
}

void GuardedProgram::look()
{
    if (m_attached && runs().own.isEmpty())
        end(true, u"it ended without its marks"_s);
}

QStringList GuardedProgram::tools() const
{
    QStringList names;
    const QList<qint64> own = runs().own;
    for (const qint64 id : own)
        names << childrenOf(id);
    return names;
}

void GuardedProgram::onFinished(int exitCode, QProcess::ExitStatus status)
{
    if (status == QProcess::CrashExit)
        end(false, u"it crashed or was killed (%1)"_s.arg(exitCode));
    else if (exitCode != 0)
        end(false, u"it ended with exit code %1"_s.arg(exitCode));
    else
        end(true, u"it ended without its marks"_s);
}

void GuardedProgram::end(bool inOrder, const QString &how)
{
    if (m_child)
        m_child->deleteLater();
    m_child = nullptr;
    m_attached = false;
    const bool orderly = inOrder && m_marks.endedCleanlySince(m_cleanExitBefore);
    Q_EMIT ended(orderly, orderly ? QString() : how);
}

} // namespace corvane::guardian

#include "pipeline/TransportChild.h"

#include "engine/host/ChildProcess.h"
#include "engine/host/ToolResolver.h"

#include <QFileInfo>

#include <utility>

namespace corvane {

using namespace Qt::StringLiterals;

constexpr int terminateTimeoutMs = 2000;

TransportChild::TransportChild(Words words, QObject *parent)
    : QObject(parent)
    , m_words(std::move(words))
    , m_program(m_words.tool)
{
    if (const QString path = resolveTool(m_words.tool); !path.isEmpty())
        m_program = path;
}

TransportChild::~TransportChild()
{
    stop();
}

bool TransportChild::available() const
{
    return QFileInfo::exists(m_program) || !resolveTool(m_program).isEmpty();
}

void TransportChild::start(const QStringList &arguments)
{
    if (!available()) {
        Q_EMIT logLine(m_words.missing);
        return;
    }
    if (m_process)
        return;

    m_process = new ChildProcess(this);
    m_process->setProgram(m_program);
    m_process->setArguments(arguments);

    QProcess *child = m_process;
    connect(child, &QProcess::readyReadStandardError, this,
            [this, child] { passOn(child->readAllStandardError()); });
    connect(child, &QProcess::readyReadStandardOutput, this,
            [this, child] { passOn(child->readAllStandardOutput()); });
    connect(child, &QProcess::finished, this, &TransportChild::onFinished);
    connect(child, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        Q_EMIT logLine(u"errorOccurred=%1"_s.arg(static_cast<int>(error)));
    });

    Q_EMIT logLine(m_words.tool + u' ' + arguments.join(u' '));
    child->start(QIODevice::ReadWrite);
}

void TransportChild::passOn(const QByteArray &output)
{
    Q_EMIT logLine(QString::fromUtf8(output).trimmed());
}

void TransportChild::onFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    const bool crashed = exitStatus == QProcess::CrashExit;
    if (!crashed && exitCode == 0)
        return;
    QString line = m_words.died;
    line.replace("%1"_L1, QString::number(exitCode));
    line.replace("%2"_L1, crashed ? "crash"_L1 : "erro"_L1);
    Q_EMIT logLine(line);
}

void TransportChild::stop()
{
    // Waiting runs the child's handlers, whose log lines may lead to another stop().
    QProcess *child = std::exchange(m_process, nullptr);
    if (!child)
        return;
    if (child->state() != QProcess::NotRunning) {
        child->terminate();
        if (!child->waitForFinished(terminateTimeoutMs))
            child->kill();
    }
    child->deleteLater();
}

} // namespace corvane

#include "tests/air/AirInstallation.h"

#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QDir>
#include <QFile>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace corvane::test {

AirInstallation::AirInstallation(const QByteArray &help, const QString &tools, const QString &program)
    : realFfmpeg(u"bin/"_s + executableName(u"ffmpeg"_s))
    , m_help(help)
    , m_tools(tools)
{
    if (!program.isEmpty())
        writeFile(path(executableName(program)), "program");
    QDir().mkpath(path(tools));
    QFile::copy(QStringLiteral(CORVANE_AIR), path(tools + executableName(u"ffmpeg"_s)));
    QFile::copy(QStringLiteral(CORVANE_AIR_SWITCH), path(tools + executableName(u"corvane-air"_s)));
    if (!help.isEmpty()) {
        QDir().mkpath(path(u"bin"_s));
        QFile::copy(fakeFfmpeg(), path(realFfmpeg));
    }
}

void AirInstallation::start(QProcess &process, const QString &program, const QStringList &arguments) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"PATH"_s, native(u"bin"_s));
    environment.insert(u"FAKE_FFMPEG_HELP"_s, QString::fromUtf8(m_help));
    environment.insert(u"FAKE_FFMPEG_ASKED"_s, asked);
    process.setProcessEnvironment(environment);
#ifdef Q_OS_UNIX
    if (bound)
        bindToPermissions(process);
#endif
    process.start(path(program), arguments);
}

int AirInstallation::call(const QStringList &arguments)
{
    QProcess process;
    start(process, m_tools + u"corvane-air"_s, arguments);
    process.waitForFinished();
    output = QString::fromUtf8(process.readAllStandardOutput());
    error = QString::fromUtf8(process.readAllStandardError());
    return process.exitCode();
}

} // namespace corvane::test

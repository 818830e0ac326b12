#include "tests/air/AirCall.h"

#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QDir>
#include <QFile>

namespace corvane::test {

using namespace Qt::StringLiterals;

AirCall::AirCall()
{
    for (const QString &folder : {u"a"_s, u"b"_s, u"c"_s})
        QDir(m_dir.path()).mkpath(folder);
    QFile::copy(QStringLiteral(CORVANE_AIR), at(u"a"_s));
    setPath({u"a"_s, u"b"_s, u"c"_s});
}

QString AirCall::at(const QString &folder) const
{
    return m_dir.filePath(folder + u'/' + executableName(u"ffmpeg"_s));
}

void AirCall::setPath(const QStringList &folders)
{
    QStringList paths;
    for (const QString &folder : folders)
        paths << (folder.isEmpty() ? folder : QDir::toNativeSeparators(m_dir.filePath(folder)));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"PATH"_s, paths.join(QDir::listSeparator()));
    m_process.setProcessEnvironment(environment);
}

void AirCall::putEncoder(const QString &folder) const
{
    QFile::copy(fakeFfmpeg(), at(folder));
}

QProcess &AirCall::start(const QStringList &arguments)
{
    m_process.start(at(u"a"_s), arguments);
    return m_process;
}

int AirCall::run(const QStringList &arguments)
{
    start(arguments);
    return m_process.waitForFinished(20000) ? m_process.exitCode() : -1;
}

QString AirCall::argumentsStep() const
{
    return "fake:args="_L1 + stepText(filePath(u"arguments"_s).toUtf8()) + ",exit=0"_L1;
}

QByteArray noOtherEncoder()
{
    return "[air] nenhum outro ffmpeg no PATH\n";
}

} // namespace corvane::test

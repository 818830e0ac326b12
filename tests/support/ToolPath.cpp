#include "tests/support/ToolPath.h"

#include "tests/support/TestSupport.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

constexpr const char *probeVariables[] = {"FAKE_FFMPEG_ENCODERS", "FAKE_FFMPEG_PROTOCOLS",
                                          "FAKE_FFMPEG_PROBE", "FAKE_FFMPEG_ASKED"};

} // namespace

QString executableName(const QString &name)
{
    const QString suffix = QFileInfo(fakeFfmpeg()).suffix();
    return suffix.isEmpty() ? name : name + u'.' + suffix;
}

ToolPath::ToolPath()
    : m_formerPath(qgetenv("PATH"))
{
    qputenv("PATH", QFile::encodeName(m_dir.path()));
}

ToolPath::~ToolPath()
{
    qputenv("PATH", m_formerPath);
    for (const char *variable : probeVariables)
        qunsetenv(variable);
}

QString ToolPath::addCopy(const QString &name, const QString &source)
{
    QString path = filePath(executableName(name));
    if (!QFile::copy(source, path))
        path.clear();
    return path;
}

QString ToolPath::addUnstartable(const QString &name)
{
    QString path = filePath(executableName(name));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write("\x7fno program\n") < 0)
        return {};
    file.close();
    file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeUser);
    return path;
}

QString ToolPath::addScript(const QString &name, const QByteArray &script)
{
    QString path = filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + script) < 0)
        return {};
    file.close();
    file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeUser);
    return path;
}

QString ToolPath::addMachineTool(const QString &name)
{
    const QString source = machineTool(name);
    return source.isEmpty() ? QString() : addCopy(name, source);
}

QString ToolPath::addFakeFfmpeg(const QByteArray &encoders, const QByteArray &protocols)
{
    qputenv("FAKE_FFMPEG_ENCODERS", encoders);
    qputenv("FAKE_FFMPEG_PROTOCOLS", protocols);
    return addCopy(u"ffmpeg"_s, fakeFfmpeg());
}

QString machineTool(const QString &name)
{
    // The second is where /usr/local/bin is seen by tests that have one of their own.
    QStringList folders{u"/usr/bin"_s, qEnvironmentVariable("CORVANE_TEST_LOCAL", u"/usr/local/bin"_s),
                        u"/usr/local/bin"_s, u"/opt/homebrew/bin"_s};
#ifdef Q_OS_WIN
    static const QString path = qEnvironmentVariable("PATH"); // of the start: a test sets another
    folders = qEnvironmentVariable("CORVANE_TEST_TOOLS").split(u';', Qt::SkipEmptyParts) + path.split(u';');
#endif
    return QStandardPaths::findExecutable(name, folders);
}

} // namespace corvane::test

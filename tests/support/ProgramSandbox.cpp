#include "tests/support/ProgramSandbox.h"

#include "tests/support/ChildLife.h"
#include "tests/support/Processes.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>

namespace corvane::test {

using namespace Qt::StringLiterals;

namespace {

constexpr const char *unset[] = {
    "CORVANE_RUNTIME_DIR", "DISPLAY",          "WAYLAND_DISPLAY",   "XAUTHORITY",
    "QT_QPA_PLATFORM",     "QT_LOGGING_RULES", "QT_STYLE_OVERRIDE", "QT_QUICK_CONTROLS_STYLE",
};

constexpr struct
{
    const char *variable;
    const char *directory;
} privateDirectories[] = {
    {"HOME", "home"},
    {"XDG_CONFIG_HOME", "config"},
    {"XDG_DATA_HOME", "data"},
    {"XDG_CACHE_HOME", "cache"},
    {"XDG_RUNTIME_DIR", "run"},
    {"TMPDIR", "tmp"},
    {"TEMP", "tmp"},
    {"TMP", "tmp"},
    {"PATH", "bin"},
};

} // namespace

ProgramSandbox::ProgramSandbox()
{
    for (const char *variable : unset)
        m_environment.remove(QLatin1String(variable));
    for (const auto &[variable, directory] : privateDirectories) {
        QDir().mkpath(path(QLatin1String(directory)));
        m_environment.insert(QLatin1String(variable), path(QLatin1String(directory)));
    }
    m_environment.insert(u"PATH"_s, pathForCopies(path(u"bin"_s)));
    // Qt warns of a run-time directory that other users may read.
    QFile::setPermissions(path(u"run"_s), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile::copy(fakeFfmpeg(), fakeFfmpegCopy());

    m_environment.insert(u"CORVANE_RUNTIME_DIR"_s, runtimeDir());
    // No feed: no program that a test starts asks the outside world for updates.
    m_environment.insert(u"CORVANE_UPDATE_FEED"_s, u""_s);
    m_environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, "unix:path="_L1 + path(u"no-session-bus"_s));
    m_environment.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, "unix:path="_L1 + path(u"no-system-bus"_s));
    m_environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    m_environment.insert(u"QT_QUICK_BACKEND"_s, u"software"_s);
    m_environment.insert(u"QT_FORCE_STDERR_LOGGING"_s, u"1"_s);
}

QString ProgramSandbox::fakeFfmpegCopy() const
{
    return path("bin/"_L1 + executableName(u"ffmpeg"_s));
}

QStringList ProgramSandbox::contents() const
{
    QStringList found;
    QDirIterator entries(m_directory.path(),
                         QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext())
        found << QDir(m_directory.path()).relativeFilePath(entries.next());
    found.sort();
    return found;
}

void ProgramSandbox::prepare(QProcess &program, const QStringList &arguments) const
{
    endWithParent(program);
    program.setProgram(corvaneProgram());
    program.setArguments(arguments);
    program.setProcessEnvironment(m_environment);
    program.setWorkingDirectory(m_directory.path());
}

} // namespace corvane::test

#include "app/CrashGuard.h"

#include "app/CrashReport.h"
#include "update/RuntimeFiles.h"

#include <QByteArray>
#include <QDir>
#include <QString>

#include <algorithm>
#include <ctime>

namespace corvane::CrashGuard {

namespace {

bool abnormal = false;

/// Copies `path` and cuts it at the target's size.
template <std::size_t Size>
void copyPath(char (&target)[Size], const QByteArray &path)
{
    const std::size_t length = std::min(Size - 1, static_cast<std::size_t>(path.size()));
    std::copy_n(path.constData(), length, target);
    target[length] = '\0';
}

/// Path of a crash file, with the seconds since the epoch at this start: all crashes of one process share it.
QByteArray timedPath(const QByteArray &directory, const char *suffix)
{
    return directory + "/crash-" + QByteArray::number(static_cast<qint64>(std::time(nullptr))) + suffix;
}

} // namespace

void install(const QString &crashDir)
{
    QDir().mkpath(crashDir);
    const QByteArray directory = crashDir.toUtf8();
    copyPath(CrashReport::crashDir, directory);

    const QByteArray running = sentinelPath(crashDir).toUtf8();
    abnormal = CrashReport::exists(running.constData());
    copyPath(CrashReport::runningPath, running);
    copyPath(CrashReport::crashLogPath, timedPath(directory, ".log"));
    copyPath(CrashReport::crashDumpPath, timedPath(directory, ".dmp"));

    CrashReport::writeSentinel();
    CrashReport::installHandlers();
}

bool previousRunAbnormal()
{
    return abnormal;
}

void markCleanExit()
{
    if (CrashReport::runningPath[0] != '\0')
        CrashReport::remove(CrashReport::runningPath);
}

} // namespace corvane::CrashGuard

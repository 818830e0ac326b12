#include "tests/app/CrasherRun.h"

#include "tests/support/ChildLife.h"
#include "tests/support/Files.h"

#include <QDir>
#include <QFile>

#include <ctime>

namespace corvane::test {

using namespace Qt::StringLiterals;

CrasherRun::CrasherRun(const QStringList &death, const QString &directory)
    : m_runtime(m_directory.filePath(directory.isEmpty() ? u"runtime"_s : directory))
{
    endWithParent(program);
    program.setProgram(QStringLiteral(CORVANE_CRASHER));
    program.setArguments(QStringList{crashDir()} + death);
    program.setWorkingDirectory(m_directory.path());
}

QString CrasherRun::path(const QString &name) const
{
    return m_directory.filePath(name);
}

QString CrasherRun::crashDir() const
{
    return m_runtime + "/crashes"_L1;
}

bool CrasherRun::start()
{
    m_startedAt = coarseSeconds();
    program.start();
    // Line end of the system's text files.
    return program.waitForReadyRead(20000) && program.readAllStandardOutput().trimmed() == "ready";
}

bool CrasherRun::die()
{
    m_guardedAt = coarseSeconds();
    program.write("\n");
    return program.waitForFinished(deathPatienceMs);
}

QStringList CrasherRun::entries() const
{
    QStringList names =
        QDir(crashDir()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    for (qint64 second = m_startedAt; second <= m_guardedAt; ++second) {
        names.replaceInStrings(u"crash-%1.log"_s.arg(second), u"crash-<start>.log"_s);
        names.replaceInStrings(u"crash-%1.dmp"_s.arg(second), u"crash-<start>.dmp"_s);
    }
    return names;
}

QByteArray CrasherRun::log() const
{
    return contents(u"crash-*.log"_s);
}

QByteArray CrasherRun::dump() const
{
    return contents(u"crash-*.dmp"_s);
}

QByteArray CrasherRun::contents(const QString &pattern) const
{
    QByteArray bytes;
    const QDir directory(crashDir());
    for (const QString &name : directory.entryList({pattern})) {
        QFile file(directory.filePath(name));
        if (file.open(QIODevice::ReadOnly))
            bytes += file.readAll();
    }
    return bytes;
}

} // namespace corvane::test

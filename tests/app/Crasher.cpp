#include "tests/app/Crasher.h"

#include "tests/support/ChildLife.h"

#include <QDir>
#include <QFile>

#include <ctime>

namespace corvane::test {

using namespace Qt::StringLiterals;

Crasher::Crasher(const QStringList &death, const QString &directory)
    : m_runtime(m_directory.filePath(directory.isEmpty() ? u"runtime"_s : directory))
{
    endWithParent(program);
    program.setProgram(QStringLiteral(CORVANE_CRASHER));
    program.setArguments(QStringList{crashDir()} + death);
    program.setWorkingDirectory(m_directory.path());
}

QString Crasher::path(const QString &name) const
{
    return m_directory.filePath(name);
}

QString Crasher::crashDir() const
{
    return m_runtime + "/crashes"_L1;
}

bool Crasher::start()
{
    m_startedAt = coarseSeconds();
    program.start();
    // A line ends as the system's text does.
    return program.waitForReadyRead(20000) && program.readAllStandardOutput().trimmed() == "ready";
}

bool Crasher::die()
{
    m_guardedAt = coarseSeconds();
    program.write("\n");
    return program.waitForFinished(deathLimitMs + deathSlackMs);
}

QStringList Crasher::entries() const
{
    QStringList names =
        QDir(crashDir()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    for (qint64 second = m_startedAt; second <= m_guardedAt; ++second) {
        names.replaceInStrings(u"crash-%1.log"_s.arg(second), u"crash-<start>.log"_s);
        names.replaceInStrings(u"crash-%1.dmp"_s.arg(second), u"crash-<start>.dmp"_s);
    }
    return names;
}

QByteArray Crasher::log() const
{
    return contents(u"crash-*.log"_s);
}

QByteArray Crasher::dump() const
{
    return contents(u"crash-*.dmp"_s);
}

qint64 Crasher::coarseSeconds()
{
    return static_cast<qint64>(std::time(nullptr));
}

QByteArray Crasher::contents(const QString &pattern) const
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

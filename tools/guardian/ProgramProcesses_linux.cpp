#include "tools/guardian/ProgramProcesses.h"

#include "update/RuntimeFiles.h"

#include <QByteArrayList>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <optional>
#include <sys/types.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

QList<qint64> allProcesses()
{
    QList<qint64> found;
    const QStringList entries = QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool isNumber = false;
        const qint64 id = entry.toLongLong(&isNumber);
        if (isNumber)
            found << id;
    }
    return found;
}

QString entryOf(qint64 id, QLatin1StringView name)
{
    return u"/proc/%1/%2"_s.arg(QString::number(id), name);
}

struct Status
{
    QString name;
    qint64 parent = 0;
    quint64 start = 0; ///< in ticks since the system's own
};

/// Nothing if the process has ended, waited for or not.
std::optional<Status> statusOf(qint64 id)
{
    QFile file(entryOf(id, "stat"_L1));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // "id (name) state parent …", and a name may hold anything. The start is the 22nd of these fields.
    constexpr qsizetype startField = 19; // behind the name
    const QByteArray text = file.readAll();
    const qsizetype begin = text.indexOf('(') + 1;
    const qsizetype end = text.lastIndexOf(')');
    const QByteArrayList fields = text.sliced(end + 1).simplified().split(' ');
    if (begin == 0 || end < begin || fields.value(0) == "Z" || fields.value(0) == "X")
        return std::nullopt;
    return Status{QFile::decodeName(text.sliced(begin, end - begin)), fields.value(1).toLongLong(),
                  fields.value(startField).toULongLong()};
}

/// Of a process that has ended the link is gone; of a replaced file it says " (deleted)".
QString programOf(qint64 id)
{
    return QFile::symLinkTarget(entryOf(id, "exe"_L1));
}

/// Value of a variable that the process was started with; null if it has none.
QByteArray variable(const QByteArrayList &environment, QByteArrayView name)
{
    const QByteArray start = name.toByteArray() + '=';
    const auto found = std::find_if(environment.cbegin(), environment.cend(),
                                    [&start](const QByteArray &one) { return one.startsWith(start); });
    return found == environment.cend() ? QByteArray() : found->sliced(start.size());
}

QString runtimeDirectoryOf(qint64 id)
{
    QFile file(entryOf(id, "environ"_L1));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArrayList environment = file.readAll().split('\0');
    if (const QByteArray given = variable(environment, "CORVANE_RUNTIME_DIR"); !given.isEmpty()) {
        const QString folder = QFile::symLinkTarget(entryOf(id, "cwd"_L1));
        return QDir::cleanPath(QDir(folder).absoluteFilePath(QFile::decodeName(given)));
    }
    QString data = QFile::decodeName(variable(environment, "XDG_DATA_HOME"));
    if (!data.startsWith(u'/'))
        data = QFile::decodeName(variable(environment, "HOME")) + "/.local/share"_L1;
    return data.startsWith(u'/')
               ? QDir::cleanPath(u"%1/%2/%3/runtime"_s.arg(data, organizationName, applicationName))
               : QString();
}

} // namespace

QList<ProgramProcess> processesOf(const QString &path)
{
    QList<ProgramProcess> found;
    const QString program = QFileInfo(path).canonicalFilePath();
    if (program.isEmpty())
        return found;
    QList<qint64> running = allProcesses();
    running.removeIf([&program](qint64 id) { return programOf(id) != program; });
    for (const qint64 id : std::as_const(running)) {
        // The copy of a run that is about to become another program isn't a run of its own.
        const std::optional<Status> status = statusOf(id);
        if (status && !running.contains(status->parent))
            found << ProgramProcess{id, runtimeDirectoryOf(id)};
    }
    return found;
}

QList<qint64> processesWithin(const QString &folder)
{
    QList<qint64> found;
    const QString within = QFileInfo(folder).canonicalFilePath() + u'/';
    if (within.size() == 1)
        return found;
    const QList<qint64> ids = allProcesses();
    std::copy_if(ids.cbegin(), ids.cend(), std::back_inserter(found),
                 [&within](qint64 id) { return programOf(id).startsWith(within); });
    return found;
}

QStringList childrenOf(qint64 id)
{
    QList<ListedProcess> processes;
    const QList<qint64> ids = allProcesses();
    for (const qint64 one : ids) {
        if (const std::optional<Status> status = statusOf(one))
            processes << ListedProcess{one, status->parent, status->start, status->name, programOf(one)};
    }
    return childrenAmong(processes, id);
}

void endProcess(qint64 id)
{
    ::kill(static_cast<pid_t>(id), SIGKILL);
}

void startWithoutConsole(QProcess & /*process*/) {}

} // namespace corvane::guardian

#include "tools/guardian/ProgramProcesses.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <csignal>
#include <sys/types.h>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

QList<qint64> processesOf(const QString &path)
{
    QList<qint64> found;
    const QString program = QFileInfo(path).canonicalFilePath();
    const QStringList entries = QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool isNumber = false;
        const qint64 id = entry.toLongLong(&isNumber);
        // Of a process that has ended the link is gone; of a replaced file it says " (deleted)".
        if (isNumber && !program.isEmpty() &&
            QFile::symLinkTarget("/proc/"_L1 + entry + "/exe"_L1) == program)
            found << id;
    }
    return found;
}

void endProcess(qint64 id)
{
    ::kill(static_cast<pid_t>(id), SIGKILL);
}

} // namespace corvane::guardian

#include "tools/guardian/DiskSync.h"

#include <QDirIterator>
#include <QFile>
#include <QString>

#include <fcntl.h>
#include <unistd.h>

namespace corvane::guardian {

bool syncFile(QFile &file)
{
    return ::fsync(file.handle()) == 0;
}

bool syncFolder(const QString &path)
{
    const int folder = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return false;
    const bool synced = ::fsync(folder) == 0;
    ::close(folder);
    return synced;
}

bool syncFolders(const QString &path)
{
    QDirIterator folders(path, QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (folders.hasNext()) {
        if (!syncFolder(folders.next()))
            return false;
    }
    return syncFolder(path);
}

} // namespace corvane::guardian

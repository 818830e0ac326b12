#include "tools/guardian/HeldVersions.h"

#include "update/UpdateFiles.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdlib>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

bool isFolder(const QString &path)
{
    const QFileInfo at(path);
    return at.isDir() && !at.isSymLink();
}

} // namespace

bool HeldVersions::hold(const QString &version) const
{
    // The version comes from a file that anybody may have written.
    const QString name = packageFileName(version);
    if (version.isEmpty() || !isPlainFileName(name))
        return false;
    const QDir folder(updateDirectory(runtimeDirectory));
    const QString path = folder.filePath(name);
    if (isFolder(path))
        QDir().rmdir(path); // the time of a new one begins now
    else
        QFile::remove(path);
    (void)folder.mkpath(name);
    return isFolder(path);
}

bool HeldVersions::isHeld(const QString &version) const
{
    return isPlainFileName(packageFileName(version)) &&
           isFolder(updateDirectory(runtimeDirectory) + u'/' + packageFileName(version));
}

void HeldVersions::letGo(const QString &version) const
{
    if (isHeld(version))
        QDir().rmdir(updateDirectory(runtimeDirectory) + u'/' + packageFileName(version));
}

void HeldVersions::release(std::chrono::milliseconds time, const QString &exception) const
{
    const QDateTime now = QDateTime::currentDateTime();
    const QFileInfoList held = QDir(updateDirectory(runtimeDirectory))
                                   .entryInfoList({packageFileName(u"*"_s)}, QDir::Dirs | QDir::NoSymLinks);
    for (const QFileInfo &folder : held) {
        // A clock that was set back doesn't hold anything for ever.
        const qint64 age = std::abs(folder.lastModified().msecsTo(now));
        if (age >= time.count() && (exception.isEmpty() || folder.fileName() != packageFileName(exception)))
            QDir().rmdir(folder.filePath());
    }
}

} // namespace corvane::guardian

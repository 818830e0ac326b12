#include "tools/guardian/Unpack.h"

#include "tools/guardian/DiskSync.h"
#include "tools/guardian/FolderRemoval.h"
#include "tools/guardian/PackageArchive.h"
#include "tools/guardian/PrintableText.h"
#include "tools/guardian/WriteAll.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

/// One file's content, which has to be as long as was announced.
QString writeContent(const PackageArchive &archive, qsizetype index, const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
        return u"can't be written: %1"_s.arg(file.errorString());
    QString problem = archive.read(index, [&file](QByteArrayView piece) {
        const QString error = writeAll(file, piece);
        return error.isEmpty() ? QString() : u"can't be written: %1"_s.arg(error);
    });
    if (problem.isEmpty() && !syncFile(file))
        problem = u"can't be written: %1"_s.arg(qt_error_string());
    return problem;
}

/// Nobody but the installation's owner writes to it; what else a packer has set (set-user-id, sticky) is
/// left.
bool setPermissions(const QString &path, bool executable)
{
    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser |
                                     QFile::WriteUser | QFile::ReadGroup | QFile::ReadOther;
    if (executable)
        permissions |= QFile::ExeOwner | QFile::ExeUser | QFile::ExeGroup | QFile::ExeOther;
    return QFile::setPermissions(path, permissions);
}

QString unpackEntries(const PackageArchive &archive, const QDir &target, const QByteArray &program)
{
    for (qsizetype i = 0; i < archive.entries().size(); ++i) {
        const PackageEntry &entry = archive.entries()[i];
        const QString path = target.filePath(QString::fromUtf8(entry.name));
        QString problem;
        if (!QDir().mkpath(entry.isFolder() ? path : QFileInfo(path).path()))
            problem = u"has a folder that can't be made"_s;
        else if (!entry.isFolder())
            problem = writeContent(archive, i, path);
        if (problem.isEmpty() && !entry.isFolder() &&
            !setPermissions(path, entry.isExecutable() || entry.name == program)) {
            problem = u"can't be given its permissions"_s;
        }
        if (!problem.isEmpty())
            return u"its entry “%1” %2"_s.arg(printable(QString::fromUtf8(entry.name)), problem);
    }
    return {};
}

} // namespace

QString unpack(const QString &package, const QString &target, const QString &program,
               const PackageLimits &limits)
{
    const PackageArchive archive(package, program, limits);
    if (!archive.error().isEmpty())
        return archive.error();
    if (isTaken(target) || !QDir().mkpath(target))
        return u"the folder %1 exists or can't be made"_s.arg(target);
    QString error = unpackEntries(archive, QDir(target), program.toUtf8());
    if (error.isEmpty() && !syncFolders(target))
        error = u"the folder %1 can't be brought to the disk"_s.arg(target);
    if (!error.isEmpty())
        (void)removeTree(target);
    return error;
}

} // namespace corvane::guardian

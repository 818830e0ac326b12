#include "tools/guardian/OwnFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

QString makeOwnFolder(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    QDir().mkpath(QFileInfo(path).path());
    if (::mkdir(name.constData(), S_IRWXU) != 0 && errno != EEXIST)
        return u"it can't be made: %1"_s.arg(qt_error_string(errno));
    struct stat status = {};
    if (::lstat(name.constData(), &status) != 0)
        return qt_error_string(errno);
    if (S_ISLNK(status.st_mode))
        return u"it is a link"_s;
    if (!S_ISDIR(status.st_mode))
        return u"it is no folder"_s;
    if (status.st_uid != ::geteuid())
        return u"it belongs to another user"_s;
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        return u"it is open to others than its owner: take their rights away (chmod 700)"_s;
    return {};
}

bool belongsToAnother(const QString &path)
{
    struct stat status = {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 && status.st_uid != ::geteuid();
}

} // namespace corvane::guardian

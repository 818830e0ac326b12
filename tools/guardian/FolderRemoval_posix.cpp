#include "tools/guardian/FolderRemoval.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

struct CloseFolder
{
    void operator()(DIR *folder) const { ::closedir(folder); }
};

QString failure(const char *name)
{
    return u"“%1” can't be removed: %2"_s.arg(QFile::decodeName(name), qt_error_string(errno));
}

/// The entry `name` of the open folder `parent`, with all below it. `device` is the file system to stay on.
QString removeEntry(int parent, const char *name, dev_t device)
{
    struct stat status = {};
    if (::fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? QString() : failure(name);
    if (!S_ISDIR(status.st_mode))
        return ::unlinkat(parent, name, 0) == 0 ? QString() : failure(name);
    if (status.st_dev != device)
        return u"“%1” belongs to another file system"_s.arg(QFile::decodeName(name));

    const int descriptor = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return failure(name);
    (void)::fchmod(descriptor, S_IRWXU); // of a folder that is only read nothing could be removed
    const std::unique_ptr<DIR, CloseFolder> folder(::fdopendir(descriptor));
    if (!folder) {
        ::close(descriptor);
        return failure(name);
    }
    while (const dirent *entry = ::readdir(folder.get())) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        if (QString error = removeEntry(descriptor, entry->d_name, device); !error.isEmpty())
            return error;
    }
    return ::unlinkat(parent, name, AT_REMOVEDIR) == 0 ? QString() : failure(name);
}

} // namespace

QString removeTree(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat status = {};
    if (::lstat(name.constData(), &status) != 0)
        return errno == ENOENT ? QString() : failure(name.constData());
    return removeEntry(AT_FDCWD, name.constData(), status.st_dev);
}

} // namespace corvane::guardian

#include "tools/guardian/RegularFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

RegularFile openRegularFile(const QString &path, qint64 largest)
{
    const int descriptor = ::open(QFile::encodeName(path).constData(),
                                  O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0) {
        // The error of open() for a link that it doesn't follow sounds like a loop of links.
        return {nullptr, false, errno == ELOOP ? u"it is a link"_s : qt_error_string(errno)};
    }
    RegularFile opened{std::make_unique<QFile>(), false, {}};
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0)
        opened.error = qt_error_string(errno);
    else if (!S_ISREG(status.st_mode))
        opened.error = u"it is no regular file"_s;
    else if (status.st_size > largest)
        opened.error = u"it is longer than %1 bytes"_s.arg(largest);
    if (opened.error.isEmpty() &&
        !opened.file->open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
        opened.error = opened.file->errorString();
    if (!opened.error.isEmpty()) {
        ::close(descriptor);
        return {nullptr, false, opened.error};
    }
    opened.isOwn = status.st_uid == ::geteuid();
    return opened;
}

} // namespace corvane::guardian

#include "tools/guardian/DirectoryMoves.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>

namespace corvane::guardian {

ExchangeResult exchangeFolders(const QString &one, const QString &other)
{
    if (::renameat2(AT_FDCWD, QFile::encodeName(one).constData(), AT_FDCWD,
                    QFile::encodeName(other).constData(), RENAME_EXCHANGE) == 0) {
        return {ExchangeResult::Exchanged, {}};
    }
    if (errno == EINVAL || errno == ENOSYS)
        return {ExchangeResult::NotSupported, {}};
    return {ExchangeResult::Failed, qt_error_string(errno)};
}

QString moveFolder(const QString &from, const QString &to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    // Not rename(): that would replace an empty folder without a word.
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return {};
    if (errno == EINVAL || errno == ENOSYS) {
        if (QFile::exists(to))
            errno = EEXIST;
        else if (::rename(source.constData(), target.constData()) == 0)
            return {};
    }
    return qt_error_string(errno);
}

} // namespace corvane::guardian

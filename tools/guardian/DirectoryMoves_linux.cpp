#include "tools/guardian/DirectoryMoves.h"

#include <QFile>
#include <QString>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>

namespace corvane::guardian {

ExchangeResult exchangeFolders(const QString &one, const QString &other)
{
    if (::renameat2(AT_FDCWD, QFile::encodeName(one).constData(), AT_FDCWD,
                    QFile::encodeName(other).constData(), RENAME_EXCHANGE) == 0) {
        return ExchangeResult::Exchanged;
    }
    return errno == EINVAL || errno == ENOSYS ? ExchangeResult::NotSupported : ExchangeResult::Failed;
}

bool moveFolder(const QString &from, const QString &to)
{
    // Not rename(): that would replace an empty folder without a word.
    if (::renameat2(AT_FDCWD, QFile::encodeName(from).constData(), AT_FDCWD,
                    QFile::encodeName(to).constData(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    return (errno == EINVAL || errno == ENOSYS) && !QFile::exists(to) &&
           ::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

} // namespace corvane::guardian

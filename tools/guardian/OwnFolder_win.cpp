#include "tools/guardian/OwnFolder.h"

#include <QDir>

#include <windows.h>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

QString makeOwnFolder(const QString &path)
{
    const QString native = QDir::toNativeSeparators(path);
    const auto *name = reinterpret_cast<const wchar_t *>(native.utf16());
    if (::CreateDirectoryW(name, nullptr) == 0 && ::GetLastError() != ERROR_ALREADY_EXISTS) {
        if (::GetLastError() != ERROR_PATH_NOT_FOUND || !QDir().mkpath(path))
            return u"it can't be made: %1"_s.arg(qt_error_string(static_cast<int>(::GetLastError())));
    }
    const DWORD attributes = ::GetFileAttributesW(name);
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return qt_error_string(static_cast<int>(::GetLastError()));
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        return u"it is a link"_s;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        return u"it is no folder"_s;
    return {};
}

bool belongsToAnother(const QString & /*path*/)
{
    return false;
}

} // namespace corvane::guardian

#include "tools/guardian/DirectoryMoves.h"

#include <QDir>
#include <QString>

#include <windows.h>

namespace corvane::guardian {

namespace {

constexpr int attempts = 20;
constexpr DWORD pauseMs = 250;

const wchar_t *native(const QString &path)
{
    return reinterpret_cast<const wchar_t *>(path.utf16());
}

} // namespace

ExchangeResult exchangeFolders(const QString & /*one*/, const QString & /*other*/)
{
    return ExchangeResult::NotSupported;
}

bool moveFolder(const QString &from, const QString &to)
{
    const QString source = QDir::toNativeSeparators(from);
    const QString target = QDir::toNativeSeparators(to);
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (::MoveFileExW(native(source), native(target), MOVEFILE_WRITE_THROUGH) != 0)
            return true;
        const DWORD error = ::GetLastError();
        if (error != ERROR_ACCESS_DENIED && error != ERROR_SHARING_VIOLATION)
            return false;
        ::Sleep(pauseMs);
    }
    return false;
}

} // namespace corvane::guardian

#include "tools/guardian/DirectoryMoves.h"

#include <QDir>

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
    return {ExchangeResult::NotSupported, {}};
}

QString moveFolder(const QString &from, const QString &to)
{
    const QString source = QDir::toNativeSeparators(from);
    const QString target = QDir::toNativeSeparators(to);
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (::MoveFileExW(native(source), native(target), MOVEFILE_WRITE_THROUGH) != 0)
            return {};
        const DWORD error = ::GetLastError();
        if (error != ERROR_ACCESS_DENIED && error != ERROR_SHARING_VIOLATION)
            return qt_error_string(static_cast<int>(error));
        ::Sleep(pauseMs);
    }
    return qt_error_string(ERROR_SHARING_VIOLATION);
}

} // namespace corvane::guardian

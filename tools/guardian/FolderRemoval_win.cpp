#include "tools/guardian/FolderRemoval.h"

#include <QDir>

#include <windows.h>

#include <string>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

QString failure(const std::wstring &path)
{
    const auto code = static_cast<int>(::GetLastError());
    return u"“%1” can't be removed: %2"_s.arg(QString::fromStdWString(path), qt_error_string(code));
}

QString removePath(const std::wstring &path, DWORD attributes)
{
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0)
        (void)::SetFileAttributesW(path.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    // Of a link or a junction either call removes the link itself.
    if (isFolder && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
        WIN32_FIND_DATAW entry{};
        const HANDLE search = ::FindFirstFileW((path + L"\\*").c_str(), &entry);
        if (search == INVALID_HANDLE_VALUE)
            return failure(path);
        QString error;
        do {
            const std::wstring name = entry.cFileName;
            if (name != L"." && name != L"..")
                error = removePath(path + L'\\' + name, entry.dwFileAttributes);
        } while (error.isEmpty() && ::FindNextFileW(search, &entry) != 0);
        ::FindClose(search);
        if (!error.isEmpty())
            return error;
    }
    const BOOL removed = isFolder ? ::RemoveDirectoryW(path.c_str()) : ::DeleteFileW(path.c_str());
    return removed != 0 ? QString() : failure(path);
}

} // namespace

QString removeTree(const QString &path)
{
    const std::wstring name = QDir::toNativeSeparators(path).toStdWString();
    const DWORD attributes = ::GetFileAttributesW(name.c_str());
    return attributes == INVALID_FILE_ATTRIBUTES ? QString() : removePath(name, attributes);
}

} // namespace corvane::guardian

#include "tools/guardian/RegularFile.h"

#include <QDir>

#include <windows.h>

#include <fcntl.h>
#include <io.h>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

RegularFile openRegularFile(const QString &path, qint64 largest)
{
    const QString native = QDir::toNativeSeparators(path);
    // The program goes on writing and replacing it meanwhile.
    const HANDLE handle =
        ::CreateFileW(reinterpret_cast<const wchar_t *>(native.utf16()), GENERIC_READ,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                      FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS | SECURITY_SQOS_PRESENT |
                          SECURITY_ANONYMOUS,
                      nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return {nullptr, false, qt_error_string(static_cast<int>(::GetLastError()))};

    QString error;
    BY_HANDLE_FILE_INFORMATION about{};
    if (::GetFileType(handle) != FILE_TYPE_DISK)
        error = u"it is no regular file"_s;
    else if (::GetFileInformationByHandle(handle, &about) == 0)
        error = qt_error_string(static_cast<int>(::GetLastError()));
    else if ((about.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        error = u"it is a link"_s;
    else if ((about.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        error = u"it is no regular file"_s;
    else if (static_cast<qint64>((quint64{about.nFileSizeHigh} << 32U) | about.nFileSizeLow) > largest)
        error = u"it is longer than %1 bytes"_s.arg(largest);
    if (!error.isEmpty()) {
        ::CloseHandle(handle);
        return {nullptr, false, error};
    }
    const int descriptor = ::_open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_RDONLY | _O_BINARY);
    RegularFile opened{std::make_unique<QFile>(), true, {}};
    if (descriptor < 0 || !opened.file->open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::CloseHandle(handle);
        return {nullptr, false, u"it can't be read"_s};
    }
    return opened;
}

} // namespace corvane::guardian

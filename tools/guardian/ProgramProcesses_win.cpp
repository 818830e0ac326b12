#include "tools/guardian/ProgramProcesses.h"

#include <QDir>
#include <QFileInfo>
#include <QString>

#include <windows.h>

#include <tlhelp32.h>

#include <array>
#include <memory>
#include <type_traits>

namespace corvane::guardian {

namespace {

struct CloseIt
{
    void operator()(HANDLE handle) const { ::CloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseIt>;

QString programOf(DWORD id)
{
    const Handle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    std::array<wchar_t, 32768> path{};
    DWORD size = static_cast<DWORD>(path.size());
    if (!process || ::QueryFullProcessImageNameW(process.get(), 0, path.data(), &size) == 0)
        return {};
    return QDir::fromNativeSeparators(QString::fromWCharArray(path.data(), static_cast<qsizetype>(size)));
}

} // namespace

QList<qint64> processesOf(const QString &path)
{
    QList<qint64> found;
    const QString program = QFileInfo(path).canonicalFilePath();
    const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE)
        return found;
    const Handle closed(snapshot);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Process32FirstW(snapshot, &entry); more != 0;
         more = ::Process32NextW(snapshot, &entry)) {
        // The name first: opening every process of the machine isn't for free.
        if (!program.endsWith(QString::fromWCharArray(entry.szExeFile), Qt::CaseInsensitive))
            continue;
        if (programOf(entry.th32ProcessID).compare(program, Qt::CaseInsensitive) == 0)
            found << static_cast<qint64>(entry.th32ProcessID);
    }
    return found;
}

void endProcess(qint64 id)
{
    const Handle process(::OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(id)));
    if (process)
        ::TerminateProcess(process.get(), 1);
}

} // namespace corvane::guardian

#include "tests/support/Processes.h"

#include <QCoreApplication>
#include <QDir>

#include <memory>
#include <vector>

#include <windows.h>

#include <shellapi.h>
#include <tlhelp32.h>
#include <winternl.h>

namespace corvane::test {

namespace {

constexpr int killed = 0xf291; // the code with which QProcess ends a process here

struct Closed
{
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, Closed>;

Handle openProcess(qint64 pid, DWORD access)
{
    return Handle(OpenProcess(access, FALSE, static_cast<DWORD>(pid)));
}

/// A snapshot of the system's processes or threads.
Handle snapshot(DWORD what)
{
    const HANDLE handle = CreateToolhelp32Snapshot(what, 0);
    return Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

} // namespace

bool processExists(qint64 pid)
{
    const Handle process = openProcess(pid, SYNCHRONIZE);
    return process && WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

int killedExitCode()
{
    return killed;
}

int crashedExitCode()
{
    return static_cast<int>(STATUS_ACCESS_VIOLATION);
}

bool startsAtOnce()
{
    return true;
}

QString pathForCopies(const QString &directory)
{
    return QDir::toNativeSeparators(directory) + QDir::listSeparator() +
           QDir::toNativeSeparators(QCoreApplication::applicationDirPath());
}

QByteArray ownWords(const QByteArray &standardError)
{
    QByteArray words;
    for (const QByteArray &line : QByteArray(standardError).replace("\r\n", "\n").split('\n')) {
        const bool ofWine = line.startsWith("qt.qpa.screen: \"Unable to open monitor interface") ||
                            line.startsWith("EnableNonClientDpiScaling() failed");
        if (!ofWine)
            words += line + '\n';
    }
    words.chop(1); // the part after the last line feed is no line
    return words;
}

void suspendProcess(qint64 pid)
{
    const Handle threads = snapshot(TH32CS_SNAPTHREAD);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(threads.get(), &entry); more; more = Thread32Next(threads.get(), &entry)) {
        if (entry.th32OwnerProcessID != static_cast<DWORD>(pid))
            continue;
        if (const Handle thread{OpenThread(THREAD_SUSPEND_RESUME, FALSE, entry.th32ThreadID)})
            SuspendThread(thread.get());
    }
}

bool resetsAreTold()
{
    return !GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version");
}

bool sendsWithoutLimit()
{
    return true;
}

bool signalsCanBeSent()
{
    return false;
}

void sendSignal(qint64 /*pid*/, int /*signal*/) {}

int seenExitCode(int code)
{
    return code;
}

void killProcess(qint64 pid)
{
    if (const Handle process = openProcess(pid, PROCESS_TERMINATE))
        TerminateProcess(process.get(), killed);
}

QList<qint64> childProcesses(qint64 parent)
{
    parent = parent == 0 ? GetCurrentProcessId() : parent;
    QList<qint64> children;
    const Handle processes = snapshot(TH32CS_SNAPPROCESS);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(processes.get(), &entry); more;
         more = Process32NextW(processes.get(), &entry)) {
        if (entry.th32ParentProcessID == parent)
            children << entry.th32ProcessID;
    }
    return children;
}

QStringList processCommand(qint64 pid)
{
    const Handle process = openProcess(pid, PROCESS_QUERY_LIMITED_INFORMATION);
    if (!process || !processExists(pid))
        return {};
    constexpr auto commandLine = static_cast<PROCESSINFOCLASS>(60); // ProcessCommandLineInformation
    ULONG size = 0;
    NtQueryInformationProcess(process.get(), commandLine, nullptr, 0, &size);
    std::vector<std::byte> buffer(size);
    if (size < sizeof(UNICODE_STRING) ||
        NtQueryInformationProcess(process.get(), commandLine, buffer.data(), size, &size) != 0)
        return {};
    const auto *text = reinterpret_cast<const UNICODE_STRING *>(buffer.data());
    const std::wstring line(text->Buffer, text->Length / sizeof(wchar_t));

    QStringList words;
    int count = 0;
    LPWSTR *const parts = CommandLineToArgvW(line.c_str(), &count);
    for (int i = 0; i < count; ++i)
        words << QString::fromWCharArray(parts[i]);
    LocalFree(parts);
    return words;
}

qsizetype openDescriptors()
{
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return count;
}

} // namespace corvane::test

#include "app/CrashReport.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <initializer_list>

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <windows.h>

#include <dbghelp.h>

namespace corvane::CrashReport {

namespace {

constexpr int permissions = 0644;

void onSignal(int signal)
{
    append(reasonOf(signal), signal);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

[[noreturn]] void onTerminate()
{
    append("std::terminate (exceção não capturada)", 0);
    std::abort();
}

void writeText(int file, const char *text)
{
    write(file, text, std::strlen(text));
}

void appendException(const EXCEPTION_POINTERS *exception)
{
    const int file = openForAppend(crashLogPath);
    if (file < 0)
        return;
    writeText(file, "=== CORVANE CRASH (Windows SEH) ===\n");
    if (exception && exception->ExceptionRecord) {
        char line[160];
        std::snprintf(line, sizeof line, "code=0x%08lX address=0x%p\n",
                      exception->ExceptionRecord->ExceptionCode,
                      exception->ExceptionRecord->ExceptionAddress);
        writeText(file, line);
    }
    writeText(file, "=== end ===\n");
    close(file);
}

void writeDump(EXCEPTION_POINTERS *exception)
{
    if (crashDumpPath[0] == '\0')
        return;
    const HANDLE file =
        CreateFileA(crashDumpPath, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return;
    MINIDUMP_EXCEPTION_INFORMATION information{};
    information.ThreadId = GetCurrentThreadId();
    information.ExceptionPointers = exception;
    information.ClientPointers = FALSE;
    MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal,
                      exception ? &information : nullptr, nullptr, nullptr);
    CloseHandle(file);
}

/// Exception filter. On every path the process ends here, without a dialog of the system.
LONG WINAPI onException(EXCEPTION_POINTERS *exception)
{
    appendException(exception);
    writeDump(exception);
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace

void installHandlers()
{
    for (const int signal : {SIGSEGV, SIGABRT, SIGFPE, SIGILL})
        std::signal(signal, onSignal);
    std::set_terminate(onTerminate);
    SetUnhandledExceptionFilter(onException);
}

int openForAppend(const char *path)
{
    return _open(path, _O_WRONLY | _O_APPEND | _O_CREAT | _O_BINARY, permissions);
}

void write(int file, const char *text, std::size_t size)
{
    _write(file, text, static_cast<unsigned>(size));
}

void close(int file)
{
    _close(file);
}

void writeSentinel()
{
    const int file = _open(runningPath, _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY, permissions);
    if (file < 0)
        return;
    write(file, "running\n", 8);
    close(file);
}

bool exists(const char *path)
{
    struct _stat64i32 status
    {
    };
    return _stat64i32(path, &status) == 0;
}

void remove(const char *path)
{
    _unlink(path);
}

} // namespace corvane::CrashReport

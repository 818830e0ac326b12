#include "tools/guardian/EndMessage.h"
#include "tools/guardian/Front.h"
#include "tools/guardian/PrintableText.h"
#include "tools/guardian/ProgramProcesses.h"

#include <QDir>

#include <windows.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace corvane::guardian::front {

namespace {

const wchar_t *wide(const QString &text)
{
    return reinterpret_cast<const wchar_t *>(text.utf16());
}

void show(const QString &text, UINT icon)
{
    ::MessageBoxW(nullptr, wide(text), L"CORVANE", MB_OK | MB_SETFOREGROUND | icon);
}

/// Search for a window that one of these processes shows in the task list.
struct WindowSearch
{
    QList<ProgramProcess> processes;
    HWND found = nullptr;
};

BOOL CALLBACK lookAtWindow(HWND window, LPARAM data)
{
    auto *search = reinterpret_cast<WindowSearch *>(data);
    DWORD process = 0;
    ::GetWindowThreadProcessId(window, &process);
    const bool isTheirs =
        std::any_of(search->processes.cbegin(), search->processes.cend(),
                    [process](const ProgramProcess &one) { return one.id == static_cast<qint64>(process); });
    if (!isTheirs || ::IsWindowVisible(window) == 0 || ::GetWindow(window, GW_OWNER) != nullptr ||
        ::GetWindowTextLengthW(window) == 0)
        return TRUE;
    search->found = window;
    return FALSE;
}

bool raiseWindow(const QString &program)
{
    WindowSearch search{processesOf(program)};
    ::EnumWindows(&lookAtWindow, reinterpret_cast<LPARAM>(&search));
    if (search.found == nullptr)
        return false;
    if (::IsIconic(search.found) != 0)
        ::ShowWindow(search.found, SW_RESTORE);
    ::SetForegroundWindow(search.found);
    return true;
}

bool isUsable(HANDLE handle)
{
    return handle != nullptr && handle != INVALID_HANDLE_VALUE &&
           (::GetFileType(handle) != FILE_TYPE_UNKNOWN || ::GetLastError() == NO_ERROR);
}

} // namespace

// A start from the desktop gives no standard handles, or some that are none. The program's output is handed
// on to them.
void prepare()
{
    for (const DWORD which : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
        if (isUsable(::GetStdHandle(which)))
            continue;
        SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
        const HANDLE nowhere =
            ::CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                          &inherited, OPEN_EXISTING, 0, nullptr);
        ::SetStdHandle(which, nowhere == INVALID_HANDLE_VALUE ? nullptr : nowhere);
    }
}

void help(const QString &text)
{
    show(text, MB_ICONINFORMATION);
}

void line(const QString & /*text*/) {}

void refusal(ExitCode code, const QString &why)
{
    show(endMessage(code, printable(why), {}), MB_ICONERROR);
}

// A second start is how people look for a window that they don't see.
void alreadyGuarded(const Installation &installation, const QString & /*folder*/)
{
    if (!raiseWindow(installation.programPath()))
        show(u"O CORVANE já está aberto, ou está sendo atualizado neste momento."_s, MB_ICONINFORMATION);
}

void end(ExitCode code, const QString &lastLine, const QString &log)
{
    const QString message = endMessage(code, lastLine, log);
    if (!message.isEmpty())
        show(message, MB_ICONERROR);
}

} // namespace corvane::guardian::front

#include "tests/children/FakeChild.h"

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <io.h>
#include <process.h>

#include <windows.h>

namespace corvane::fake {

namespace {

std::function<void()> terminateHandler;

LRESULT CALLBACK onMessage(HWND window, UINT message, WPARAM word, LPARAM value)
{
    if (message != WM_CLOSE)
        return DefWindowProcW(window, message, word, value);
    terminateHandler();
    return 0;
}

HWND makeHiddenWindow()
{
    WNDCLASSW look{};
    look.lpfnWndProc = onMessage;
    look.hInstance = GetModuleHandleW(nullptr);
    look.lpszClassName = L"corvane-fake";
    RegisterClassW(&look);
    return CreateWindowW(look.lpszClassName, L"", WS_OVERLAPPED, 0, 0, 1, 1, nullptr, nullptr, look.hInstance,
                         nullptr);
}

} // namespace

long processId()
{
    return _getpid();
}

void crash()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    RaiseException(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), EXCEPTION_NONCONTINUABLE, 0, nullptr);
    std::abort();
}

void useBinaryStreams()
{
    _setmode(_fileno(stderr), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}

// A request to terminate closes the windows of a process: this one has an invisible window to receive it.
void onTerminate(std::function<void()> handler, bool window)
{
    if (!window)
        return;
    terminateHandler = std::move(handler);
    std::mutex mutex;
    std::condition_variable changed;
    bool ready = false;
    std::thread([&] {
        makeHiddenWindow();
        {
            const std::lock_guard lock(mutex);
            ready = true;
            changed.notify_one(); // under the lock: its subject is gone as soon as the other thread goes on
        }
        MSG message;
        while (GetMessageW(&message, nullptr, 0, 0) > 0)
            DispatchMessageW(&message);
    }).detach();
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return ready; });
}

} // namespace corvane::fake

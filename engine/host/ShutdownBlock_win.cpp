#include "engine/host/ShutdownBlock_win.h"

#include "engine/host/ShutdownBlock.h"

#include <utility>
#include <vector>

#include <windows.h>

namespace corvane {

int(__stdcall *shutdownBlockReasonCreate)(HWND__ *, const wchar_t *) = &ShutdownBlockReasonCreate;
int(__stdcall *shutdownBlockReasonDestroy)(HWND__ *) = &ShutdownBlockReasonDestroy;

namespace {

std::vector<HWND> blocking; ///< windows with a reason

BOOL CALLBACK addReason(HWND window, LPARAM /*parameter*/)
{
    // A window that belongs to another is not asked by itself.
    if (IsWindowVisible(window) && !GetWindow(window, GW_OWNER) &&
        shutdownBlockReasonCreate(window, L"Transmiss\u00e3o no ar"))
        blocking.push_back(window);
    return TRUE;
}

} // namespace

void blockShutdown()
{
    if (blocking.empty())
        EnumThreadWindows(GetCurrentThreadId(), addReason, 0);
}

void allowShutdown()
{
    for (const HWND window : std::exchange(blocking, {}))
        shutdownBlockReasonDestroy(window);
}

} // namespace corvane

#pragma once

struct HWND__;

namespace corvane {

/// The system's ShutdownBlockReasonCreate and ShutdownBlockReasonDestroy, by which ShutdownBlock.h makes and
/// lifts its request. Only a test replaces them.
extern int(__stdcall *shutdownBlockReasonCreate)(HWND__ *window, const wchar_t *reason);
extern int(__stdcall *shutdownBlockReasonDestroy)(HWND__ *window);

} // namespace corvane

#include "engine/host/KeepAwake_win.h"

#include "engine/host/KeepAwake.h"

#include <windows.h>

namespace corvane {

unsigned long(__stdcall *setThreadExecutionState)(unsigned long) = &SetThreadExecutionState;

// The continuous flag lasts until it is cleared, so the request isn't renewed.

void preventSleep()
{
    setThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED | ES_DISPLAY_REQUIRED);
}

void allowSleep()
{
    setThreadExecutionState(ES_CONTINUOUS);
}

} // namespace corvane

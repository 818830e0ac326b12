#include "engine/host/KeepAwake.h"

#include <windows.h>

namespace corvane {

// The continuous flag lasts until it is cleared, so the request isn't renewed.

void preventSleep()
{
    SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED | ES_DISPLAY_REQUIRED);
}

void allowSleep()
{
    SetThreadExecutionState(ES_CONTINUOUS);
}

} // namespace corvane

#include "ndi/ThreadPriority.h"

#include <windows.h>

namespace corvane {

void makeThreadTimeCritical()
{
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
}

} // namespace corvane

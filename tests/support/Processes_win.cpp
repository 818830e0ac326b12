#include "tests/support/Processes.h"

#include <windows.h>

namespace corvane::test {

bool processExists(qint64 pid)
{
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(pid));
    if (!process)
        return false;
    const bool alive = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return alive;
}

int killedExitCode()
{
    return 0xf291; // the code with which QProcess ends a process here
}

int crashedExitCode()
{
    return 3; // what the C run-time leaves with on a raised signal
}

} // namespace corvane::test

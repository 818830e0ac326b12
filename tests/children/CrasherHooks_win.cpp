#include "tests/children/CrasherHooks.h"

#include <string>

#include <windows.h>

namespace corvane::crasher {

void limitResources()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX); // nobody is there to close a dialog
}

void writeToNull()
{
    volatile int *volatile nowhere = nullptr;
    *nowhere = 1;
}

void divideByZero()
{
    volatile int zero = 0;
    volatile int number = 7;
    volatile int result = number / zero;
    static_cast<void>(result);
}

void runIllegalInstruction()
{
    __builtin_trap();
}

void dieLikeHere(std::string_view death)
{
    constexpr std::string_view exception = "exception=";
    if (death.starts_with(exception)) {
        const std::string code(death.substr(exception.size()));
        RaiseException(std::stoul(code, nullptr, 16), EXCEPTION_NONCONTINUABLE, 0, nullptr);
    } else if (death == "bare-thread") {
        const auto run = [](LPVOID) -> DWORD {
            writeToNull();
            return 0;
        };
        WaitForSingleObject(CreateThread(nullptr, 0, run, nullptr, 0, nullptr), INFINITE);
    }
}

void lockHeap()
{
    HeapLock(GetProcessHeap());
}

// The C run-time's own allocations can't be distinguished from those of the handlers here.
void watchHeap() {}

void markPieces() {}

void callBeforePiece(int /*number*/, void (* /*function*/)()) {}

} // namespace corvane::crasher

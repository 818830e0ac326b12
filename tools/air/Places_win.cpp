#include "tools/air/Places.h"

#include "tools/air/Child_win.h"
#include "tools/air/Text_win.h"

#include <windows.h>

namespace corvane::air {

const char *const programFile = "corvane.exe";
const char *const companionFile = "ffmpeg.exe";
// The system keeps the file of a program that runs.
const char *const hintOfUse = " (feche o CORVANE antes)";

std::filesystem::path ownFolder()
{
    return std::filesystem::path(ownPath()).parent_path();
}

void printText(const std::string &text, bool toError)
{
    const HANDLE stream = GetStdHandle(toError ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
    const std::wstring wide = widen(text);
    DWORD written = 0;
    if (!WriteConsoleW(stream, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr))
        writeAll(stream, text); // not a console
}

} // namespace corvane::air

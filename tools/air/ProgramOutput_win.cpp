#include "tools/air/ProgramOutput.h"

#include "tools/air/Child_win.h"

#include <windows.h>

#include <array>

namespace corvane::air {

std::string programOutput(const std::vector<std::string> &call)
{
    PipeEnds pipe;
    SECURITY_ATTRIBUTES shared{sizeof shared, nullptr, TRUE};
    const Handle nothing(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                     &shared, OPEN_EXISTING, 0, nullptr));
    if (!pipe.open())
        return {};
    shareWithChildren(pipe.to.get(), true);
    Child child;
    const bool runs = child.start(call.front(), {call.begin() + 1, call.end()},
                                  {nothing.get(), pipe.to.get(), nothing.get()});
    pipe.to.close();

    std::string output;
    std::array<char, 4096> bytes{};
    DWORD size = 0;
    while (runs && ReadFile(pipe.from.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &size, nullptr))
        output.append(bytes.data(), size);
    if (runs)
        static_cast<void>(child.wait());
    return output;
}

} // namespace corvane::air

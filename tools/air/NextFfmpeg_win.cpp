#include "tools/air/NextFfmpeg.h"

#include "tools/air/Text_win.h"

#include <windows.h>

#include <algorithm>

namespace corvane::air {

namespace {

// Files that have handed this call on already, as ",volume:index," each. By its name in the file, byte for
// byte, isCompanion knows a companion.
constexpr auto passedVariable = "CORVANE_AIR_PASSED";

std::wstring identity(const std::wstring &path)
{
    const HANDLE file = CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return {};
    BY_HANDLE_FILE_INFORMATION information{};
    const bool known = GetFileInformationByHandle(file, &information);
    CloseHandle(file);
    if (!known)
        return {};
    return L',' + std::to_wstring(information.dwVolumeSerialNumber) + L':' +
           std::to_wstring(information.nFileIndexHigh) + L'.' + std::to_wstring(information.nFileIndexLow) +
           L',';
}

/// One folder of PATH, which may stand in quotation marks.
std::wstring unquoted(std::wstring folder)
{
    std::erase(folder, L'"');
    return folder;
}

} // namespace

std::string nextFfmpeg(bool (*passOver)(const std::string &file))
{
    const std::wstring variable = widen(passedVariable);
    const std::wstring passed = environment(variable.c_str()) + identity(ownPath());
    SetEnvironmentVariableW(variable.c_str(), passed.c_str());

    const std::wstring path = environment(L"PATH");
    for (std::size_t from = 0; from < path.size();) {
        const std::size_t to = std::min(path.find(L';', from), path.size());
        const std::wstring folder = unquoted(path.substr(from, to - from));
        from = to + 1;
        if (folder.empty())
            continue;
        const std::wstring candidate = folder + L"\\ffmpeg.exe";
        const std::wstring id = identity(candidate);
        if (id.empty() || passed.find(id) != std::wstring::npos)
            continue;
        if (std::string file = narrow(candidate); !passOver || !passOver(file))
            return file;
    }
    return {};
}

} // namespace corvane::air

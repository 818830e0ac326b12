// Hands the call on to the next ffmpeg.exe of PATH as a child in a job object: the child dies with this
// process, takes its standard streams and gives its exit code.

#include "tools/air/TeeRewrite.h"

#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr int notFound = 127;
constexpr auto passedVariable = L"CORVANE_AIR_PASSED";

std::string narrow(const std::wstring &text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                         nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(), size, nullptr,
                        nullptr);
    return bytes;
}

std::wstring widen(const std::string &bytes)
{
    const int size =
        MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
    std::wstring text(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), text.data(), size);
    return text;
}

std::wstring environment(const wchar_t *name)
{
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

/// ",volume:index," of the file at `path`; empty if there is none.
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

std::wstring ownPath()
{
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

std::wstring nextFfmpeg(const std::wstring &passed)
{
    const std::wstring path = environment(L"PATH");
    for (std::size_t from = 0; from < path.size();) {
        const std::size_t to = std::min(path.find(L';', from), path.size());
        const std::wstring candidate = path.substr(from, to - from) + L"\\ffmpeg.exe";
        const std::wstring id = identity(candidate);
        if (!id.empty() && passed.find(id) == std::wstring::npos)
            return candidate;
        from = to + 1;
    }
    return {};
}

/// One argument as the C runtime of the child reads it back.
std::wstring quoted(const std::wstring &argument)
{
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos)
        return argument;
    std::wstring result = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"')
            result.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        result += c;
    }
    return result.append(backslashes, L'\\') + L'"';
}

void say(const std::string &line)
{
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), line.data(), static_cast<DWORD>(line.size()), &written,
              nullptr);
}

} // namespace

int wmain(int argc, wchar_t *argv[])
{
    const std::wstring passed = environment(passedVariable) + identity(ownPath());
    const std::wstring ffmpeg = nextFfmpeg(passed);
    if (ffmpeg.empty()) {
        say("[air] nenhum outro ffmpeg no PATH\n");
        return notFound;
    }
    SetEnvironmentVariableW(passedVariable, passed.c_str());

    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i)
        arguments.push_back(narrow(argv[i]));
    std::wstring command = quoted(ffmpeg);
    for (const std::string &argument : corvane::air::rewriteTee(std::move(arguments)))
        command += L' ' + quoted(widen(argument));

    const HANDLE job = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION child{};
    if (!CreateProcessW(ffmpeg.c_str(), command.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                        nullptr, &startup, &child)) {
        say("[air] " + narrow(ffmpeg) + ": error " + std::to_string(GetLastError()) + '\n');
        return notFound;
    }
    AssignProcessToJobObject(job, child.hProcess);
    ResumeThread(child.hThread);
    WaitForSingleObject(child.hProcess, INFINITE);
    DWORD code = notFound;
    GetExitCodeProcess(child.hProcess, &code);
    return static_cast<int>(code);
}

#include "tools/air/Child_win.h"

#include "tools/air/Text_win.h"

#include <string_view>

namespace corvane::air {

namespace {

/// One argument as the C run-time of the child reads it back.
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

} // namespace

void shareWithChildren(HANDLE handle, bool share)
{
    SetHandleInformation(handle, HANDLE_FLAG_INHERIT, share ? HANDLE_FLAG_INHERIT : 0);
}

bool Child::start(const std::string &program, const std::vector<std::string> &arguments,
                  const ChildStreams &streams)
{
    const std::wstring file = widen(program);
    std::wstring command = quoted(file);
    for (const std::string &argument : arguments)
        command += L' ' + quoted(widen(argument));

    m_job.reset(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(m_job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = streams.input;
    startup.hStdOutput = streams.output;
    startup.hStdError = streams.error;
    PROCESS_INFORMATION child{};
    if (!CreateProcessW(file.c_str(), command.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                        nullptr, &startup, &child))
        return false;
    m_process.reset(child.hProcess);
    const Handle thread(child.hThread);
    AssignProcessToJobObject(m_job.get(), m_process.get());
    ResumeThread(thread.get());
    return true;
}

int Child::wait() const
{
    WaitForSingleObject(m_process.get(), INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(m_process.get(), &code);
    return static_cast<int>(code);
}

void Child::kill(int code) const
{
    TerminateJobObject(m_job.get(), static_cast<UINT>(code));
}

void writeAll(HANDLE handle, std::string_view bytes)
{
    while (!bytes.empty()) {
        DWORD written = 0;
        if (!WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
            return;
        bytes.remove_prefix(written);
    }
}

} // namespace corvane::air

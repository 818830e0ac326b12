#include "tools/air/Text_win.h"

#include <windows.h>

#include <array>

namespace corvane::air {

std::string narrow(std::wstring_view text)
{
    const int length = static_cast<int>(text.size());
    std::string bytes(static_cast<std::size_t>(
                          WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr)),
                      '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(), static_cast<int>(bytes.size()),
                        nullptr, nullptr);
    return bytes;
}

std::wstring widen(std::string_view bytes)
{
    const int size = static_cast<int>(bytes.size());
    std::wstring text(
        static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, bytes.data(), size, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, bytes.data(), size, text.data(), static_cast<int>(text.size()));
    return text;
}

std::string systemWords(unsigned long error)
{
    std::array<wchar_t, 512> words{};
    const DWORD size = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                      error, 0, words.data(), static_cast<DWORD>(words.size()), nullptr);
    std::wstring_view text(words.data(), size);
    const std::size_t last = text.find_last_not_of(L" .\r\n");
    text = text.substr(0, last == std::wstring_view::npos ? 0 : last + 1);
    return text.empty() ? "error " + std::to_string(error) : narrow(text);
}

std::wstring ownPath()
{
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

std::wstring environment(const wchar_t *name)
{
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

} // namespace corvane::air

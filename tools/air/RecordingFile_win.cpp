#include "tools/air/RecordingFile.h"

#include "tools/air/Child_win.h"
#include "tools/air/Text_win.h"

#include <windows.h>

#include <algorithm>
#include <array>

namespace corvane::air {

namespace {

constexpr int mostAttempts = 1000; // of other encoders that take a number first

HANDLE handleOf(std::intptr_t value)
{
    return reinterpret_cast<HANDLE>(value);
}

std::string lastWords()
{
    return systemWords(GetLastError());
}

/// Highest number of a recording in the directory; none: it can't be read.
int highestNumber(const std::wstring &directory)
{
    WIN32_FIND_DATAW entry{};
    const HANDLE search = FindFirstFileW((directory + L"\\*").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return -1;
    int highest = 0;
    do
        highest = std::max(highest, recordingNumber(narrow(entry.cFileName)));
    while (FindNextFileW(search, &entry));
    FindClose(search);
    return highest;
}

/// Text as editors and shells of this system write it: UTF-16 or UTF-8 with their marks, UTF-8, or what the
/// system's code page makes of it.
std::string text(std::string_view bytes)
{
    if (bytes.starts_with("\xff\xfe")) {
        std::wstring wide;
        for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
            wide += static_cast<wchar_t>(static_cast<unsigned char>(bytes[i]) |
                                         static_cast<unsigned char>(bytes[i + 1]) << 8);
        return narrow(wide);
    }
    if (bytes.starts_with("\xef\xbb\xbf"))
        bytes.remove_prefix(3);
    const int size = static_cast<int>(bytes.size());
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), size, nullptr, 0) > 0)
        return std::string(bytes);
    // A shell writes in the code page of its console.
    std::wstring wide(
        static_cast<std::size_t>(MultiByteToWideChar(CP_OEMCP, 0, bytes.data(), size, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_OEMCP, 0, bytes.data(), size, wide.data(), static_cast<int>(wide.size()));
    return narrow(wide);
}

} // namespace

RecordingFile::~RecordingFile()
{
    if (m_handle != -1)
        CloseHandle(handleOf(m_handle));
}

std::string RecordingFile::create(const std::string &directory)
{
    const int highest = highestNumber(widen(directory));
    if (highest < 0)
        return lastWords();
    for (int number = highest + 1; number <= highest + mostAttempts; ++number) {
        const std::string path = directory + '\\' + recordingName(number);
        const HANDLE file = CreateFileW(widen(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                        CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE) {
            m_handle = reinterpret_cast<std::intptr_t>(file);
            m_path = path;
            return {};
        }
        if (GetLastError() != ERROR_FILE_EXISTS)
            break;
    }
    return lastWords();
}

std::string RecordingFile::append(std::string_view bytes)
{
    while (!bytes.empty()) {
        DWORD written = 0;
        if (!WriteFile(handleOf(m_handle), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr))
            return lastWords();
        bytes.remove_prefix(written);
    }
    return {};
}

// Nobody can remove a file here that is being written.
std::string RecordingFile::sync()
{
    return FlushFileBuffers(handleOf(m_handle)) ? std::string() : lastWords();
}

std::string directoryNamedIn(const std::string &setting)
{
    const Handle file(CreateFileW(widen(setting).c_str(), GENERIC_READ,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::array<char, 4096> bytes{};
    DWORD size = 0;
    if (!file.isOpen() ||
        !ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &size, nullptr))
        return {};
    return firstLineOf(text({bytes.data(), size}));
}

} // namespace corvane::air

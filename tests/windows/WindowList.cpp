// Lists the windows in view that aren't part of another one, one a line: class, title, file name of its
// program and the texts of its controls, divided by tabs. With an argument it presses the button of that text
// instead, with two it chooses the first as the title of the window; exit code 1 if there is no such button.

#include <windows.h>

#include <array>
#include <cstdio>
#include <string>

namespace {

constexpr UINT patienceMs = 2000;

struct Wish
{
    std::wstring title;
    std::wstring button;
    bool lists = true;
    bool pressed = false;
};

std::string narrow(const std::wstring &text)
{
    const int length = static_cast<int>(text.size());
    std::string bytes(text.size() * 4, '\0');
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(),
                                           static_cast<int>(bytes.size()), nullptr, nullptr);
    bytes.resize(static_cast<std::size_t>(size));
    return bytes;
}

/// Text of a window of any process, on one line.
std::wstring textOf(HWND window)
{
    std::array<wchar_t, 4096> text{};
    DWORD_PTR size = 0;
    if (::SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()),
                              SMTO_ABORTIFHUNG, patienceMs, &size) == 0)
        return {};
    std::wstring line(text.data(), size);
    for (wchar_t &character : line) {
        if (character == L'\n' || character == L'\r' || character == L'\t')
            character = L' ';
    }
    return line;
}

std::wstring classOf(HWND window)
{
    std::array<wchar_t, 256> name{};
    const int size = ::GetClassNameW(window, name.data(), static_cast<int>(name.size()));
    return {name.data(), static_cast<std::size_t>(size)};
}

std::wstring programOf(HWND window)
{
    DWORD id = 0;
    ::GetWindowThreadProcessId(window, &id);
    const HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id);
    std::array<wchar_t, 4096> path{};
    DWORD size = static_cast<DWORD>(path.size());
    if (process == nullptr)
        return {};
    if (::QueryFullProcessImageNameW(process, 0, path.data(), &size) == 0)
        size = 0;
    ::CloseHandle(process);
    const std::wstring whole(path.data(), size);
    return whole.substr(whole.rfind(L'\\') + 1);
}

/// The mark of the key that presses a button isn't part of its text.
std::wstring withoutMark(std::wstring text)
{
    if (const std::size_t mark = text.find(L'&'); mark != std::wstring::npos)
        text.erase(mark, 1);
    return text;
}

BOOL CALLBACK lookAtControl(HWND control, LPARAM data)
{
    auto *wish = reinterpret_cast<Wish *>(data);
    if (::IsWindowVisible(control) == 0)
        return TRUE;
    const std::wstring text = withoutMark(textOf(control));
    if (wish->lists) {
        std::printf("\t%s", narrow(text).c_str());
    } else if (classOf(control) == L"Button" && text == wish->button) {
        wish->pressed = true;
        ::PostMessageW(control, BM_CLICK, 0, 0);
        return FALSE;
    }
    return TRUE;
}

BOOL CALLBACK lookAtWindow(HWND window, LPARAM data)
{
    auto *wish = reinterpret_cast<Wish *>(data);
    if (::IsWindowVisible(window) == 0)
        return TRUE;
    const std::wstring title = textOf(window);
    if (wish->lists) {
        std::printf("%s\t%s\t%s", narrow(classOf(window)).c_str(), narrow(title).c_str(),
                    narrow(programOf(window)).c_str());
        ::EnumChildWindows(window, &lookAtControl, data);
        std::printf("\n");
        return TRUE;
    }
    if (wish->title.empty() || title == wish->title)
        ::EnumChildWindows(window, &lookAtControl, data);
    return wish->pressed ? FALSE : TRUE;
}

} // namespace

int wmain(int count, wchar_t **arguments)
{
    Wish wish;
    if (count > 1) {
        wish.lists = false;
        wish.button = arguments[count - 1];
    }
    if (count > 2)
        wish.title = arguments[1];
    ::EnumWindows(&lookAtWindow, reinterpret_cast<LPARAM>(&wish));
    return wish.lists || wish.pressed ? 0 : 1;
}

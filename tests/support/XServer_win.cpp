#include "tests/support/XServer.h"

#include <string>

#include <windows.h>

// The desktop of the session takes the server's place: there is exactly one.
namespace corvane::test {

namespace {

struct Search
{
    std::wstring title;
    HWND found;
};

BOOL CALLBACK look(HWND window, LPARAM parameter)
{
    auto *search = reinterpret_cast<Search *>(parameter);
    wchar_t title[256];
    const int length = GetWindowTextW(window, title, 256);
    if (!IsWindowVisible(window) ||
        std::wstring_view(title, static_cast<std::size_t>(length)) != search->title)
        return TRUE;
    search->found = window;
    return FALSE;
}

HWND find(const QString &title)
{
    Search search{title.toStdWString(), nullptr};
    EnumWindows(look, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

} // namespace

XServer::XServer() = default;
XServer::~XServer() = default;

bool XServer::showsWindow(const QString &title) const
{
    return find(title) != nullptr;
}

bool XServer::closeWindow(const QString &title) const
{
    const HWND window = find(title);
    return window && PostMessageW(window, WM_CLOSE, 0, 0);
}

} // namespace corvane::test

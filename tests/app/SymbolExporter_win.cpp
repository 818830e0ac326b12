#include "tests/app/SymbolExporter.h"

#include <QDir>

#include <windows.h>

#include <psapi.h>

namespace corvane::test {

QString exporterOf(const char *symbol)
{
    HMODULE modules[512];
    DWORD size = 0;
    EnumProcessModules(GetCurrentProcess(), modules, sizeof modules, &size);
    const DWORD count = qMin<DWORD>(size / sizeof(HMODULE), 512);
    for (DWORD i = 0; i < count; ++i) {
        wchar_t path[MAX_PATH];
        if (GetProcAddress(modules[i], symbol) && GetModuleFileNameW(modules[i], path, MAX_PATH) != 0)
            return QDir::fromNativeSeparators(QString::fromWCharArray(path));
    }
    return {};
}

} // namespace corvane::test

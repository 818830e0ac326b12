#include "tools/guardian/OwnRights.h"

#include <windows.h>

namespace corvane::guardian {

bool isElevated()
{
    HANDLE token = nullptr;
    if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token) == 0)
        return false;
    TOKEN_ELEVATION_TYPE type = TokenElevationTypeDefault;
    DWORD size = 0;
    const BOOL isKnown = ::GetTokenInformation(token, TokenElevationType, &type, sizeof type, &size);
    ::CloseHandle(token);
    return isKnown != 0 && type == TokenElevationTypeFull;
}

} // namespace corvane::guardian

#include "tools/guardian/DiskSync.h"

#include <QFile>

#include <windows.h>

#include <io.h>

namespace corvane::guardian {

bool syncFile(QFile &file)
{
    return ::FlushFileBuffers(reinterpret_cast<HANDLE>(::_get_osfhandle(file.handle()))) != 0;
}

// NTFS journals its names itself.
bool syncFolder(const QString & /*path*/)
{
    return true;
}

bool syncFolders(const QString & /*path*/)
{
    return true;
}

} // namespace corvane::guardian

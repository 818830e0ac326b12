#include "tools/publish/FilePrivacy.h"

namespace corvane {

// Qt's permissions aren't those of the file's access list here.
bool isOpenToOthers(const QFile & /*file*/)
{
    return false;
}

} // namespace corvane

#include "tools/publish/FilePrivacy.h"

namespace corvane {

// What Qt shows as permissions here isn't what the file's access list says.
bool isOpenToOthers(const QFile & /*file*/)
{
    return false;
}

} // namespace corvane

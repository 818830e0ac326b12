#include "app/Version.h"

namespace corvane {

// Alone in its file: another version is this file compiled anew, and a link.
const char *version()
{
    return CORVANE_VERSION;
}

} // namespace corvane

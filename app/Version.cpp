#include "app/Version.h"

namespace corvane {

// Alone in its file: another version recompiles this file and relinks.
const char *version()
{
    return CORVANE_VERSION;
}

} // namespace corvane

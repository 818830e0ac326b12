#include "update/PinnedUpdateKey.h"

namespace corvane {

// Alone in its file, so that nothing but the build can set it and a test can be linked with a key of its own.
const char *pinnedUpdateKey()
{
    return CORVANE_UPDATE_KEY;
}

} // namespace corvane

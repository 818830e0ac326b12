#include "tools/guardian/OwnRights.h"

namespace corvane::guardian {

bool isElevated()
{
    return false;
}

} // namespace corvane::guardian

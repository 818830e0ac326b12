// The guardian, as it is when it was started with an administrator's rights.

#include "tools/guardian/OwnRights.h"

bool corvane::guardian::isElevated()
{
    return true;
}

#include "tools/guardian/RestartBudget.h"

#include <algorithm>

namespace corvane::guardian {

std::optional<qint64> RestartBudget::onCrash(qint64 nowMs)
{
    crashes.removeIf([this, nowMs](qint64 at) { return nowMs - at >= windowMs; });
    crashes.append(nowMs);
    if (crashes.size() > limit)
        return std::nullopt;
    return std::min(firstDelayMs << (crashes.size() - 1), longestDelayMs);
}

} // namespace corvane::guardian

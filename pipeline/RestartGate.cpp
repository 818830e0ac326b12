#include "pipeline/RestartGate.h"

#include <algorithm>

namespace corvane {

constexpr qint32 largestExponent = 16;

RestartDecision RestartGate::onFailure(const RestartPolicy &policy, qint64 startedAtMs, qint64 now)
{
    const qint64 windowMs = qint64(policy.windowSec) * 1000;

    if (startedAtMs >= 1 && now - startedAtMs > windowMs / 2)
        restartAttempts = 0;

    restartTimes.append(now);
    const auto oldestInWindow = std::find_if(restartTimes.cbegin(), restartTimes.cend(),
                                             [&](qint64 time) { return time >= now - windowMs; });
    restartTimes.erase(restartTimes.cbegin(), oldestInWindow);

    if (restartTimes.size() > policy.maxRestartsInWindow) {
        circuitOpened = true;
        return {true, 0, restartTimes.size()};
    }

    const qint64 backoff =
        (qint64(1) << std::min(restartAttempts, largestExponent)) * policy.initialBackoffMs;
    ++restartAttempts;
    return {false, std::min<qint64>(backoff, policy.maxBackoffMs), restartTimes.size()};
}

void RestartGate::clear()
{
    restartTimes.clear();
    restartAttempts = 0;
    circuitOpened = false;
}

} // namespace corvane

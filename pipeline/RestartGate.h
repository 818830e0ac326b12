#pragma once

#include "engine/model/PipelineConfig.h"

#include <QList>

namespace corvane {

/// Consequence of one failure of the encoder.
struct RestartDecision
{
    bool circuitOpen = false;       ///< too many failures in the window: no restart
    qint64 delayMs = 0;             ///< pause before the restart; 0 without one
    qsizetype failuresInWindow = 0; ///< this failure included
};

/// Restart policy of a failed encoder: growing pauses, and a circuit breaker once failures repeat. Pure: the
/// caller brings the time. Only an operator's stop calls `clear()`; nothing else empties the history.
struct RestartGate
{
    QList<qint64> restartTimes; ///< failures, ms since the epoch, oldest first
    qint32 restartAttempts = 0; ///< exponent of the back-off
    bool circuitOpened = false; ///< read by nothing: an open circuit doesn't bar a start

    /// Records a failure at `now`, of a run that began at `startedAtMs` (0: never began), both in ms since
    /// the epoch. A run longer than half the window resets the back-off. The circuit opens when the window
    /// holds more than `maxRestartsInWindow` failures.
    [[nodiscard]] RestartDecision onFailure(const RestartPolicy &policy, qint64 startedAtMs, qint64 now);

    void clear();
};

} // namespace corvane

#pragma once

#include "engine/model/PipelineConfig.h"

#include <QList>

namespace corvane {

/// What follows one failure of the encoder.
struct RestartDecision
{
    bool circuitOpen = false;       ///< too many failures in the window: no restart
    qint64 delayMs = 0;             ///< wait before the restart
    qsizetype failuresInWindow = 0; ///< this failure included
};

/// When a dead encoder comes back: growing pauses, and none at all once failures repeat. Pure: the caller
/// brings the time. `clear()` is what an operator's stop does; nothing else empties the history.
struct RestartGate
{
    QList<qint64> restartTimes; ///< failures, ms since the epoch, oldest first
    qint32 restartAttempts = 0; ///< exponent of the back-off
    bool circuitOpened = false; ///< kept for inspection; doesn't bar a start

    /// Takes in a failure at `now`, of a run that began at `startedAtMs` (0: never began), both in ms since
    /// the epoch. A run longer than half the window starts the back-off anew. The circuit opens when the
    /// window holds more than `maxRestartsInWindow` failures.
    [[nodiscard]] RestartDecision onFailure(const RestartPolicy &policy, qint64 startedAtMs, qint64 now);

    void clear();
};

} // namespace corvane

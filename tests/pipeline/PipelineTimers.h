#pragma once

#include "pipeline/Pipeline.h"

#include <QList>

class QTimer;

/// Timers of a pipeline in a test's hands: what they bring about is seen without the time that they take.
namespace corvane::test {

/// Timer of the watchdog; null before the first run.
[[nodiscard]] QTimer *hangTimer(const Pipeline &pipeline);

/// Timer of the quality ladder; null before the first run.
[[nodiscard]] QTimer *qualityTimer(const Pipeline &pipeline);

/// One time-out of `timer`, now and within the call. The timer itself goes on as before.
void fire(QTimer &timer);

/// Waits until the encoder of the last start has ended by itself, and has that handled, without a turn of the
/// event loop: no timer fires meanwhile. False if it doesn't end.
[[nodiscard]] bool endRun(const Pipeline &pipeline);

/// Intervals of this thread's single shots that are pending, in milliseconds.
[[nodiscard]] QList<int> pendingShots();

} // namespace corvane::test

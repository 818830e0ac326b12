#pragma once

class QJsonObject;
class QObject;
class QQuickWindow;

namespace corvane::bench {

/// Cost of log lines to the GUI thread, in nanoseconds of its processor time, with a log that is full and
/// in view: a line that is added ("line" alone, "lineFrame" with the frame that shows it), the same by
/// replacing the whole text ("whole", "wholeFrame"), and a line at which the engine cuts its log
/// ("cutFrame"). "unequal" counts the lines after which the view didn't show the engine's log with the cursor
/// at its end.
///
/// Then CORVANE_MEASURE_LINES lines one after the other: "memoryKib", resident memory after each tenth of
/// them.
[[nodiscard]] QJsonObject logFigures(QQuickWindow &window, QObject &engine);

} // namespace corvane::bench
